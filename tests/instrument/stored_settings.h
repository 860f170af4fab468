/**
 * The two copies of the settings in a test's instrument, as bytes: the image in its EEPROM and the backup
 * file.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_STORED_SETTINGS_H
#define ORVAN_TESTS_INSTRUMENT_STORED_SETTINGS_H

#include <array>
#include <filesystem>
#include <string>

#include "orvan_sdk/lxi/PersistentData.h"

namespace orvan_test {

using SettingsRecord = HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;
using SettingsImage = std::array<uint8_t, HaldeElec::Orvan::TOTAL_BLOB_SIZE>;

/** Identity of an instrument, with the properties of its model. */
struct StoredIdentity {
    const char* description;
    const char* model;
    const char* serial;
    const char* version;
    const char* host_name;
    uint8_t channels;
    uint16_t product;

    /** Reply to "*IDN?". */
    std::string reply() const;
};

/**
 * A record that a start leaves unchanged: it holds the properties of the model and what the simulated modules
 * report. Only models of 20 GHz.
 */
SettingsRecord settled_record(const StoredIdentity& identity);

/** The record followed by zeros, as stored before signatures were introduced. */
SettingsImage unsigned_image(const SettingsRecord& record);
SettingsImage signed_image(const SettingsRecord& record, uint32_t generation, uint16_t version = 1);
/** The same with a bit flipped after the record, which only the signature reveals. */
SettingsImage damaged(SettingsImage image);

void write_eeprom(const std::filesystem::path& state, const SettingsImage& image);
void write_backup(const std::filesystem::path& state, const SettingsImage& image, size_t size);
SettingsImage read_eeprom(const std::filesystem::path& state);
/** The whole file; empty when there is none. */
std::string read_backup(const std::filesystem::path& state);
std::string bytes_of(const SettingsImage& image);

/** Backdates both stores, so that a write shows in their times. */
void age_stores(const std::filesystem::path& state);
bool eeprom_was_written(const std::filesystem::path& state);
bool backup_was_written(const std::filesystem::path& state);

} // namespace orvan_test

#endif
