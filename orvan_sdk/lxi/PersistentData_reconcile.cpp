#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include <syslog.h>

#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/device_records.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "settings_text.h"

namespace HaldeElec::Orvan {
namespace {

using BlobBytes = std::array<uint8_t, TOTAL_BLOB_SIZE>;
using Serial = char[kSettingsTextSize];

constexpr uint8_t kMaxDevices = 4;
constexpr uint16_t kFactoryFrequencyCode = 8;

// The contents of both stores; zeros for a store that could not be read.
struct Copies {
    BlobBytes eeprom = {};
    BlobBytes file = {};
    bool eeprom_serial_real = false;
    bool file_serial_real = false;
};

SigningHeader header_of(const BlobBytes& blob)
{
    SigningHeader header;
    std::memcpy(&header, blob.data() + SIGNING_HEADER_OFFSET, sizeof header);
    return header;
}

const Serial& serial_of(const BlobBytes& blob)
{
    return *reinterpret_cast<const Serial*>(blob.data() + offsetof(EEPROM_DEVICE_SETTINGS, serialNum));
}

// Further tests of a decision.
// clang-format off
bool always(const Copies&)              { return true; }
bool newer(const Copies& c)             { return header_of(c.eeprom).structVersion > CURRENT_STRUCT_VERSION; }
bool differ(const Copies& c)            { return c.eeprom != c.file; }
bool eeprom_only_real(const Copies& c)  { return c.eeprom_serial_real && !c.file_serial_real; }
bool file_only_real(const Copies& c)    { return !c.eeprom_serial_real && c.file_serial_real; }
bool both_real_differ(const Copies& c)
{
    return c.eeprom_serial_real && c.file_serial_real &&
           std::memcmp(serial_of(c.eeprom), serial_of(c.file), sizeof(Serial)) != 0;
}
// clang-format on

// Logs of a decision.
void silent(const Copies&) {}

void downgrading(const Copies& c)
{
    ::syslog(
        LOG_WARNING,
        "[CPersistentData] EEPROM data version (%u) is newer than this firmware (%u) - downgrading, newer "
        "fields discarded",
        unsigned{header_of(c.eeprom).structVersion}, unsigned{CURRENT_STRUCT_VERSION});
}

void signed_differ(const Copies&)
{
    ::syslog(LOG_ERR,
             "[CPersistentData] EEPROM and file both VERIFIED but differ - keeping EEPROM, investigate");
}

void backup_serial(const Copies&)
{
    ::syslog(
        LOG_WARNING,
        "[CPersistentData] EEPROM had default serial, backup file had a real serial - using backup file");
}

void two_serials(const Copies& c)
{
    ::syslog(LOG_ERR,
             "[CPersistentData] EEPROM and backup file both have real, DIFFERENT serials - keeping EEPROM "
             "(%s), backup had (%s) - ",
             text_of(serial_of(c.eeprom)).c_str(), text_of(serial_of(c.file)).c_str());
}

void unsigned_eeprom(const Copies&)
{
    ::syslog(LOG_ERR,
             "[CPersistentData] Unexpected: EEPROM legacy but file VERIFIED - using file, investigate");
}

void restoring(const Copies&)
{
    ::syslog(LOG_WARNING, "[CPersistentData] EEPROM invalid, restoring from backup file");
}

enum class Source { kEeprom, kFile, kFactory };

// What happens to the source's blob: nothing, or it is rebuilt with this generation.
enum class Stamp { kUnchanged, kNext, kFirst };

enum class Repair { kNo, kYes };

constexpr unsigned bit(DataState state)
{
    return 1U << state;
}
constexpr unsigned kAny = bit(INVALID) | bit(LEGACY_VALID) | bit(VERIFIED);

struct Decision {
    DataState eeprom;
    unsigned file; // bit() of each matching state
    bool (*holds)(const Copies&);
    Source source;
    Stamp stamp;
    Repair repair_eeprom;
    Repair repair_file;
    void (*log)(const Copies&);
};

using enum Source;
using enum Stamp;
using enum Repair;

// The first matching row decides. There is one for every pair of states.
// clang-format off
constexpr Decision kDecisions[] = {
    // EEPROM      file                             further test      source    blob        EEPROM file  log
    {VERIFIED,     kAny,                            newer,            kEeprom,  kNext,       kYes, kYes, downgrading},
    {VERIFIED,     bit(VERIFIED),                   differ,           kEeprom,  kUnchanged,  kNo,  kYes, signed_differ},
    {VERIFIED,     bit(LEGACY_VALID)|bit(INVALID),  differ,           kEeprom,  kUnchanged,  kNo,  kYes, silent},
    {VERIFIED,     kAny,                            always,           kEeprom,  kUnchanged,  kNo,  kNo,  silent},
    {LEGACY_VALID, bit(LEGACY_VALID),               eeprom_only_real, kEeprom,  kFirst,      kYes, kYes, silent},
    {LEGACY_VALID, bit(LEGACY_VALID),               file_only_real,   kFile,    kFirst,      kYes, kYes, backup_serial},
    {LEGACY_VALID, bit(LEGACY_VALID),               both_real_differ, kEeprom,  kFirst,      kYes, kYes, two_serials},
    {LEGACY_VALID, bit(LEGACY_VALID),               always,           kEeprom,  kFirst,      kYes, kYes, silent},
    {LEGACY_VALID, bit(VERIFIED),                   always,           kFile,    kUnchanged,  kYes, kNo,  unsigned_eeprom},
    {LEGACY_VALID, bit(INVALID),                    always,           kEeprom,  kFirst,      kYes, kYes, silent},
    {INVALID,      bit(VERIFIED),                   always,           kFile,    kUnchanged,  kYes, kNo,  restoring},
    {INVALID,      bit(LEGACY_VALID),               always,           kFile,    kFirst,      kYes, kYes, restoring},
    {INVALID,      bit(INVALID),                    always,           kFactory, kFirst,      kYes, kYes, silent},
};
// clang-format on

const Decision& decide(DataState eeprom, DataState file, const Copies& copies)
{
    return *std::find_if(std::begin(kDecisions), std::end(kDecisions), [&](const Decision& row) {
        return row.eeprom == eeprom && (row.file & bit(file)) != 0 && row.holds(copies);
    });
}

} // namespace

const sDevArch_t* CPersistentData::readData(const sDevDefaults_t* devDefaults, const optEntry_t* optTable,
                                            size_t tblSize)
{
    BITManager* const tests = BITManager::getInstance(kCbitPeriod);
    Copies copies;
    const bool eeprom_read = readEeprom(copies.eeprom.data());
    const bool file_read = readFSBackup(copies.file.data());
    if (tests != nullptr) {
        tests->setTestResult(PBIT, kEepromTest, eeprom_read ? BIT_PASS : BIT_FAIL, ERR_NONE);
    }

    const char* const default_serial = devDefaults != nullptr ? devDefaults->serial : nullptr;
    copies.eeprom_serial_real = hasRealSerial(serial_of(copies.eeprom), default_serial);
    copies.file_serial_real = hasRealSerial(serial_of(copies.file), default_serial);
    const Decision& decision = decide(eeprom_read ? classify(copies.eeprom.data()) : INVALID,
                                      file_read ? classify(copies.file.data()) : INVALID, copies);
    decision.log(copies);

    const void* source = copies.eeprom.data();
    if (decision.source == kFile) {
        source = copies.file.data();
    } else if (decision.source == kFactory) {
        setFactoryDefault(devDefaults, optTable, tblSize);
        source = &device_settings_eeprom;
    }
    BlobBytes chosen;
    if (decision.stamp == kUnchanged) {
        std::memcpy(chosen.data(), source, chosen.size());
    } else {
        buildBlob(chosen.data(), source, CURRENT_STRUCT_VERSION,
                  decision.stamp == kNext ? header_of(copies.eeprom).generation + 1 : 1);
    }

    std::memcpy(&device_settings_eeprom, chosen.data(), sizeof device_settings_eeprom);
    std::memcpy(&m_lastPersisted, &device_settings_eeprom, sizeof m_lastPersisted);
    m_structVersion = header_of(chosen).structVersion;
    m_generation = header_of(chosen).generation;

    if (decision.repair_eeprom == kYes && !writeEepromVerified(chosen.data())) {
        ::syslog(LOG_ERR, "[CPersistentData] readData: EEPROM repair write/verify FAILED");
    }
    if (decision.repair_file == kYes && !writeFSBackup(chosen.data())) {
        ::syslog(LOG_ERR, "[CPersistentData] readData: backup file repair write FAILED");
    }

    const std::string model = text_of(device_settings_eeprom.modelName);
    ::syslog(LOG_INFO, "%s", "CPersistentData::readData");
    ::syslog(LOG_INFO, "%s", model.c_str());
    uint8_t& devices = device_settings_eeprom.numDevices;
    if (devices == 0 || devices > kMaxDevices) {
        devices = 1;
    }
    return findModel(model.c_str());
}

void CPersistentData::writeData(bool forceEeprom, bool forceFile)
{
    if (!forceEeprom && !forceFile) {
        return;
    }
    if (std::memcmp(&device_settings_eeprom, &m_lastPersisted, sizeof m_lastPersisted) == 0) {
        ::syslog(LOG_INFO, "CPersistentData::writeData() no changes detected, skipping write");
        return;
    }
    ++m_generation;
    m_structVersion = CURRENT_STRUCT_VERSION;
    BlobBytes blob;
    buildBlob(blob.data(), &device_settings_eeprom, m_structVersion, m_generation);
    if (forceEeprom) {
        if (writeEepromVerified(blob.data())) {
            std::memcpy(&m_lastPersisted, &device_settings_eeprom, sizeof m_lastPersisted);
        } else {
            ::syslog(LOG_ERR, "CPersistentData::writeData() EEPROM write/verify FAILED - ");
        }
    }
    if (forceFile && !writeFSBackup(blob.data())) {
        ::syslog(LOG_ERR, "CPersistentData::writeData() backup file write FAILED");
    }
}

bool CPersistentData::writeEepromVerified(const uint8_t* blob)
{
    BlobBytes read_back = {};
    return writeEeprom(blob) && readEeprom(read_back.data()) &&
           std::memcmp(read_back.data(), blob, read_back.size()) == 0;
}

void CPersistentData::setFactoryDefault(const sDevDefaults_t* devDefaults, const optEntry_t* optTable,
                                        size_t tblSize)
{
    if (devDefaults == nullptr || optTable == nullptr || tblSize == 0) {
        ::syslog(LOG_ERR, "%s invalid parameters: no defaults", __func__);
        return;
    }
    unsigned options = kFactoryFrequencyCode;
    for (const optEntry_t* row = optTable + 1; row != optTable + tblSize; ++row) {
        if (row->bitNum != 0 && row->bitStart < 16) {
            options |= unsigned{row->defaults} << row->bitStart;
        }
    }

    const auto given = [](const char* text) { return text != nullptr ? text : ""; };
    char host_name[100];
    std::snprintf(host_name, sizeof host_name, "%s-%s", given(devDefaults->model),
                  given(devDefaults->serial));

    EEPROM_DEVICE_SETTINGS& settings = device_settings_eeprom;
    std::memset(&settings, 0, sizeof settings);
    settings.options = static_cast<uint16_t>(options);
    put_text(settings.modelName, given(devDefaults->model));
    put_text(settings.description, given(devDefaults->company));
    put_text(settings.serialNum, given(devDefaults->serial));
    settings.hardwareVersion = given(devDefaults->hw_ver)[0];
    put_text(settings.calibrationDate, "271020");
    put_text(settings.fwVersion, "01.0.001");
    put_text(settings.scpiRevision, "01.0.00");
    put_text(settings.pldVersion, "A-1");
    settings.numDevices = 1;
    settings.dhcpEnabled = 1;
    put_text(settings.hostName, host_name);
    put_text(settings.fixIp, "192.168.0.100");
    put_text(settings.fixMask, "255.255.255.0");
    put_text(settings.mac, "b8:27:eb:4f:3b:7d");
    put_text(settings.fixGw, "10.0.0.138"); // outside the subnet, as delivered
    put_text(settings.dns1, "8.8.8.8");
    put_text(settings.dns2, "1.1.1.1");
    put_text(settings.scpiPort, "5025");
    settings.maxCwFreq = 20'000'000'000;
    settings.minCwFreq = 50'000;
    settings.defCwFreq = 1'000'000'000;
    settings.maxCwPow = 15;
    settings.minCwPow = -30;
    settings.defCwPow = 5;
    settings.bootDBConfig = 0;
}

} // namespace HaldeElec::Orvan
