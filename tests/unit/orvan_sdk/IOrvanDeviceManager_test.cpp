#include <algorithm>
#include <array>
#include <cstring>
#include <ostream>
#include <string>

#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/stand_ins.h"

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

class Handler : public IDeviceConnectionHandler {
public:
    void enableMUX() override {}
    void disableMUX() override {}
};

/** Implements only the pure virtual functions. Requires the stand-ins to construct. */
class Device : public IOrvanDeviceManager {
public:
    explicit Device(const StandIns&) {}

    bool Initialized() override { return initialized; }
    bool Connected() override { return connected; }
    bool InitHW() override { return true; }
    int GetHardware(uint8_t*) override { return 0; }
    int GetOption(uint8_t*, size_t) override { return 0; }
    int GetOptionsTable(void**, size_t*) override { return 0; }
    bool SetupPowerButtonIrq(void (*)()) override { return true; }
    void WaitPowerButtonRelease() override {}
    int detectDevicePin() const override { return 0; }
    void RunKbdServer() override {}
    int bit_register() override { return 0; }

    void set_data(CPersistentData* data) { pPersistentData = data; }
    void set_arch(const sDevArch_t* arch) { m_devArch = arch; }

    bool all_zero() const
    {
        return !batteryOn && !fixedPwmFan && devConnHandler == nullptr && !initialized && !connected &&
               pPersistentData == nullptr && pUdpCtrlServer == nullptr && m_devArch == nullptr &&
               !m_batteryIsAlive && m_modelsTable == nullptr && m_bitManager == nullptr;
    }
};

class BareDevice : public testing::Test {
protected:
    StandIns stand_ins;
    LogCapture logs;
    Handler handler;
    Device device{stand_ins};
};

class DeviceWithSettings : public BareDevice {
protected:
    void SetUp() override
    {
        OutputCapture out(STDOUT_FILENO);
        CPersistentData* const data = CPersistentData::Init(&handler, g_portableModelsTable);
        device.set_data(data);
        settings = data->getSettings();
        std::memset(settings, 0, sizeof *settings);
    }

    static void put(char (&field)[kSettingsTextSize], const std::string& text)
    {
        std::memset(field, 0, sizeof field);
        std::copy_n(text.begin(), std::min(text.size(), sizeof field), field);
    }

    EEPROM_DEVICE_SETTINGS* settings = nullptr;
};

constexpr uint8_t kUntouched = 0xa5;

struct Buffer {
    std::array<uint8_t, 160> bytes;
    Buffer() { bytes.fill(kUntouched); }
    operator uint8_t*() { return bytes.data(); }

    /** Number of bytes written, counted from the first. */
    size_t written() const
    {
        const auto last =
            std::find_if(bytes.rbegin(), bytes.rend(), [](uint8_t byte) { return byte != kUntouched; });
        return static_cast<size_t>(bytes.rend() - last);
    }
    std::string text(size_t length) const
    {
        return {bytes.begin(), bytes.begin() + static_cast<int>(length)};
    }
    std::string c_str() const { return reinterpret_cast<const char*>(bytes.data()); }
};

TEST_F(BareDevice, EveryFieldIsZeroAndTheKindIsInvalid)
{
    EXPECT_EQ(device.device_type_product, InvalidDevice);
    EXPECT_TRUE(device.all_zero());
    EXPECT_EQ(device.getDeviceArch(), nullptr);
    EXPECT_EQ(device.GetSPIhandler(), nullptr);
}

TEST_F(BareDevice, SettingsOperationsFailWithoutARecordAndWriteNothing)
{
    using D = IOrvanDeviceManager;
    Buffer buffer;
    for (auto getter :
         {&D::GetIdentification, &D::GetSerial, &D::GetFirmware, &D::GetFpga, &D::GetIPAddress,
          &D::GetGateway, &D::GetHostname, &D::GetDNS1, &D::GetDNS2, &D::GetNetMask, &D::SetIPAddress,
          &D::SetGateway, &D::SetHostname, &D::SetDNS1, &D::SetDNS2, &D::SetNetMask}) {
        EXPECT_EQ((device.*getter)(buffer), ERR_FAILED);
    }
    EXPECT_EQ(device.GetModel(buffer, 8), ERR_FAILED);
    EXPECT_EQ(buffer.written(), 0u);

    uint8_t dhcp = 7;
    uint16_t port = 7;
    EXPECT_EQ(device.GetDeviceType(), -1);
    EXPECT_EQ(device.GetDHCP(dhcp), ERR_FAILED);
    EXPECT_EQ(device.GetScpiPort(&port), ERR_FAILED);
    EXPECT_EQ(device.GetHIDParams(&port, &port), ERR_FAILED);
    EXPECT_EQ(dhcp, 7);
    EXPECT_EQ(port, 7);
}

TEST_F(BareDevice, WithoutARecordNeitherScriptNorRebootRuns)
{
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(device.SetDHCP(0), ERR_FAILED);
    EXPECT_EQ(device.SetDHCP(1), ERR_FAILED);
    EXPECT_EQ(device.SetScpiPort(5025), ERR_FAILED);
    device.set_fix_ip();
    EXPECT_TRUE(stand_ins.calls().empty());
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_EQ(err.text(), "");
}

TEST_F(BareDevice, TheChannelIsTheHandlersCommChannel)
{
    device.SetSPIhandler(&handler);
    EXPECT_EQ(device.GetSPIhandler(), &handler);
    EXPECT_EQ(device.SetSelectChannel(3), 0);
    uint32_t channel = 0;
    EXPECT_EQ(handler.GetCommChannel(channel), 0);
    EXPECT_EQ(channel, 3u);
    channel = 0;
    EXPECT_EQ(device.GetSelectChannel(channel), 0);
    EXPECT_EQ(channel, 3u);
}

TEST_F(BareDevice, RoutingDoesNothingAndLeavesItsArgumentUnchanged)
{
    using D = IOrvanDeviceManager;
    EXPECT_EQ(device.SetTriggerCouple(4, 4), 0);
    EXPECT_EQ(device.SetTriggerSource(D::Timer), 0);
    for (auto setter : {&D::SetTriggerInpImp, &D::SetRFOutput, &D::SetAMModulationSource,
                        &D::SetFMModulationSource, &D::SetPulseModulationSource}) {
        EXPECT_EQ((device.*setter)(D::On), 0);
    }

    for (const auto before : {D::On, D::Off}) {
        for (auto getter : {&D::GetTriggerInpImp, &D::GetRFOutput, &D::GetAMModulationSource,
                            &D::GetFMModulationSource, &D::GetPulseModulationSource}) {
            D::OnOff value = before;
            EXPECT_EQ((device.*getter)(value), 0);
            EXPECT_EQ(value, before);
        }
    }
    D::TriggerSource source = D::SPI;
    EXPECT_EQ(device.GetTriggerSource(source), 0);
    EXPECT_EQ(source, D::SPI);
}

TEST_F(BareDevice, NumbersOfSwitchAndTriggerSource)
{
    using D = IOrvanDeviceManager;
    EXPECT_EQ(D::Off, 0);
    EXPECT_EQ(D::On, 1);
    EXPECT_EQ(D::External, 0);
    EXPECT_EQ(D::Bus, 1);
    EXPECT_EQ(D::Timer, 2);
    EXPECT_EQ(D::SPI, 3);
}

TEST_F(BareDevice, BatteryChargeIsZero)
{
    uint16_t charge = 55;
    EXPECT_EQ(device.GetBatteryCharge(charge), 0);
    EXPECT_EQ(charge, 0);
}

TEST_F(BareDevice, FanModeIsZeroOrOne)
{
    EXPECT_EQ(device.GetFanMode(), 0);
    for (const int mode : {1, 2, -1, 256}) {
        device.SetFanMode(mode);
        EXPECT_EQ(device.GetFanMode(), 1) << mode;
    }
    device.SetFanMode(0);
    EXPECT_EQ(device.GetFanMode(), 0);
}

TEST_F(BareDevice, TemperatureReadings)
{
    EXPECT_EQ(device.tempSensorReadConvert(0), 0.0);
    EXPECT_EQ(device.tempSensorReadConvert(0x0c80), 25.0);
    EXPECT_EQ(device.tempSensorReadConvert(0x0c90), 25.03125);
    EXPECT_EQ(device.tempSensorReadConvert(0x0c80 | 0x7c), 25.0 + 31 / 128.0);
    EXPECT_EQ(device.tempSensorReadConvert(0x0c83), 25.0) << "the two lowest bits do not count";
    EXPECT_EQ(device.tempSensorReadConvert(0xabcd0c80), 25.0) << "nor do the upper 16";
    EXPECT_EQ(device.tempSensorReadConvert(0xff80), 511.0) << "there is no sign";
}

TEST_F(BareDevice, TheModelRowIsTheOneFoundAtStartUp)
{
    device.set_arch(&g_benchtopModelsTable[3]);
    EXPECT_EQ(device.getDeviceArch(), &g_benchtopModelsTable[3]);
}

TEST_F(BareDevice, IsDeletedThroughTheBase)
{
    static int destroyed = 0;
    struct Counting : Device {
        using Device::Device;
        ~Counting() override { ++destroyed; }
    };
    const IOrvanDeviceManager* const made = new Counting(stand_ins);
    delete made;
    EXPECT_EQ(destroyed, 1);
}

TEST_F(DeviceWithSettings, IdentificationHasNoSpaceAfterACommaAndFills128Bytes)
{
    put(settings->modelName, "OVX3651P");
    put(settings->serialNum, "230042");
    put(settings->fwVersion, "1.19.140");
    put(settings->description, "Somebody else");
    Buffer buffer;
    EXPECT_EQ(device.GetIdentification(buffer), 0);
    const std::string text = "Halde Electronics,OVX3651P,230042,1.19.140";
    EXPECT_EQ(buffer.text(128), text + std::string(128 - text.size(), '\0'));
    EXPECT_EQ(buffer.written(), 128u);
}

TEST_F(DeviceWithSettings, IdentificationOfFullFieldsFitsItsBuffer)
{
    put(settings->modelName, std::string(31, 'm'));
    put(settings->serialNum, std::string(31, 's'));
    put(settings->fwVersion, std::string(31, 'f'));
    Buffer buffer;
    EXPECT_EQ(device.GetIdentification(buffer), 0);
    EXPECT_EQ(buffer.c_str(), "Halde Electronics," + std::string(31, 'm') + "," + std::string(31, 's') + "," +
                                  std::string(31, 'f'));
    EXPECT_EQ(buffer.written(), 128u);
}

TEST_F(DeviceWithSettings, ModelIsNotTerminatedWhenItFillsTheSize)
{
    put(settings->modelName, "OVX3651P");
    Buffer exact;
    EXPECT_EQ(device.GetModel(exact, 8), 0);
    EXPECT_EQ(exact.text(8), "OVX3651P");
    EXPECT_EQ(exact.written(), 8u);

    Buffer cut;
    EXPECT_EQ(device.GetModel(cut, 4), 0);
    EXPECT_EQ(cut.text(4), "OVX3");
    EXPECT_EQ(cut.written(), 4u);

    Buffer roomy;
    EXPECT_EQ(device.GetModel(roomy, 20), 0);
    EXPECT_EQ(roomy.text(20), "OVX3651P" + std::string(12, '\0'));
    EXPECT_EQ(roomy.written(), 20u);

    Buffer none;
    EXPECT_EQ(device.GetModel(none, 0), 0);
    EXPECT_EQ(none.written(), 0u);
}

TEST_F(DeviceWithSettings, ModelWithoutTerminatorEndsWithItsField)
{
    put(settings->modelName, std::string(31, 'm'));
    put(settings->serialNum, "next field");
    Buffer buffer;
    EXPECT_EQ(device.GetModel(buffer, 40), 0);
    EXPECT_EQ(buffer.text(40), std::string(31, 'm') + std::string(9, '\0'));
}

TEST_F(DeviceWithSettings, SerialIsCutTo15CharactersWithNoTerminator)
{
    put(settings->serialNum, "ABCDEFGHIJKLMNOPQRST");
    Buffer buffer;
    EXPECT_EQ(device.GetSerial(buffer), 0);
    EXPECT_EQ(buffer.text(15), "ABCDEFGHIJKLMNO");
    EXPECT_EQ(buffer.written(), 15u);
}

TEST_F(DeviceWithSettings, AShortSerialIsPaddedTo15Bytes)
{
    put(settings->serialNum, "230000");
    Buffer buffer;
    EXPECT_EQ(device.GetSerial(buffer), 0);
    EXPECT_EQ(buffer.text(15), "230000" + std::string(9, '\0'));
    EXPECT_EQ(buffer.written(), 15u);
}

TEST_F(DeviceWithSettings, FirmwareAndFpgaHave31Bytes)
{
    put(settings->fwVersion, "1.19.140");
    put(settings->fpgaVersion, std::string(31, '9'));
    Buffer firmware;
    EXPECT_EQ(device.GetFirmware(firmware), 0);
    EXPECT_EQ(firmware.c_str(), "1.19.140");
    EXPECT_EQ(firmware.written(), 31u);
    Buffer fpga;
    EXPECT_EQ(device.GetFpga(fpga), 0);
    EXPECT_EQ(fpga.text(31), std::string(31, '9'));
    EXPECT_EQ(fpga.written(), 31u);
}

TEST_F(DeviceWithSettings, DeviceTypeIsThatOfTheRecord)
{
    settings->device_type = 200;
    EXPECT_EQ(device.GetDeviceType(), 200);
}

TEST_F(DeviceWithSettings, LanTextsAreCopiedToAndFromTheirFields)
{
    using D = IOrvanDeviceManager;
    const struct {
        int (D::*set)(uint8_t*);
        int (D::*get)(uint8_t*);
        char (EEPROM_DEVICE_SETTINGS::*field)[kSettingsTextSize];
    } rows[] = {
        {&D::SetIPAddress, &D::GetIPAddress, &EEPROM_DEVICE_SETTINGS::fixIp},
        {&D::SetGateway, &D::GetGateway, &EEPROM_DEVICE_SETTINGS::fixGw},
        {&D::SetHostname, &D::GetHostname, &EEPROM_DEVICE_SETTINGS::hostName},
        {&D::SetDNS1, &D::GetDNS1, &EEPROM_DEVICE_SETTINGS::dns1},
        {&D::SetDNS2, &D::GetDNS2, &EEPROM_DEVICE_SETTINGS::dns2},
        {&D::SetNetMask, &D::GetNetMask, &EEPROM_DEVICE_SETTINGS::fixMask},
    };
    for (const auto& row : rows) {
        std::memset(settings, 0, sizeof *settings);
        uint8_t text[] = "10.1.2.3";
        EXPECT_EQ((device.*row.set)(text), 0);

        EEPROM_DEVICE_SETTINGS expected;
        std::memset(&expected, 0, sizeof expected);
        put(expected.*row.field, "10.1.2.3");
        EXPECT_EQ(std::memcmp(settings, &expected, sizeof expected), 0) << "that field and no other";

        Buffer buffer;
        EXPECT_EQ((device.*row.get)(buffer), 0);
        EXPECT_EQ(buffer.text(31), "10.1.2.3" + std::string(23, '\0'));
        EXPECT_EQ(buffer.written(), 31u);
    }
    EXPECT_TRUE(stand_ins.calls().empty()) << "a setter applies nothing";
}

TEST_F(DeviceWithSettings, ALanTextOf31BytesOrMoreIsCutAndHasNoTerminator)
{
    std::string text = std::string(31, 'h') + "cut off";
    EXPECT_EQ(device.SetHostname(reinterpret_cast<uint8_t*>(text.data())), 0);
    EXPECT_EQ(std::string(settings->hostName, 31), std::string(31, 'h'));
    EXPECT_EQ(settings->fixIp[0], '\0');
    Buffer buffer;
    EXPECT_EQ(device.GetHostname(buffer), 0);
    EXPECT_EQ(buffer.text(31), std::string(31, 'h'));
    EXPECT_EQ(buffer.written(), 31u);
}

TEST_F(DeviceWithSettings, AShorterLanTextClearsTheRestOfTheOldOne)
{
    put(settings->dns1, "192.168.100.200");
    uint8_t text[] = "1.1.1.1";
    EXPECT_EQ(device.SetDNS1(text), 0);
    EXPECT_EQ(std::string(settings->dns1, 31), "1.1.1.1" + std::string(24, '\0'));
}

TEST_F(DeviceWithSettings, DhcpRunsTheScriptWithDynamic)
{
    EXPECT_EQ(device.SetDHCP(1), 0);
    EXPECT_EQ(settings->dhcpEnabled, 1);
    EXPECT_EQ(stand_ins.calls(),
              (std::vector<std::string>{"sudo /usr/local/bin/he_orvan_network_config.sh dynamic"}));
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(DeviceWithSettings, AnyNonzeroDhcpValueIsDynamicAndKept)
{
    EXPECT_EQ(device.SetDHCP(200), 0);
    EXPECT_EQ(settings->dhcpEnabled, 200);
    EXPECT_EQ(stand_ins.calls().size(), 1u);
    uint8_t value = 0;
    EXPECT_EQ(device.GetDHCP(value), 0);
    EXPECT_EQ(value, 1);
}

TEST_F(DeviceWithSettings, DhcpZeroRunsTheScriptWithTheStaticAddress)
{
    put(settings->fixIp, "10.0.0.7");
    put(settings->fixMask, "255.255.0.0");
    put(settings->fixGw, "10.0.0.1");
    settings->dhcpEnabled = 1;
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(device.SetDHCP(0), 0);
    const std::string line =
        "sudo /usr/local/bin/he_orvan_network_config.sh static -a 10.0.0.7 -n 255.255.0.0 -g 10.0.0.1";
    EXPECT_EQ(stand_ins.calls(), (std::vector<std::string>{line}));
    EXPECT_EQ(err.text(), "[INFO]: Running net config: " + line + "\n");
    EXPECT_TRUE(logs.lines().empty());
    uint8_t value = 7;
    EXPECT_EQ(device.GetDHCP(value), 0);
    EXPECT_EQ(value, 0);
}

TEST_F(DeviceWithSettings, FullAddressFieldsFitTheCommandLine)
{
    put(settings->fixIp, std::string(31, '1'));
    put(settings->fixMask, std::string(31, '2'));
    put(settings->fixGw, std::string(31, '3'));
    OutputCapture err(STDERR_FILENO);
    device.set_fix_ip();
    EXPECT_EQ(stand_ins.calls(),
              (std::vector<std::string>{"sudo /usr/local/bin/he_orvan_network_config.sh static -a " +
                                        std::string(31, '1') + " -n " + std::string(31, '2') + " -g " +
                                        std::string(31, '3')}));
}

TEST_F(DeviceWithSettings, AFailedNetworkScriptIsLoggedAndNotReported)
{
    stand_ins.exit_with(3);
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(device.SetDHCP(1), 0);
    EXPECT_EQ(device.SetDHCP(0), 0);
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "Failed to apply Dynamic IP configuration."},
                                                  {LOG_ERR, "Failed to apply static IP configuration."}}));
}

TEST_F(DeviceWithSettings, ScpiPortIsTheNumberOfItsText)
{
    const struct {
        std::string text;
        uint16_t port;
    } rows[] = {{"5025", 5025}, {"", 0}, {"abc", 0}, {" 80x", 80}, {"65535", 65535}, {"65537", 1}};
    for (const auto& row : rows) {
        put(settings->scpiPort, row.text);
        uint16_t port = 7;
        EXPECT_EQ(device.GetScpiPort(&port), 0);
        EXPECT_EQ(port, row.port) << row.text;
    }
}

TEST_F(DeviceWithSettings, AScpiPortTextWithoutTerminatorEndsWithItsField)
{
    put(settings->scpiPort, std::string(26, '0') + "12345");
    put(settings->pldVersion, "9");
    uint16_t port = 0;
    EXPECT_EQ(device.GetScpiPort(&port), 0);
    EXPECT_EQ(port, 12345);
}

TEST_F(DeviceWithSettings, HidParametersAreStoredWhereThePointersAreNotNull)
{
    settings->vendor_id = 0x168c;
    settings->product_id = 0x3651;
    uint16_t vid = 0;
    uint16_t pid = 0;
    EXPECT_EQ(device.GetHIDParams(&vid, &pid), 0);
    EXPECT_EQ(vid, 0x168c);
    EXPECT_EQ(pid, 0x3651);
    vid = pid = 0;
    EXPECT_EQ(device.GetHIDParams(&vid, nullptr), 0);
    EXPECT_EQ(vid, 0x168c);
    EXPECT_EQ(device.GetHIDParams(nullptr, &pid), 0);
    EXPECT_EQ(pid, 0x3651);
    EXPECT_EQ(device.GetHIDParams(nullptr, nullptr), 0);
}

} // namespace
