/**
 * A connection handler without a bus.
 */
#ifndef ORVAN_TESTS_RECORDING_HANDLER_H
#define ORVAN_TESTS_RECORDING_HANDLER_H

#include <map>
#include <string>
#include <vector>

#include "orvan_sdk/IDeviceConnectionHandler.h"

namespace board_test {

/** Records calls and returns what a case sets. */
class RecordingHandler : public HaldeElec::Orvan::IDeviceConnectionHandler {
public:
    int setTrgSrc(uint8_t coupleIdx) override { return answer("source", coupleIdx); }
    int SetRFOutput(int value) override { return answer("rf", value); }
    int setModSrc(uint32_t mod, uint32_t state) override
    {
        return answer("modulation", static_cast<int>(mod * 10 + state));
    }
    int setTrgImp(uint32_t& imp) override
    {
        impedance = imp;
        return answer("impedance", static_cast<int>(imp));
    }
    int getTrgImp(uint32_t& imp) override
    {
        imp = impedance;
        return answer("impedance?", static_cast<int>(imp));
    }
    void enableMUX() override {}
    void disableMUX() override {}

    std::map<uint32_t, int> results; // by channel; 0 if not listed
    uint32_t impedance = 0;
    std::vector<std::string> calls;

private:
    int answer(const char* what, int value)
    {
        calls.push_back(std::to_string(channelNo) + " " + what + " " + std::to_string(value));
        return results[channelNo];
    }
};

} // namespace board_test

#endif
