/**
 * The abstract device: the one object through which the rest of the library reaches the controller's hardware
 * and its identity.
 */
#ifndef ORVAN_SDK_I_ORVAN_DEVICE_MANAGER_H
#define ORVAN_SDK_I_ORVAN_DEVICE_MANAGER_H

#include <cstddef>
#include <cstdint>

#include "orvan_sdk/device_records.h"
#include "orvan_sdk/orvan_api.h"

class BITManager;

namespace HaldeElec::Orvan {

class CPersistentData;
class CUdpServer;
class IDeviceConnectionHandler;
struct DevicePlatform;
struct StartHooks;
struct optEntry_t;

ORVAN_API extern const sDevArch_t g_portableModelsTable[];
ORVAN_API extern const sDevArch_t g_benchtopModelsTable[];
ORVAN_API extern const sDevArch_t g_ksr7000ModelsTable[];

/** Result of a failed operation of IOrvanDeviceManager; 0 is success. */
inline constexpr int ERR_FAILED = -1;

/**
 * Base of the three platforms. A derived constructor runs the whole start-up on its caller's thread, and the
 * object lives until the service process deletes it; it is not restartable.
 *
 * There is no lock: getters read the settings record on SCPI, UDP and monitor threads. Every operation
 * on settings returns ERR_FAILED, and does nothing, while there is no record.
 *
 * Texts are copied strncpy style: at most the given limit, padded with zeros when shorter, with no
 * terminator when as long or longer. An output buffer has room for the limit.
 */
class ORVAN_API IOrvanDeviceManager {
public:
    enum OnOff { Off = 0, On = 1 };
    enum TriggerSource { External = 0, Bus = 1, Timer = 2, SPI = 3 };

    virtual ~IOrvanDeviceManager() = default;
    IOrvanDeviceManager(const IOrvanDeviceManager&) = delete;
    IOrvanDeviceManager& operator=(const IOrvanDeviceManager&) = delete;

    /** True only if the constructor ran to its end: the only report of success. */
    virtual bool Initialized() = 0;
    /** Always false: nothing sets it. */
    virtual bool Connected() = 0;
    virtual bool InitHW() = 0;

    /** Channel of the connection handler; see IDeviceConnectionHandler::SetCommChannel. @return 0 */
    virtual int SetSelectChannel(uint32_t value);
    virtual int GetSelectChannel(uint32_t& value);

    /** Routing. In the base these do nothing, leave their argument alone and return 0. */
    virtual int SetTriggerCouple(int modulesNo, uint8_t coupling);
    virtual int SetTriggerSource(TriggerSource value);
    virtual int GetTriggerSource(TriggerSource& value);
    virtual int SetTriggerInpImp(OnOff value);
    virtual int GetTriggerInpImp(OnOff& value);
    virtual int SetRFOutput(OnOff value);
    virtual int GetRFOutput(OnOff& value);
    virtual int SetAMModulationSource(OnOff value);
    virtual int SetFMModulationSource(OnOff value);
    virtual int SetPulseModulationSource(OnOff value);
    virtual int GetAMModulationSource(OnOff& value);
    virtual int GetFMModulationSource(OnOff& value);
    virtual int GetPulseModulationSource(OnOff& value);

    /** "Halde Electronics,<model>,<serial>,<firmware>" in 128 bytes, the rest of them zero. */
    virtual int GetIdentification(uint8_t* value);
    /** @param size limit */
    virtual int GetModel(uint8_t* value, size_t size);
    /** Limit 15, although a serial number can have 31. */
    virtual int GetSerial(uint8_t* value);
    /** Limit 31. */
    virtual int GetFirmware(uint8_t* value);
    virtual int GetFpga(uint8_t* value);
    /** @return `device_type` of the settings, or -1 */
    virtual int GetDeviceType();
    /** Writes one character with no terminator. @return 0 */
    virtual int GetHardware(uint8_t* value) = 0;
    /** Copies exactly `size` bytes of the option text, whatever its length. */
    virtual int GetOption(uint8_t* value, size_t size) = 0;
    /** Charge in percent; 0 in the base. @return 0 */
    virtual int GetBatteryCharge(uint16_t& value);

    /**
     * Stores the mode and applies it to the system: 0 the static address of the settings, else DHCP. A script
     * that fails is logged. @return 0 in any case
     */
    virtual int SetDHCP(uint8_t value);
    /** Sets `value` to 0 or 1. */
    virtual int GetDHCP(uint8_t& value);

    /** LAN texts of the record, limit 31. A setter changes only the memory: it neither applies nor stores. */
    virtual int SetIPAddress(uint8_t* value);
    virtual int GetIPAddress(uint8_t* value);
    virtual int SetGateway(uint8_t* value);
    virtual int GetGateway(uint8_t* value);
    virtual int SetHostname(uint8_t* value);
    virtual int GetHostname(uint8_t* value);
    virtual int SetDNS1(uint8_t* value);
    virtual int GetDNS1(uint8_t* value);
    virtual int SetDNS2(uint8_t* value);
    virtual int GetDNS2(uint8_t* value);
    virtual int SetNetMask(uint8_t* value);
    virtual int GetNetMask(uint8_t* value);

    /** The low 16 bits of the number at the start of the record's text; 0 for none. */
    virtual int GetScpiPort(uint16_t* value);
    /** Stores the port and REBOOTS the controller, as it takes effect only at start-up. */
    virtual int SetScpiPort(uint16_t scpi_port);

    /** Vendor and product number, each only where the pointer is not null. */
    virtual int GetHIDParams(uint16_t* vid, uint16_t* pid);

    /** Hands out the option table and its 128 bytes. @return 0; -3 when `*table` was not null or a pointer is
     * null */
    virtual int GetOptionsTable(void** table, size_t* size) = 0;

    /** The model row found at start-up; null for an unknown model. */
    virtual const sDevArch_t* getDeviceArch() const { return m_devArch; }

    /** Power button: calls `handler` on a separate thread at each press. */
    virtual bool SetupPowerButtonIrq(void (*handler)()) = 0;
    virtual void WaitPowerButtonRelease() = 0;

    /** A constant of the class; no pin is read. */
    virtual int detectDevicePin() const = 0;

    /** Starts the keyboard bridge, where the platform has one. */
    virtual void RunKbdServer() = 0;
    /** Registers the platform's built-in tests. */
    virtual int bit_register() = 0;

    /**
     * Degrees of a 16-bit fixed-point reading: bits 15 to 7 whole degrees, bits 6 to 2 the fraction, which
     * the base counts in steps of 1/128 and the portable in steps of 1/32.
     */
    virtual double tempSensorReadConvert(uint32_t value);

    /** Fan mode: 0 AUTO, else FIXED. */
    virtual int GetFanMode() { return fixedPwmFan ? 1 : 0; }
    virtual void SetFanMode(int mode) { fixedPwmFan = mode != 0; }

    /** The bus layer. Setting it hands over no ownership: the derived destructor deletes what its constructor
     *  made. */
    void SetSPIhandler(IDeviceConnectionHandler* handler) { devConnHandler = handler; }
    IDeviceConnectionHandler* GetSPIhandler() { return devConnHandler; }

    /** Run the network script with DHCP, or with the record's address, mask and gateway; without a record the
     *  latter does nothing. A failure is logged. */
    void set_dyn_ip();
    void set_fix_ip();

    int device_type_product = InvalidDevice; /**< a DeviceProductType */
    bool batteryOn = false;                  /**< the option is set and a battery answered at start-up */

protected:
    IOrvanDeviceManager() = default;

    /** Hold the bus of the connection handler, against EEPROM, fan and battery work on other threads. */
    void lock_mutex();
    void unlock_mutex();

    /**
     * The whole start-up: all that a derived constructor does. Without a connection handler or an SPI port it
     * returns early, with a line in the log and no thread started; without an owner of settings, silently.
     *
     * @param log_path log file of OrvanDebug, which is emptied; null for none
     * @param log_mode OrvanDebug::SetLogMode
     * @param hooks    platform-specific steps
     */
    void start(const DevicePlatform& platform, const char* log_path, int log_mode, const StartHooks& hooks);

    /** The last step of a derived destructor: the bus, and then the maintenance server, which waits for one
     * more frame (CUdpServer). */
    void end_bus_and_maintenance();

    /** GetOption and GetOptionsTable, on the platform's table. */
    int copy_options(optEntry_t* table, uint8_t* value, size_t size);
    static int hand_out_options(optEntry_t* options, void** table, size_t* size);

    /** tempSensorReadConvert, with `steps` fraction steps per degree. */
    static double sensor_degrees(uint32_t value, double steps);

    bool fixedPwmFan = false;
    IDeviceConnectionHandler* devConnHandler = nullptr; // owned
    bool initialized = false;
    bool connected = false;
    CPersistentData* pPersistentData = nullptr;
    CUdpServer* pUdpCtrlServer = nullptr; // owned
    const sDevArch_t* m_devArch = nullptr;
    bool m_batteryIsAlive = false;
    const sDevArch_t* m_modelsTable = nullptr;
    BITManager* m_bitManager = nullptr;

private:
    // The steps of the start-up, in order. It ends at the first that returns false.
    bool start_bus(const DevicePlatform& platform);
    void start_hardware();
    bool read_settings(const DevicePlatform& platform);
    uint32_t settings_crc() const; // of the record; 0 without the CRC utility
    void start_modules();
    // Stores the settings if start-up has changed them since `crc_as_read` was computed.
    void finish_settings(const DevicePlatform& platform, uint32_t crc_as_read);
    // A start-up that has reached its maintenance server counts as initialized.
    void start_maintenance();
};

} // namespace HaldeElec::Orvan

#endif
