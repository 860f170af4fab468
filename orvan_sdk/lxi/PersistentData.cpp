#include "orvan_sdk/lxi/PersistentData.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <syslog.h>

#include "crc32_utils.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/device_records.h"
#include "orvan_sdk/eeprom/eeprom_cat25.h"
#include "orvan_sdk/nullEeprom/nullEeprom.h"

// A null connection handler stops the process in every build type.
#undef NDEBUG
#include <cassert>

namespace HaldeElec::Orvan {
namespace {

// The stored format, as laid out on the instrument's little-endian 32-bit processor.
#define ORVAN_AT(field, offset) static_assert(offsetof(EEPROM_DEVICE_SETTINGS, field) == (offset))
ORVAN_AT(options, 0);
ORVAN_AT(modelName, 2);
ORVAN_AT(serialNum, 33);
ORVAN_AT(calibrationDate, 64);
ORVAN_AT(hardwareVersion, 95);
ORVAN_AT(description, 96);
ORVAN_AT(numDevices, 127);
ORVAN_AT(dhcpEnabled, 128);
ORVAN_AT(hostName, 129);
ORVAN_AT(fixIp, 160);
ORVAN_AT(fixMask, 191);
ORVAN_AT(mac, 222);
ORVAN_AT(fixGw, 253);
ORVAN_AT(dns1, 284);
ORVAN_AT(dns2, 315);
ORVAN_AT(maxCwFreq, 352);
ORVAN_AT(minCwFreq, 360);
ORVAN_AT(defCwFreq, 368);
ORVAN_AT(maxCwPow, 376);
ORVAN_AT(minCwPow, 380);
ORVAN_AT(defCwPow, 384);
ORVAN_AT(scpiPort, 388);
ORVAN_AT(pldVersion, 419);
ORVAN_AT(fwVersion, 450);
ORVAN_AT(scpiRevision, 481);
ORVAN_AT(device_type, 512);
ORVAN_AT(vendor_id, 514);
ORVAN_AT(product_id, 516);
ORVAN_AT(fpgaVersion, 518);
ORVAN_AT(bootDBConfig, 549);
#undef ORVAN_AT
static_assert(sizeof(EEPROM_DEVICE_SETTINGS) == 552);
static_assert(sizeof(SigningHeader) == 14 && SIGNING_HEADER_OFFSET == 0x3F2);
static_assert(std::endian::native == std::endian::little, "records are stored as they are in memory");

constexpr size_t kModelOffset = offsetof(EEPROM_DEVICE_SETTINGS, modelName);
constexpr size_t kSignedSize = SIGNING_HEADER_OFFSET + offsetof(SigningHeader, crc32);

SigningHeader header_of(const uint8_t* blob)
{
    SigningHeader header;
    std::memcpy(&header, blob + SIGNING_HEADER_OFFSET, sizeof header);
    return header;
}

void set_header(uint8_t* blob, const SigningHeader& header)
{
    std::memcpy(blob + SIGNING_HEADER_OFFSET, &header, sizeof header);
}

// Selects the EEPROM's channel for its lifetime.
class ChannelScope {
public:
    ChannelScope(IDeviceConnectionHandler& handler, uint32_t channel) : m_handler(handler)
    {
        m_handler.GetCommChannel(m_before);
        m_handler.SetCommChannel(channel);
    }
    ~ChannelScope() { m_handler.SetCommChannel(m_before); }
    ChannelScope(const ChannelScope&) = delete;
    ChannelScope& operator=(const ChannelScope&) = delete;

private:
    IDeviceConnectionHandler& m_handler;
    uint32_t m_before = 0;
};

bool opened(NullEeprom& file, const char* caller)
{
    if (file.init()) {
        return true;
    }
    ::syslog(LOG_ERR, "%s NullEeprom::init() failed", caller);
    return false;
}

} // namespace

CPersistentData* CPersistentData::m_pPersistentData = nullptr;

CPersistentData* CPersistentData::Init(IDeviceConnectionHandler* dch, const sDevArch_t* modelsTable)
{
    if (m_pPersistentData == nullptr) {
        m_pPersistentData = new CPersistentData(dch, modelsTable);
    }
    return m_pPersistentData;
}

CPersistentData::CPersistentData(IDeviceConnectionHandler* dch, const sDevArch_t* modelsTable)
    : devConnHandler(dch), m_modelsTable(modelsTable)
{
    assert(dch != nullptr);
    std::puts("CPersistentData::CPersistentData :: object created");
    std::memset(&device_settings_eeprom, 0, sizeof device_settings_eeprom);
    std::memset(&m_lastPersisted, 0, sizeof m_lastPersisted);
}

bool CPersistentData::operator>>(uint8_t* buffer) const
{
    std::memcpy(buffer, flash_params, GetFieldsSize());
    return true;
}

const sDevArch_t* CPersistentData::findModel(const char* model) const
{
    if (model == nullptr || m_modelsTable == nullptr) {
        return nullptr;
    }
    for (const sDevArch_t* row = m_modelsTable; row->model != nullptr; ++row) {
        if (std::strcmp(row->model, model) == 0) {
            return row;
        }
    }
    return nullptr;
}

uint32_t CPersistentData::computeCrc32(const uint8_t* blob) const
{
    const Crc32Utils* const utils = Crc32Utils::getInstance();
    if (utils == nullptr) {
        ::syslog(LOG_ERR, "%s Crc32Utils unavailable", __func__);
        return 0;
    }
    return utils->crc32_signoff(utils->calculate_crc32(utils->crc32_init(), blob, kSignedSize));
}

void CPersistentData::buildBlob(uint8_t* blob, const void* settings, uint16_t version,
                                uint32_t generation) const
{
    std::memset(blob, 0, TOTAL_BLOB_SIZE);
    std::memcpy(blob, settings, sizeof(EEPROM_DEVICE_SETTINGS));
    SigningHeader header{SIGNING_MARKER, version, generation, 0};
    set_header(blob, header);
    header.crc32 = computeCrc32(blob);
    set_header(blob, header);
}

DataState CPersistentData::classify(const uint8_t* blob) const
{
    const bool known = findModel(reinterpret_cast<const char*>(blob + kModelOffset)) != nullptr;
    const SigningHeader header = header_of(blob);
    if (header.marker == SIGNING_MARKER) {
        return known && header.crc32 == computeCrc32(blob) ? VERIFIED : INVALID;
    }
    return known ? LEGACY_VALID : INVALID;
}

bool CPersistentData::hasRealSerial(const char* serial, const char* defaultSerial) const
{
    return defaultSerial == nullptr || std::strncmp(serial, defaultSerial, kSettingsTextSize) != 0;
}

bool CPersistentData::readEeprom(uint8_t* blob)
{
    const ChannelScope scope(*devConnHandler, MUX_EPROM_CHANNEL);
    EEPROM_CAT25 eeprom(devConnHandler, CAT25640);
    const bool ok = eeprom.readBlock(EEPROM_START_ADDRESS, TOTAL_BLOB_SIZE, blob) != 0;
    ::syslog(LOG_INFO, "[CPersistentData] readEeprom: read %d bytes, %s", static_cast<int>(TOTAL_BLOB_SIZE),
             ok ? "ok" : "FAILED");
    return ok;
}

bool CPersistentData::writeEeprom(const uint8_t* blob)
{
    const ChannelScope scope(*devConnHandler, MUX_EPROM_CHANNEL);
    EEPROM_CAT25 eeprom(devConnHandler, CAT25640);
    return eeprom.writeBlock(EEPROM_START_ADDRESS, TOTAL_BLOB_SIZE, const_cast<uint8_t*>(blob)) != 0;
}

bool CPersistentData::readFSBackup(uint8_t* blob)
{
    NullEeprom file;
    if (!opened(file, __func__)) {
        return false;
    }
    if (file.size() == 0) {
        ::syslog(LOG_INFO, "[CPersistentData] readFSBackup: file empty or missing");
        return false;
    }
    const size_t length = std::min(file.size(), TOTAL_BLOB_SIZE);
    const bool ok = file.read(0, blob, length);
    ::syslog(LOG_INFO, "[CPersistentData] readFSBackup: read %zu bytes, %s", length, ok ? "ok" : "FAILED");
    return ok;
}

bool CPersistentData::writeFSBackup(const uint8_t* blob)
{
    NullEeprom file;
    return opened(file, __func__) && file.write(0, blob, TOTAL_BLOB_SIZE);
}

} // namespace HaldeElec::Orvan
