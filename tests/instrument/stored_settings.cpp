#include "stored_settings.h"

#include <cstring>
#include <fstream>

#include "support/files.h"
#include "support/long_ago.h"
#include <crc32_utils.h>

using namespace HaldeElec::Orvan;

namespace orvan_test {

namespace {

namespace fs = std::filesystem;

constexpr size_t kEepromSize = 8192; // of a CAT25640

fs::path eeprom_path(const fs::path& state)
{
    return state / "board/eeprom.bin";
}

fs::path backup_path(const fs::path& state)
{
    return state / "halde/config/flash.ini";
}

void age(const fs::path& path)
{
    if (fs::exists(path)) {
        fs::last_write_time(path, kLongAgo);
    }
}

bool was_written(const fs::path& path)
{
    return fs::exists(path) && fs::file_size(path) > 0 && fs::last_write_time(path) != kLongAgo;
}

} // namespace

std::string StoredIdentity::reply() const
{
    return std::string(description) + "," + model + "," + serial + "," + version + ";+OK\r\n";
}

SettingsRecord settled_record(const StoredIdentity& identity)
{
    SettingsRecord record;
    std::memset(&record, 0, sizeof record);
    record.options = 0x001E; // MOD, 20 GHz
    std::strcpy(record.modelName, identity.model);
    std::strcpy(record.serialNum, identity.serial);
    std::strcpy(record.calibrationDate, "271020");
    std::strcpy(record.description, identity.description);
    record.numDevices = identity.channels;
    std::strcpy(record.hostName, identity.host_name);
    std::strcpy(record.dns1, "10.0.0.53");
    std::strcpy(record.dns2, "10.0.0.54");
    record.maxCwFreq = 20'000'000'000;
    std::strcpy(record.scpiPort, "5999");
    std::strcpy(record.fwVersion, identity.version);
    std::strcpy(record.scpiRevision, "1999.0");
    record.device_type = 1;
    record.vendor_id = 0x168C;
    record.product_id = identity.product;
    std::strcpy(record.fpgaVersion, "1.0.7");
    return record;
}

SettingsImage unsigned_image(const SettingsRecord& record)
{
    SettingsImage image{};
    std::memcpy(image.data(), &record, sizeof record);
    return image;
}

SettingsImage signed_image(const SettingsRecord& record, uint32_t generation, uint16_t version)
{
    SettingsImage image = unsigned_image(record);
    SigningHeader header{SIGNING_MARKER, version, generation, 0};
    const auto put = [&] { std::memcpy(image.data() + SIGNING_HEADER_OFFSET, &header, sizeof header); };
    put();
    const Crc32Utils* const crc = Crc32Utils::getInstance();
    header.crc32 = crc->crc32_signoff(
        crc->calculate_crc32(crc->crc32_init(), image.data(), image.size() - sizeof header.crc32));
    put();
    return image;
}

SettingsImage damaged(SettingsImage image)
{
    image[700] ^= 0x10;
    return image;
}

void write_eeprom(const fs::path& state, const SettingsImage& image)
{
    std::string cells(kEepromSize, '\xFF');
    cells.replace(0, image.size(), bytes_of(image));
    cells += '\0'; // the status register; the board would add it when it starts
    write_file(eeprom_path(state), cells);
}

void write_backup(const fs::path& state, const SettingsImage& image, size_t size)
{
    write_file(backup_path(state), bytes_of(image).substr(0, size));
}

SettingsImage read_eeprom(const fs::path& state)
{
    SettingsImage image{};
    std::ifstream(eeprom_path(state), std::ios::binary)
        .read(reinterpret_cast<char*>(image.data()), static_cast<std::streamsize>(image.size()));
    return image;
}

std::string read_backup(const fs::path& state)
{
    return read_file(backup_path(state));
}

std::string bytes_of(const SettingsImage& image)
{
    return {image.begin(), image.end()};
}

void age_stores(const fs::path& state)
{
    age(eeprom_path(state));
    age(backup_path(state));
}

bool eeprom_was_written(const fs::path& state)
{
    return was_written(eeprom_path(state));
}

bool backup_was_written(const fs::path& state)
{
    return was_written(backup_path(state));
}

} // namespace orvan_test
