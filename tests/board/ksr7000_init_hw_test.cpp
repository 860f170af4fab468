// Set-up of the third platform's hardware.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <span>
#include <thread>

#include "ksr7000_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using sim_board::expect_trace;
using sim_board::Mcp23017;

namespace {

class Ksr7000InitHw : public Ksr7000Test {
protected:
    std::vector<std::string> accesses()
    {
        std::vector<std::string> lines = board->trace().lines_with({"i2c "});
        board->trace().clear();
        return lines;
    }
};

TEST_F(Ksr7000InitHw, MakesTheseAccesses)
{
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(expect_trace(trace(), R"(
        pins setup
        pin 26 output
        pin 26 = 0
        delay 20000
        pin 26 = 1
        i2c 0x20 open
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x04
        i2c 0x20 [0x00] = 0x9f
        i2c 0x20 [0x01] = 0x00
        i2c 0x20 [0x12] -> 0x00
        i2c 0x20 [0x12] = 0x00
        i2c 0x20 [0x13] -> 0x00
        i2c 0x20 [0x13] = 0x04
        i2c 0x20 open
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x04
        i2c 0x20 [0x00] = 0x00
        i2c 0x20 [0x01] = 0xff
        i2c 0x20 [0x07] -> 0x00
        i2c 0x20 [0x07] = 0x00
        i2c 0x20 [0x09] -> 0x00
        i2c 0x20 [0x09] = 0x40
        i2c 0x20 [0x05] -> 0x00
        i2c 0x20 [0x05] = 0x40
        i2c 0x20 [0x12] -> 0x00
        i2c 0x20 [0x12] = 0x04
        i2c 0x20 [0x13] -> 0x00
        i2c 0x20 [0x13] = 0x00
        i2c 0x24 open
        i2c 0x24 [0x0a] = 0x04
        i2c 0x24 [0x0b] = 0x04
        i2c 0x24 [0x14] = 0x00
        i2c 0x24 [0x15] = 0x00
        i2c 0x24 [0x00] = 0x7f
        i2c 0x24 [0x01] = 0xff
        delay 2000000
        pin 27 = 0
        i2c 0x09 open
        i2c 0x09 [0x12] -> 0xe041
        i2c 0x09 [0x12] = 0x0041
        i2c 0x09 [0x3f] = 0x7f00
        i2c 0x09 [0x31] = 0x0237
        i2c 0x09 [0x14] = 0x0800
        i2c 0x09 [0x3e] = 0x3f00
        i2c 0x0b open
        i2c 0x0b [0x03] = 0x6081
    )"));
    EXPECT_TRUE(inside().battery_is_alive());
    EXPECT_TRUE(logs.lines().empty());
}

/** Acknowledges every access and reads as ones. */
class Ones : public sim_board::I2cDevice {
public:
    bool write(std::span<const uint8_t>) override { return true; }
    bool read(std::span<uint8_t> bytes) override
    {
        std::fill(bytes.begin(), bytes.end(), uint8_t{0xff});
        return true;
    }
};

TEST_F(Ksr7000InitHw, ClearsTheseBitsOfWhatWasSet)
{
    for (const uint8_t chip : {kPorts, kCharger}) {
        board->i2c().attach(chip, std::make_shared<Ones>());
    }
    EXPECT_TRUE(device->InitHW());
    std::vector<std::string> lines = accesses();
    std::erase_if(lines, [](const std::string& line) {
        return line.find(" -> 0xff") == std::string::npos && line.find("open") == std::string::npos &&
               !line.starts_with("i2c 0x20 [0x1") && !line.starts_with("i2c 0x20 [0x07]") &&
               !line.starts_with("i2c 0x09 [0x12]");
    });
    EXPECT_TRUE(expect_trace(lines, R"(
        i2c 0x20 open
        i2c 0x20 [0x12] -> 0xff
        i2c 0x20 [0x12] = 0xff
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0x87
        i2c 0x20 open
        i2c 0x20 [0x07] -> 0xff
        i2c 0x20 [0x07] = 0xbf
        i2c 0x20 [0x09] -> 0xff
        i2c 0x20 [0x05] -> 0xff
        i2c 0x20 [0x12] -> 0xff
        i2c 0x20 [0x12] = 0xff
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0xff
        i2c 0x24 open
        i2c 0x09 open
        i2c 0x09 [0x12] -> 0xffff
        i2c 0x09 [0x12] = 0x1fff
        i2c 0x0b open
    )"));
}

TEST_F(Ksr7000InitHw, MissingChipsAreSkipped)
{
    for (const uint8_t chip : {kPorts, kSupply, kCharger, kBattery}) {
        fault(chip)->absent(true);
    }
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(expect_trace(trace(), R"(
        pins setup
        pin 26 output
        pin 26 = 0
        delay 20000
        pin 26 = 1
        i2c 0x20 open -> ENXIO
        i2c 0x20 open -> ENXIO
        i2c 0x24 open -> ENXIO
        i2c 0x09 open -> ENXIO
        i2c 0x0b open -> ENXIO
    )"));
    EXPECT_FALSE(inside().battery_is_alive());
    EXPECT_TRUE(logs.lines().empty());
}

/** A start in which one chip stops acknowledging after this many transfers. */
struct Failure {
    uint8_t address;
    size_t transfers;
    const char* message; // empty: none
};

class Ksr7000InitHwFailure : public Ksr7000InitHw, public testing::WithParamInterface<Failure> {};
constexpr char kPortsFailed[] = "InitHW: GPIO expander 0x20 initialization failed";
constexpr char kButtonFailed[] = "InitHW: GPIO expander 0x21 initialization failed";
constexpr char kSupplyFailed[] = "InitHW: GPIO expander 0x22 initialization failed";
constexpr char kChargerFailed[] = "InitHW: battery controller setup failed";
// 0x20: 10 transfers for its first handle (4 writes, 2 changes of 3), 19 for the second (4 writes, 5 changes
// of 3). 0x24: 6 writes. 0x09: a change of 3 and 4 writes.
INSTANTIATE_TEST_SUITE_P(Transfers, Ksr7000InitHwFailure,
                         testing::Values(Failure{0x20, 0, kPortsFailed}, Failure{0x20, 9, kPortsFailed},
                                         Failure{0x20, 10, kButtonFailed}, Failure{0x20, 28, kButtonFailed},
                                         Failure{0x20, 29, ""}, Failure{0x24, 0, kSupplyFailed},
                                         Failure{0x24, 5, kSupplyFailed}, Failure{0x24, 6, ""},
                                         Failure{0x09, 0, kChargerFailed}, Failure{0x09, 6, kChargerFailed},
                                         Failure{0x09, 7, ""}));

TEST_P(Ksr7000InitHwFailure, EndsTheSetUpAfterThePartThatFailed)
{
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(inside().battery_is_alive());
    trace();

    const auto& [address, transfers, message] = GetParam();
    fault(address)->refuse_after(transfers);
    const bool well = std::string(message).empty();
    EXPECT_EQ(device->InitHW(), well);
    EXPECT_EQ(logs.lines(), well ? std::vector<LogLine>{} : (std::vector<LogLine>{{LOG_ERR, message}}));
    EXPECT_EQ(inside().battery_is_alive(), well) << "nothing is left of the former set-up";
    bool reached = true;
    for (const uint8_t chip : {kPorts, kSupply, kCharger, kBattery}) {
        char open[32];
        std::snprintf(open, sizeof open, "i2c 0x%02x open", unsigned{chip});
        EXPECT_EQ(!board->trace().lines_with({open}).empty(), reached) << open;
        reached = reached && (well || chip != address);
    }
}

TEST_F(Ksr7000InitHw, FailedPartIsCompletedAndTheNextOneNotStarted)
{
    const auto chip = fault(kPorts);
    // Reads show bits that nothing sets; then the read of port B fails, and its change uses the value
    // read from port A.
    chip->flip_read_bits(0, 0xa0);
    chip->refuse_after(7);
    EXPECT_FALSE(device->InitHW());
    EXPECT_TRUE(expect_trace(accesses(), R"(
        i2c 0x20 open
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x04
        i2c 0x20 [0x00] = 0x9f
        i2c 0x20 [0x01] = 0x00
        i2c 0x20 [0x12] -> 0xa0
        i2c 0x20 [0x12] = 0xa0
        i2c 0x20 [0x13] -> EREMOTEIO
        i2c 0x20 [0x13] = 0x84 -> EREMOTEIO
    )"));
}

TEST_F(Ksr7000InitHw, FailedSupplyExpanderIsNotWaitedFor)
{
    fault(kSupply)->refuse_after(5);
    EXPECT_FALSE(device->InitHW());
    EXPECT_TRUE(board->trace().lines_with({"delay 2000000", "pin 27"}).empty());
}

TEST_F(Ksr7000InitHw, UnreadableChargerRegisterCountsAsZero)
{
    fault(kCharger)->refuse_after(0);
    EXPECT_FALSE(device->InitHW());
    EXPECT_TRUE(expect_trace(board->trace().lines_with({"i2c 0x09"}), R"(
        i2c 0x09 open
        i2c 0x09 [0x12] -> EREMOTEIO
        i2c 0x09 [0x12] = 0x0000 -> EREMOTEIO
        i2c 0x09 [0x3f] = 0x7f00 -> EREMOTEIO
        i2c 0x09 [0x31] = 0x0237 -> EREMOTEIO
        i2c 0x09 [0x14] = 0x0800 -> EREMOTEIO
        i2c 0x09 [0x3e] = 0x3f00 -> EREMOTEIO
    )"));
}

TEST_F(Ksr7000InitHw, BatteryThatDoesNotReplyIsNoFailure)
{
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(inside().battery_is_alive());
    fault(kBattery)->not_acknowledging(true);
    EXPECT_TRUE(device->InitHW());
    EXPECT_FALSE(inside().battery_is_alive());
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "InitHW battery doesn't reply"}}));
}

TEST_F(Ksr7000InitHw, LeavesThePowerButtonArmed)
{
    ASSERT_TRUE(device->InitHW());
    Mcp23017& chip = board->expander(kPorts);
    EXPECT_EQ(chip.reg(Mcp23017::kGpinten, Mcp23017::kB), 0x40);
    EXPECT_EQ(chip.reg(Mcp23017::kDefval, Mcp23017::kB), 0x00);
    EXPECT_EQ(chip.reg(Mcp23017::kIntcon, Mcp23017::kB), 0x40);
    EXPECT_EQ(chip.reg(Mcp23017::kIodir, Mcp23017::kA), 0x00);
    EXPECT_EQ(chip.reg(Mcp23017::kIodir, Mcp23017::kB), 0xff);
    EXPECT_EQ(board->gpio().level(2), 0);
    board->power_button(true);
    EXPECT_EQ(board->gpio().level(2), 1);
}

std::atomic<int> g_presses;

TEST_F(Ksr7000InitHw, PowerButtonCallsItsHandlerAndItsReleaseIsAwaited)
{
    ASSERT_TRUE(device->InitHW());
    trace();
    g_presses = 0;
    EXPECT_TRUE(device->SetupPowerButtonIrq([] { ++g_presses; }));
    EXPECT_TRUE(expect_trace(trace(), "pin 2 isr rising"));
    board->power_button(true);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_presses, 1);

    std::thread waiter([this] { device->WaitPowerButtonRelease(); });
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    board->power_button(false);
    board->clock().advance(50'000);
    waiter.join();
    EXPECT_TRUE(expect_trace(trace(), R"(
        i2c 0x20 open
        i2c 0x20 [0x11] -> 0x40
        i2c 0x20 [0x13] -> 0x40
        i2c 0x20 [0x13] -> 0x40
        delay 50000
        i2c 0x20 [0x13] -> 0x00
    )"));
    EXPECT_TRUE(logs.lines().empty());

    // Each read of a held button ends its interrupt and starts the next.
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    const int looked_at = g_presses;
    board->power_button(true);
    ASSERT_TRUE(board->gpio().wait_for_handlers());
    EXPECT_EQ(g_presses, looked_at + 1);
}

TEST_F(Ksr7000InitHw, PowerButtonWithoutItsInterruptIsLogged)
{
    board->gpio().refuse_isr(true);
    EXPECT_FALSE(device->SetupPowerButtonIrq([] {}));
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{
                                {LOG_USER | LOG_ERR, "SetupPowerButtonIrq: unable to setup ISR on pin 2"}}));
}

} // namespace
