/**
 * The operations of CPersistentData that only its own sources use, for tests of them.
 */
#ifndef ORVAN_TESTS_PERSISTENT_DATA_PEER_H
#define ORVAN_TESTS_PERSISTENT_DATA_PEER_H

#include <array>
#include <memory>

#include "orvan_sdk/lxi/PersistentData.h"

namespace HaldeElec::Orvan {

using Blob = std::array<uint8_t, TOTAL_BLOB_SIZE>;

/** A second object beside the singleton, with access to its private members. */
struct PersistentDataTestPeer {
    PersistentDataTestPeer(IDeviceConnectionHandler& handler, const sDevArch_t* models)
        : data(new CPersistentData(&handler, models))
    {
    }
    ~PersistentDataTestPeer() { delete data; }
    PersistentDataTestPeer(const PersistentDataTestPeer&) = delete;
    PersistentDataTestPeer& operator=(const PersistentDataTestPeer&) = delete;

    uint32_t crc(const Blob& blob) const { return data->computeCrc32(blob.data()); }
    DataState classify(const Blob& blob) const { return data->classify(blob.data()); }
    Blob build(const void* settings, uint16_t version, uint32_t generation) const
    {
        Blob blob;
        blob.fill(0xa5);
        data->buildBlob(blob.data(), settings, version, generation);
        return blob;
    }
    bool has_real_serial(const char* serial, const char* default_serial) const
    {
        return data->hasRealSerial(serial, default_serial);
    }
    bool read_eeprom(Blob& blob) { return data->readEeprom(blob.data()); }
    bool write_eeprom(const Blob& blob) { return data->writeEeprom(blob.data()); }
    bool read_file(Blob& blob) { return data->readFSBackup(blob.data()); }
    bool write_file(const Blob& blob) { return data->writeFSBackup(blob.data()); }

    char (&flash_params())[FP_MAX_LINE][FP_MAX_ENTRY_LEN] { return data->flash_params; }
    uint32_t generation() const { return data->m_generation; }
    uint16_t version() const { return data->m_structVersion; }
    const EEPROM_DEVICE_SETTINGS& last_persisted() const { return data->m_lastPersisted; }
    const int (&frequencies() const)[16] { return data->maskToFrequency; }
    const uint16_t (&masks() const)[17] { return data->bitsToMask; }

    CPersistentData* operator->() { return data; }

    /** The bus of the singleton. */
    static IDeviceConnectionHandler& bus_of_instance()
    {
        return *CPersistentData::m_pPersistentData->devConnHandler;
    }

    /** Destroys the singleton, as a restart of the process would. */
    static void forget_instance()
    {
        delete CPersistentData::m_pPersistentData;
        CPersistentData::m_pPersistentData = nullptr;
    }

    CPersistentData* data;
};

} // namespace HaldeElec::Orvan

#endif
