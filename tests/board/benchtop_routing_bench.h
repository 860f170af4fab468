/**
 * A benchtop's connection handler on a simulated board whose expander pins are all outputs, and the traces of
 * read-modify-write accesses to them.
 */
#ifndef ORVAN_TESTS_BENCHTOP_ROUTING_BENCH_H
#define ORVAN_TESTS_BENCHTOP_ROUTING_BENCH_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "orvan_sdk/Benchtop/OrvanConnBenchtop.h"
#include "orvan_sdk/OrvanDebug.h"
#include "support/log_capture.h"

namespace board_test {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kPortA = 0x12;
constexpr uint8_t kPortB = 0x13;

template <typename... Values>
std::string text_of(const char* format, Values... values)
{
    char text[128];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

/** The expected accesses of a call, tracking the values they leave in the ports. */
class ExpectedAccesses {
public:
    void open(unsigned address) { add(text_of("i2c 0x%02x open", address)); }
    void wait(unsigned us) { add(text_of("delay %u", us)); }
    void change(unsigned address, unsigned reg, unsigned clear, unsigned set)
    {
        unsigned& port = ports[{address, reg}];
        add(text_of("i2c 0x%02x [0x%02x] -> 0x%02x", address, reg, port));
        port = (port & ~clear) | set;
        add(text_of("i2c 0x%02x [0x%02x] = 0x%02x", address, reg, port));
    }
    void clear(unsigned address, unsigned reg, unsigned mask) { change(address, reg, mask, 0); }
    void set(unsigned address, unsigned reg, unsigned mask) { change(address, reg, 0, mask); }
    /** Returns the text so far and clears it. */
    std::string take() { return std::exchange(m_text, {}); }

    std::map<std::pair<unsigned, unsigned>, unsigned> ports;

private:
    void add(const std::string& line) { m_text += line + '\n'; }

    std::string m_text;
};

class BenchtopRouting : public testing::Test {
protected:
    /** Declared before the handler, which logs on construction. */
    static void SetUpTestSuite()
    {
        HaldeElec::OrvanDebug::SetLogMode(2);
        HaldeElec::OrvanDebug::RegisterCallback([](const char* line) { s_debug.emplace_back(line); });
    }
    void SetUp() override
    {
        for (const uint8_t address : Bytes{0x20, 0x24}) {
            for (const uint8_t direction : Bytes{0x00, 0x01}) {
                board->expander(address).write(std::array<uint8_t, 2>{direction, 0x00});
            }
            put(address, kPortA, 0x5a);
            put(address, kPortB, 0xa5);
        }
    }

    void put(uint8_t address, uint8_t port, uint8_t value)
    {
        board->expander(address).write(std::array<uint8_t, 2>{port, value});
        expected.ports[{address, port}] = value;
    }
    void select(uint32_t channel) { handler.SetCommChannel(channel); }
    std::vector<std::string> trace() { return board->trace().take(); }
    int set_impedance(uint32_t value) { return handler.setTrgImp(value); }

    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    sim_board::SelfAdvancing self{board->clock()};
    HaldeElec::Orvan::OrvanConnBenchtop handler;
    ExpectedAccesses expected;
    orvan_test::LogCapture logs;
    static inline std::vector<std::string> s_debug;
};

/** The same, for every number of installed channels. */
class BenchtopInstalled : public BenchtopRouting, public testing::WithParamInterface<int> {
protected:
    void SetUp() override
    {
        BenchtopRouting::SetUp();
        handler.SetNumDevices(GetParam());
    }
    size_t row() const { return GetParam() == 1 ? 0 : GetParam() == 2 ? 1 : 2; }
};

} // namespace board_test

#endif
