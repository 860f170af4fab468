/**
 * The records that leave the program as they are in memory, on any platform this is built for:
 * the offset of each field, and files of them that another platform reads.
 *
 *   record_layout_test [--write DIR] [--read DIR]
 *
 * The layouts are always checked. --write leaves a channel's record and a signed settings image in DIR;
 * --read checks those of DIR, by this or another platform's build. Prints "N passed, M failed"; the exit
 * status is 0 if nothing failed, 1 if something did, 2 for invalid arguments.
 *
 * A program without the test framework, so that a bare cross compiler is enough to build it.
 */
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include <crc32_utils.h>
#include <dataorvan.h>
#include <orvan_sdk/lxi/PersistentData.h>

namespace {

using HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using HaldeElec::Orvan::SigningHeader;
using Bytes = std::vector<uint8_t>;

constexpr size_t kRecordSize = 1816;
constexpr size_t kSettingsSize = 552;
constexpr size_t kBlobSize = 1024;
constexpr size_t kHeaderOffset = 1010;
constexpr size_t kCrcOffset = 1020;

constexpr uint16_t kSampleVersion = 0x0102;
constexpr uint32_t kSampleGeneration = 0x89ABCDEF;

int g_passed = 0;
int g_failed = 0;

void check(bool good, const std::string& what)
{
    if (good) {
        ++g_passed;
        return;
    }
    ++g_failed;
    std::printf("FAILED: %s\n", what.c_str());
}

void check_number(const std::string& what, uint64_t is, uint64_t wanted)
{
    check(is == wanted, what + " is " + std::to_string(is) + ", not " + std::to_string(wanted));
}

void check_field(const std::string& name, size_t offset, size_t size, size_t wanted_offset,
                 size_t wanted_size)
{
    check_number(name + ": offset", offset, wanted_offset);
    check_number(name + ": size", size, wanted_size);
}

void check_channel_record()
{
    check_number("ORVAN_CONFIG: size", sizeof(ORVAN_CONFIG), kRecordSize);
    check_number("ORVAN_CONFIG: alignment", alignof(ORVAN_CONFIG), 8);
#define SECTION(offset, size, name)                                                                          \
    check_field(#name, offsetof(ORVAN_CONFIG, name), sizeof(ORVAN_CONFIG::name), offset, size)
    SECTION(0, 16, CHANNEL);
    SECTION(16, 176, RUNMODE);
    SECTION(192, 168, ANALOGOUTPUT);
    SECTION(360, 200, LIST);
    SECTION(560, 608, MODULATIONS);
    SECTION(1168, 648, SYSTEM);
#undef SECTION
#define RECORD_FIELD(offset, size, section, field, type, tag, number, value_type)                            \
    check_field(#section "." #field, offsetof(ORVAN_CONFIG, section.field),                                  \
                sizeof(ORVAN_CONFIG::section.field), offset, size);                                          \
    check(std::is_same_v<decltype(ORVAN_CONFIG::section.field), type>, #section "." #field " is no " #type);
#include "channel_record.def"
#undef RECORD_FIELD
}

void check_element_table()
{
#define ELEMENT_FIELD(offset, size, field)                                                                   \
    check_field("OrvanElementData." #field, offsetof(OrvanElementData, field),                               \
                sizeof(OrvanElementData::field), offset, size)
    check_number("OrvanElementData: size", sizeof(OrvanElementData), 32);
    ELEMENT_FIELD(0, 4, pos);
    ELEMENT_FIELD(8, 8, factor);
    ELEMENT_FIELD(16, 4, type);
    ELEMENT_FIELD(20, 4, size);
    ELEMENT_FIELD(24, 4, send);
#undef ELEMENT_FIELD
#define RECORD_FIELD(offset, bytes, section, field, of_type, tag, number, value_type)                        \
    check_number(#tag, tag, number);                                                                         \
    check_number("row of " #tag ": pos", OrvanData::orvanMap[number].pos, offset);                           \
    check_number("row of " #tag ": size", OrvanData::orvanMap[number].size, bytes);                          \
    check_number("row of " #tag ": type", static_cast<uint64_t>(OrvanData::orvanMap[number].type),           \
                 value_type);
#include "channel_record.def"
#undef RECORD_FIELD
    check_number("last row: pos", OrvanData::orvanMap[144].pos, UINT32_MAX);
}

void check_settings_record()
{
    check_number("EEPROM_DEVICE_SETTINGS: size", sizeof(EEPROM_DEVICE_SETTINGS), kSettingsSize);
    check_number("EEPROM_DEVICE_SETTINGS: alignment", alignof(EEPROM_DEVICE_SETTINGS), 8);
#define SETTINGS_FIELD(offset, size, field, type)                                                            \
    check_field(#field, offsetof(EEPROM_DEVICE_SETTINGS, field), sizeof(EEPROM_DEVICE_SETTINGS::field),      \
                offset, size);                                                                               \
    check(std::is_same_v<decltype(EEPROM_DEVICE_SETTINGS::field), type>, #field " is no " #type);
#include "settings_record.def"
#undef SETTINGS_FIELD
}

void check_signing_header()
{
#define HEADER_FIELD(offset, size, field)                                                                    \
    check_field("SigningHeader." #field, offsetof(SigningHeader, field), sizeof(SigningHeader::field),       \
                offset, size)
    check_number("SigningHeader: size", sizeof(SigningHeader), 14);
    HEADER_FIELD(0, 4, marker);
    HEADER_FIELD(4, 2, structVersion);
    HEADER_FIELD(6, 4, generation);
    HEADER_FIELD(10, 4, crc32);
#undef HEADER_FIELD
    check_number("TOTAL_BLOB_SIZE", HaldeElec::Orvan::TOTAL_BLOB_SIZE, kBlobSize);
    check_number("SIGNING_HEADER_OFFSET", HaldeElec::Orvan::SIGNING_HEADER_OFFSET, kHeaderOffset);
    check_number("DATA_REGION_SIZE", HaldeElec::Orvan::DATA_REGION_SIZE, kHeaderOffset);
}

uint32_t crc_of(const uint8_t* bytes, size_t length)
{
    const Crc32Utils* crc32 = Crc32Utils::getInstance();
    return crc32->crc32_signoff(crc32->calculate_crc32(crc32->crc32_init(), bytes, length));
}

void check_crc()
{
    const uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    check_number("CRC of the nine digits", crc_of(digits, sizeof digits), 0xCBF43926);
}

// A value that no other field has, with no two bytes equal where the type has room for that. A plain
// char exceeds 127, where its value depends on the platform and its byte must not.
template <typename Field>
void set_sample(Field& field, size_t offset)
{
    if constexpr (std::is_array_v<Field>) {
        std::memset(field, 0, sizeof field);
        std::snprintf(field, sizeof field, "text at offset %zu", offset);
    } else if constexpr (std::is_enum_v<Field>) {
        field = On;
    } else if constexpr (std::is_floating_point_v<Field>) {
        field = -1.0e9 / 3.0 * static_cast<double>(offset + 1);
    } else {
        field = static_cast<Field>(0x9E3779B97F4A7C15U * (uint64_t{offset} + 1));
    }
}

template <typename Field>
bool is_sample(const Field& field, size_t offset)
{
    Field sample;
    set_sample(sample, offset);
    if constexpr (std::is_array_v<Field>) {
        return std::memcmp(field, sample, sizeof field) == 0;
    } else {
        return std::bit_cast<std::array<uint8_t, sizeof(Field)>>(field) ==
               std::bit_cast<std::array<uint8_t, sizeof(Field)>>(sample);
    }
}

void put_number(Bytes& image, size_t offset, size_t size, uint64_t number)
{
    for (size_t i = 0; i < size; ++i) {
        image[offset + i] = static_cast<uint8_t>(number >> (8 * i));
    }
}

// Stores the sample value byte by byte, low byte first, whatever the platform's byte order.
template <typename Field>
void put_sample(Bytes& image, size_t offset, size_t size)
{
    Field sample;
    set_sample(sample, offset);
    if constexpr (std::is_array_v<Field>) {
        std::memcpy(image.data() + offset, sample, size);
    } else if constexpr (std::is_floating_point_v<Field>) {
        put_number(image, offset, size, std::bit_cast<uint64_t>(sample));
    } else {
        put_number(image, offset, size, static_cast<uint64_t>(sample));
    }
}

// The expected bytes of both files, made from the tables alone and not from the records' declarations.
Bytes channel_record_image()
{
    Bytes image(kRecordSize);
#define RECORD_FIELD(offset, size, section, field, type, tag, number, value_type)                            \
    put_sample<type>(image, offset, size);
#include "channel_record.def"
#undef RECORD_FIELD
    return image;
}

Bytes settings_blob_image()
{
    Bytes image(kBlobSize);
#define SETTINGS_FIELD(offset, size, field, type) put_sample<type>(image, offset, size);
#include "settings_record.def"
#undef SETTINGS_FIELD
    std::memcpy(image.data() + kHeaderOffset, "HESH", 4);
    put_number(image, kHeaderOffset + 4, 2, kSampleVersion);
    put_number(image, kHeaderOffset + 6, 4, kSampleGeneration);
    put_number(image, kCrcOffset, 4, crc_of(image.data(), kCrcOffset));
    return image;
}

std::string record_path(const std::string& folder)
{
    return folder + "/channel_record.bin";
}

std::string blob_path(const std::string& folder)
{
    return folder + "/settings_blob.bin";
}

void write_file(const std::string& path, const void* bytes, size_t size)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    file.close();
    check(!file.fail(), "cannot write " + path);
}

void write_channel_record(const std::string& path)
{
    ORVAN_CONFIG record;
    std::memset(&record, 0, sizeof record);
#define RECORD_FIELD(offset, size, section, field, type, tag, number, value_type)                            \
    set_sample(record.section.field, offset);
#include "channel_record.def"
#undef RECORD_FIELD
    write_file(path, &record, sizeof record);
}

void write_settings_blob(const std::string& path)
{
    EEPROM_DEVICE_SETTINGS settings;
    std::memset(&settings, 0, sizeof settings);
#define SETTINGS_FIELD(offset, size, field, type) set_sample(settings.field, offset);
#include "settings_record.def"
#undef SETTINGS_FIELD
    SigningHeader header = {HaldeElec::Orvan::SIGNING_MARKER, kSampleVersion, kSampleGeneration, 0};
    uint8_t blob[HaldeElec::Orvan::TOTAL_BLOB_SIZE] = {};
    uint8_t* const header_at = blob + HaldeElec::Orvan::SIGNING_HEADER_OFFSET;
    std::memcpy(blob, &settings, sizeof settings);
    std::memcpy(header_at, &header, sizeof header);
    header.crc32 = crc_of(blob, HaldeElec::Orvan::SIGNING_HEADER_OFFSET + offsetof(SigningHeader, crc32));
    std::memcpy(header_at, &header, sizeof header);
    write_file(path, blob, sizeof blob);
}

// Empty, and counted as failed, unless the file has exactly the size of the image.
Bytes read_file(const std::string& path, const Bytes& image)
{
    std::ifstream file(path, std::ios::binary);
    const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    check(file.is_open(), "cannot read " + path);
    check_number(path + ": size", bytes.size(), image.size());
    if (bytes.size() != image.size()) {
        return {};
    }
    size_t same = 0;
    while (same < image.size() && bytes[same] == image[same]) {
        ++same;
    }
    check(same == image.size(), path + " differs from offset " + std::to_string(same) + " on");
    return bytes;
}

void read_channel_record(const std::string& path)
{
    const Bytes bytes = read_file(path, channel_record_image());
    if (bytes.empty()) {
        return;
    }
    ORVAN_CONFIG record;
    std::memcpy(&record, bytes.data(), sizeof record);
#define RECORD_FIELD(offset, size, section, field, type, tag, number, value_type)                            \
    check(is_sample(record.section.field, offset), path + ": " #section "." #field " has another value");
#include "channel_record.def"
#undef RECORD_FIELD
}

void read_settings_blob(const std::string& path)
{
    const Bytes bytes = read_file(path, settings_blob_image());
    if (bytes.empty()) {
        return;
    }
    EEPROM_DEVICE_SETTINGS settings;
    std::memcpy(&settings, bytes.data(), sizeof settings);
#define SETTINGS_FIELD(offset, size, field, type)                                                            \
    check(is_sample(settings.field, offset), path + ": " #field " has another value");
#include "settings_record.def"
#undef SETTINGS_FIELD
    SigningHeader header;
    std::memcpy(&header, bytes.data() + HaldeElec::Orvan::SIGNING_HEADER_OFFSET, sizeof header);
    check_number(path + ": marker", header.marker, HaldeElec::Orvan::SIGNING_MARKER);
    check_number(path + ": structVersion", header.structVersion, kSampleVersion);
    check_number(path + ": generation", header.generation, kSampleGeneration);
    check_number(path + ": crc32", header.crc32, crc_of(bytes.data(), kCrcOffset));
}

} // namespace

int main(int argc, char** argv)
{
    check_channel_record();
    check_element_table();
    check_settings_record();
    check_signing_header();
    check_crc();
    for (int i = 1; i < argc; i += 2) {
        const std::string option = argv[i];
        if (i + 1 == argc || (option != "--write" && option != "--read")) {
            std::fprintf(stderr, "usage: %s [--write DIR] [--read DIR]\n", argv[0]);
            return 2;
        }
        const std::string folder = argv[i + 1];
        if (option == "--write") {
            write_channel_record(record_path(folder));
            write_settings_blob(blob_path(folder));
        } else {
            read_channel_record(record_path(folder));
            read_settings_blob(blob_path(folder));
        }
    }
    std::printf("%d passed, %d failed\n", g_passed, g_failed);
    return g_failed == 0 ? 0 : 1;
}
