#include "firmware.h"

#include "crc32_utils.h"

namespace sim_module {

namespace {

// By ImageKind and by UpdateFault.
constexpr std::array<std::string_view, Firmware::kKinds> kImageNames = {"software", "fpga", "program"};
constexpr std::array<std::string_view, 5> kFaultNames = {"up", "silent-stream", "silent-burn", "late",
                                                         "refuse"};

uint32_t crc32_of(std::string_view bytes)
{
    const Crc32Utils& crc32 = *Crc32Utils::getInstance();
    return crc32.crc32_signoff(crc32.calculate_crc32(
        crc32.crc32_init(), reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

} // namespace

void Firmware::store(ImageKind kind, std::string_view bytes)
{
    Image& image = m_images[static_cast<size_t>(kind)];
    image = {bytes.size(), crc32_of(bytes), image.stored + 1};
}

void Firmware::set_fault(UpdateFault fault, uint16_t from, std::chrono::milliseconds late)
{
    m_fault = fault;
    m_from = from;
    m_late = fault == UpdateFault::kLate ? late : std::chrono::milliseconds(0);
}

std::string_view image_name(ImageKind kind)
{
    return kImageNames[static_cast<size_t>(kind)];
}

std::string_view update_fault_name(UpdateFault fault)
{
    return kFaultNames[static_cast<size_t>(fault)];
}

std::optional<UpdateFault> update_fault_by_name(std::string_view name)
{
    for (size_t i = 0; i < kFaultNames.size(); ++i) {
        if (kFaultNames[i] == name) {
            return static_cast<UpdateFault>(i);
        }
    }
    return std::nullopt;
}

} // namespace sim_module
