/**
 * A device without hardware that records the handlers' calls and fails those a test selects.
 */
#ifndef ORVAN_TESTS_SUPPORT_RECORDING_DEVICE_H
#define ORVAN_TESTS_SUPPORT_RECORDING_DEVICE_H

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "orvan_sdk/IOrvanDeviceManager.h"

namespace orvan_test {

/**
 * Each call of an operation adds a line to `calls`: its name and the values passed, separated by spaces. A
 * getter returns the entry of its name in `texts` or `numbers`, even when it fails; without an entry it
 * leaves its argument unchanged.
 */
class RecordingDevice : public HaldeElec::Orvan::IOrvanDeviceManager {
public:
    std::vector<std::string> calls;
    std::set<std::string> refused; /**< names of operations that return ERR_FAILED */
    std::map<std::string, std::string> texts;
    std::map<std::string, int> numbers;
    const HaldeElec::Orvan::sDevArch_t* arch = nullptr;
    std::string option_table;

    /** Returns the calls and clears them. */
    std::vector<std::string> take_calls() { return std::exchange(calls, {}); }

    int SetSelectChannel(uint32_t channel) override { return set("SetSelectChannel", channel); }
    int SetTriggerCouple(int modules, uint8_t coupling) override
    {
        return record("SetTriggerCouple", std::to_string(modules) + " " + std::to_string(coupling));
    }
    int SetTriggerSource(TriggerSource value) override { return set("SetTriggerSource", value); }
    int SetRFOutput(OnOff value) override { return set("SetRFOutput", value); }
    int SetAMModulationSource(OnOff value) override { return set("SetAMModulationSource", value); }
    int SetFMModulationSource(OnOff value) override { return set("SetFMModulationSource", value); }
    int SetPulseModulationSource(OnOff value) override { return set("SetPulseModulationSource", value); }

    int GetModel(uint8_t* value, size_t size) override { return get("GetModel", value, size); }
    int GetSerial(uint8_t* value) override { return get("GetSerial", value); }
    int GetFirmware(uint8_t* value) override { return get("GetFirmware", value); }
    int GetFpga(uint8_t* value) override { return get("GetFpga", value); }
    int GetHardware(uint8_t* value) override { return get("GetHardware", value); }
    int GetOption(uint8_t* value, size_t size) override { return get("GetOption", value, size); }
    int GetBatteryCharge(uint16_t& value) override { return get("GetBatteryCharge", value); }

    int SetDHCP(uint8_t value) override { return set("SetDHCP", value); }
    int GetDHCP(uint8_t& value) override { return get("GetDHCP", value); }
    int SetIPAddress(uint8_t* value) override { return set("SetIPAddress", value); }
    int GetIPAddress(uint8_t* value) override { return get("GetIPAddress", value); }
    int SetGateway(uint8_t* value) override { return set("SetGateway", value); }
    int GetGateway(uint8_t* value) override { return get("GetGateway", value); }
    int SetHostname(uint8_t* value) override { return set("SetHostname", value); }
    int GetHostname(uint8_t* value) override { return get("GetHostname", value); }
    int SetDNS1(uint8_t* value) override { return set("SetDNS1", value); }
    int GetDNS1(uint8_t* value) override { return get("GetDNS1", value); }
    int SetDNS2(uint8_t* value) override { return set("SetDNS2", value); }
    int GetDNS2(uint8_t* value) override { return get("GetDNS2", value); }
    int SetNetMask(uint8_t* value) override { return set("SetNetMask", value); }
    int GetNetMask(uint8_t* value) override { return get("GetNetMask", value); }
    int GetScpiPort(uint16_t* value) override { return get("GetScpiPort", *value); }
    int SetScpiPort(uint16_t port) override { return set("SetScpiPort", port); }

    int GetOptionsTable(void** table, size_t* size) override
    {
        const int result =
            record("GetOptionsTable", *table == nullptr && *size == 0 ? "" : "arguments not clear");
        *table = option_table.data();
        *size = option_table.size();
        return result;
    }
    const HaldeElec::Orvan::sDevArch_t* getDeviceArch() const override { return arch; }
    int GetFanMode() override
    {
        record("GetFanMode", "");
        return numbers["GetFanMode"];
    }
    void SetFanMode(int mode) override { set("SetFanMode", mode); }

    // Not called by any handler.
    bool Initialized() override { return true; }
    bool Connected() override { return false; }
    bool InitHW() override { return true; }
    bool SetupPowerButtonIrq(void (*)()) override { return true; }
    void WaitPowerButtonRelease() override {}
    int detectDevicePin() const override { return 0; }
    void RunKbdServer() override {}
    int bit_register() override { return 0; }

private:
    int record(const std::string& name, const std::string& values)
    {
        calls.push_back(values.empty() ? name : name + " " + values);
        return refused.contains(name) ? HaldeElec::Orvan::ERR_FAILED : 0;
    }
    template <typename Number>
    int set(const std::string& name, Number value)
    {
        return record(name, std::to_string(static_cast<long long>(value)));
    }
    int set(const std::string& name, uint8_t* text)
    {
        return record(name, reinterpret_cast<const char*>(text));
    }
    int get(const std::string& name, uint8_t* text)
    {
        if (const auto found = texts.find(name); found != texts.end()) {
            std::memcpy(text, found->second.data(), found->second.size());
        }
        return record(name, "");
    }
    int get(const std::string& name, uint8_t* text, size_t size)
    {
        get(name, text);
        calls.back() += " " + std::to_string(size);
        return refused.contains(name) ? HaldeElec::Orvan::ERR_FAILED : 0;
    }
    template <typename Number>
    int get(const std::string& name, Number& value)
    {
        if (const auto found = numbers.find(name); found != numbers.end()) {
            value = static_cast<Number>(found->second);
        }
        return record(name, "");
    }
};

} // namespace orvan_test

#endif
