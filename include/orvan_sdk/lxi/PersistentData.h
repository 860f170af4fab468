/**
 * The instrument's settings: the record, the signed image of it that is stored, and its two stores, the
 * EEPROM and a backup file.
 */
#ifndef ORVAN_SDK_PERSISTENT_DATA_H
#define ORVAN_SDK_PERSISTENT_DATA_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "flash_params.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

class IDeviceConnectionHandler;
struct optEntry_t;
struct sDevArch_t;
struct sDevDefaults_t;

/** Bytes of a text field of the record: a NUL-terminated string, zero-padded. */
inline constexpr size_t kSettingsTextSize = 31;

/**
 * The settings record. It is stored byte for byte as in memory, padding included, so the padding must
 * stay zero: clear and copy it as bytes.
 */
struct EEPROM_DEVICE_SETTINGS {
    uint16_t options;                  /**< bits 0 to 3 frequency code, the rest per platform */
    char modelName[kSettingsTextSize]; /**< must be in the platform's model table, else the record is void */
    char serialNum[kSettingsTextSize];
    char calibrationDate[kSettingsTextSize];
    char hardwareVersion;
    char description[kSettingsTextSize]; /**< manufacturer */
    uint8_t numDevices;                  /**< installed channel modules, 1 to 4 */
    uint8_t dhcpEnabled;                 /**< 0 static address, else DHCP */
    char hostName[kSettingsTextSize];
    char fixIp[kSettingsTextSize]; /**< static address, mask and gateway, dotted */
    char fixMask[kSettingsTextSize];
    char mac[kSettingsTextSize]; /**< colon form */
    char fixGw[kSettingsTextSize];
    char dns1[kSettingsTextSize];
    char dns2[kSettingsTextSize];
    alignas(8) int64_t maxCwFreq; /**< Hz */
    int64_t minCwFreq;
    int64_t defCwFreq;
    int32_t maxCwPow; /**< dBm */
    int32_t minCwPow;
    int32_t defCwPow;
    char scpiPort[kSettingsTextSize]; /**< TCP port, decimal */
    char pldVersion[kSettingsTextSize];
    char fwVersion[kSettingsTextSize]; /**< of this software */
    char scpiRevision[kSettingsTextSize];
    uint8_t device_type; /**< `protocol` of the model */
    uint16_t vendor_id;
    uint16_t product_id;
    char fpgaVersion[kSettingsTextSize];
    uint8_t bootDBConfig; /**< number of the setup recalled at boot, 0 for none */
};
using sEprInfo_t = EEPROM_DEVICE_SETTINGS;

/** Trailer of a signed image; little-endian. */
struct __attribute__((packed)) SigningHeader {
    uint32_t marker;        /**< SIGNING_MARKER */
    uint16_t structVersion; /**< layout of the record */
    uint32_t generation;    /**< counts the writes */
    uint32_t crc32;         /**< over everything before it */
};

/** Selects the layout for a CAT25640, the only one. */
#define BIG_EEPROM

/** The bytes "HESH" in this order. */
inline constexpr uint32_t SIGNING_MARKER = 0x48534548;
inline constexpr uint16_t CURRENT_STRUCT_VERSION = 1;

/** The blob: the record from 0, zeros, the SigningHeader at the end. */
inline constexpr size_t TOTAL_BLOB_SIZE = 1024;
inline constexpr size_t SIGNING_HEADER_OFFSET = TOTAL_BLOB_SIZE - sizeof(SigningHeader);
inline constexpr size_t DATA_REGION_SIZE = SIGNING_HEADER_OFFSET;

inline constexpr uint32_t EEPROM_START_ADDRESS = 0x0000;
/** Start of the calibration area, which is unused. */
inline constexpr uint32_t EEPROM_CALIB_DATA_START_ADDRESS = 0x0400;

/** State of a stored image. */
enum DataState {
    INVALID = 0,      /**< damaged, of an unknown model, or not read */
    LEGACY_VALID = 1, /**< unsigned, with a known model: predates signing */
    VERIFIED = 2,     /**< signed, undamaged, with a known model */
};

/** The network configuration in effect. */
struct sNetCfg_t {
    char addr[32];
    char gw[32];
    char mask[32];
    char mac[32];
    char nic[32];
    bool dhcp;
};

/**
 * Owner of the settings; one object for the process, made by Init and never destroyed.
 *
 * There is no lock: callers edit the live record in place through getSettings(), and readers see whatever it
 * holds. Operations that access the EEPROM change the SPI channel and restore it, and take no lock. During
 * start-up the device holds the bus around them; code that stores a change later (SCPI handlers, the
 * maintenance server) does not.
 */
class ORVAN_API CPersistentData {
public:
    /**
     * Creates the single object, or returns the existing one and ignores the arguments.
     *
     * @param dch         path to the EEPROM, used for the life of the process; null ends the process
     * @param modelsTable the platform's models, ended by a row with a null `model`
     */
    static CPersistentData* Init(IDeviceConnectionHandler* dch, const sDevArch_t* modelsTable);

    /** The single object; null before Init. */
    static CPersistentData* GetInstance() { return m_pPersistentData; }

    CPersistentData(const CPersistentData&) = delete;
    CPersistentData& operator=(const CPersistentData&) = delete;

    /**
     * Decides which store is authoritative, loads the settings from it and repairs the other store. With
     * nothing usable in either, both get the factory settings. Reports the outcome of the EEPROM read to the
     * power-up test "EEPROM test".
     *
     * Called once, before anything else reads the settings. A repair that fails is logged; the settings are
     * still usable. A number of modules outside 1 to 4 is treated as 1, and stored as 1 by the next
     * writeData.
     *
     * @param devDefaults the platform's factory texts. Its serial marks an instrument without a real one;
     *                    when null every serial is real. May be null
     * @param optTable    the platform's options, of `tblSize` rows, for the factory settings. May be null
     * @return the row of the chosen model; null for an unknown model
     */
    const sDevArch_t* readData(const sDevDefaults_t* devDefaults, const optEntry_t* optTable, size_t tblSize);

    /**
     * Stores the live record with the next generation if it differs from what the EEPROM holds. The EEPROM is
     * read back; the change counts as stored only if it matches, otherwise the next call tries again.
     * Failures are logged.
     *
     * The EEPROM is written first: while one copy is being written the other is intact.
     *
     * @param forceEeprom write to the EEPROM
     * @param forceFile   write to the file, even if the EEPROM failed. With neither nothing happens
     */
    void writeData(bool forceEeprom, bool forceFile);

    /** Sets the live record to the factory settings; see readData for the arguments. If one of them is null
     *  or there is no option, the record is left unchanged, which is logged. */
    void setFactoryDefault(const sDevDefaults_t* devDefaults, const optEntry_t* optTable, size_t tblSize);

    /**
     * Fills the identification rows from the record and the network set-up, prints them to standard output,
     * and sets the system's host name. Without a table nothing happens, which is logged. Called once, at
     * the end of start-up: later changes do not appear in the rows.
     */
    void setFlashParams(optEntry_t* optTable, size_t tblSize);

    /** Copies the values in `options` to the `defaults` of the table. */
    void updateOptTable(optEntry_t* optTable, size_t tblSize, uint16_t options) const;

    /**
     * The option text, as "20G,MOD,BAT": the maximum frequency and the words of the options that are on.
     * Updates the table.
     *
     * @return to be read as a C string: a NUL, included in its length, replaces the last comma
     */
    std::string optToString(optEntry_t* optTable, size_t tblSize, uint16_t options) const;

    /** Sets modules, frequency limit, frequency code and numbers of the record to the model's. Null does
     *  nothing. */
    void setDeviceArch(const sDevArch_t* arch);

    /** The frequency code of a maximum in GHz; 0 if there is none. */
    uint8_t Freq2Mask(int freq) const;

    /**
     * Sets the system's host name with a script; failure is logged. The name is passed to the shell
     * UNQUOTED, as in the record. Null changes nothing, which is logged.
     */
    void setHostname(const char* hostname) const;

    /** Stores the version of this software, at most 31 bytes. Null does nothing. */
    void setSwVersion(const char* version);

    /** The row of exactly this model; null if there is none, for a null name or without a table. */
    const sDevArch_t* findModel(const char* model) const;

    /** Copies the GetFieldsSize() bytes of the identification rows. @return true */
    bool operator>>(uint8_t* buffer) const;
    size_t GetFieldsSize() const { return sizeof flash_params; }

    /** The live record. */
    EEPROM_DEVICE_SETTINGS* getSettings() { return &device_settings_eeprom; }
    sNetCfg_t* getNetIfConfig() { return &m_netIfConf; }

    /** SPI channel on which the multiplexer reaches the EEPROM; 0 until set. */
    void setEEPROMch(uint8_t channel) { MUX_EPROM_CHANNEL = channel; }

private:
    friend struct PersistentDataTestPeer;

    CPersistentData(IDeviceConnectionHandler* dch, const sDevArch_t* modelsTable);
    ~CPersistentData() = default;

    // A blob is always TOTAL_BLOB_SIZE bytes.

    // CRC of all but the header's own CRC field; 0, and logged, without the CRC utility.
    uint32_t computeCrc32(const uint8_t* blob) const;
    DataState classify(const uint8_t* blob) const;
    // Takes the record's bytes from `settings`, which may be another blob.
    void buildBlob(uint8_t* blob, const void* settings, uint16_t version, uint32_t generation) const;
    // False only for a serial equal to the default one; without a default every serial is real.
    bool hasRealSerial(const char* serial, const char* defaultSerial) const;

    // The whole blob; the selected channel is restored in any case. Only writeEepromVerified reads back.
    bool readEeprom(uint8_t* blob);
    bool writeEeprom(const uint8_t* blob);
    bool writeEepromVerified(const uint8_t* blob);

    // If the file is short, the rest of `blob` is left unchanged.
    bool readFSBackup(uint8_t* blob);
    bool writeFSBackup(const uint8_t* blob);

    // GHz by 4-bit frequency code; -1: no such code.
    const int maskToFrequency[16] = {-1, -1, -1, 3, -1, -1, 6, -1, 8, -1, -1, -1, 12, 14, 20, 40};
    // Mask of that many low bits.
    const uint16_t bitsToMask[17] = {0x0000, 0x0001, 0x0003, 0x0007, 0x000F, 0x001F, 0x003F, 0x007F, 0x00FF,
                                     0x01FF, 0x03FF, 0x07FF, 0x0FFF, 0x1FFF, 0x3FFF, 0x7FFF, 0xFFFF};
    char flash_params[FP_MAX_LINE][FP_MAX_ENTRY_LEN] = {};
    EEPROM_DEVICE_SETTINGS device_settings_eeprom;
    EEPROM_DEVICE_SETTINGS m_lastPersisted; // as readData chose it, then as last written and read back
    IDeviceConnectionHandler* devConnHandler;
    uint8_t MUX_EPROM_CHANNEL = 0;
    sNetCfg_t m_netIfConf = {};
    uint16_t m_structVersion = 0; // of the blob last loaded or written
    uint32_t m_generation = 0;
    const sDevArch_t* m_modelsTable;

    static CPersistentData* m_pPersistentData;
};

} // namespace HaldeElec::Orvan

#endif
