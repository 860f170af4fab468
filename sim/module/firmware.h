/**
 * The images that a module was updated with, and injectable faults of updates. Of an image, only length and
 * checksum are kept.
 */
#ifndef ORVAN_SIM_MODULE_FIRMWARE_H
#define ORVAN_SIM_MODULE_FIRMWARE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace sim_module {

enum class ImageKind {
    kSoftware, /**< of ":SYSTem:UPDate:SOFTware" */
    kFpga,     /**< of ":SYSTem:UPDate:FPGA" */
    kProgram,  /**< of a stream on the firmware port */
};

enum class UpdateFault {
    kUp,           /**< none */
    kSilentStream, /**< frames from a given block on are ignored */
    kSilentBurn,   /**< a stream is acknowledged, but never programmed */
    kLate,         /**< each acknowledgement, progress frame and reply is delayed */
    kRefuse,       /**< every image is refused: error -250, or a final frame with an error code */
};

class Firmware {
public:
    static constexpr size_t kKinds = 3;
    static constexpr std::chrono::milliseconds kDefaultLate{2500};
    static constexpr std::chrono::milliseconds kMaxLate{600'000};

    struct Image {
        size_t size = 0;
        uint32_t crc32 = 0;
        unsigned stored = 0; /**< how many were */
    };

    void store(ImageKind kind, std::string_view bytes);
    const Image& image(ImageKind kind) const { return m_images[static_cast<size_t>(kind)]; }

    /** @param from of kSilentStream: the first block that is not acknowledged
     *  @param late of kLate */
    void set_fault(UpdateFault fault, uint16_t from = 1, std::chrono::milliseconds late = {});
    UpdateFault fault() const { return m_fault; }

    bool refuses() const { return m_fault == UpdateFault::kRefuse; }
    bool burns() const { return m_fault != UpdateFault::kSilentBurn; }
    bool takes_block(uint16_t block) const { return m_fault != UpdateFault::kSilentStream || block < m_from; }

    /** Whether an image in a request is answered at all. */
    bool takes_request() const
    {
        return m_fault != UpdateFault::kSilentStream && m_fault != UpdateFault::kSilentBurn;
    }

    /** Delay of an answer. */
    std::chrono::milliseconds lateness() const { return m_late; }

private:
    std::array<Image, kKinds> m_images{};
    UpdateFault m_fault = UpdateFault::kUp;
    uint16_t m_from = 1;
    std::chrono::milliseconds m_late{0};
};

/** "software", "fpga", "program". */
std::string_view image_name(ImageKind kind);

/** "up", "silent-stream", "silent-burn", "late", "refuse". */
std::string_view update_fault_name(UpdateFault fault);
std::optional<UpdateFault> update_fault_by_name(std::string_view name);

} // namespace sim_module

#endif
