#include "orvan_sdk/lxi/PersistentData.h"

#include <cstring>

namespace HaldeElec::Orvan {

bool CPersistentData::loadSettings()
{
    uint8_t eeprom[TOTAL_BLOB_SIZE] = {};
    uint8_t file[TOTAL_BLOB_SIZE] = {};
    const DataState eeprom_state = readEeprom(eeprom) ? classify(eeprom) : INVALID;
    const DataState file_state = readFSBackup(file) ? classify(file) : INVALID;
    if (eeprom_state == INVALID && file_state == INVALID)
        return false;

    const uint8_t* const chosen = file_state > eeprom_state ? file : eeprom;
    std::memcpy(&device_settings_eeprom, chosen, sizeof device_settings_eeprom);
    std::memcpy(&m_lastPersisted, chosen, sizeof m_lastPersisted);
    SigningHeader header;
    std::memcpy(&header, chosen + SIGNING_HEADER_OFFSET, sizeof header);
    m_structVersion = header.structVersion;
    m_generation = header.generation;
    return true;
}

} // namespace HaldeElec::Orvan
