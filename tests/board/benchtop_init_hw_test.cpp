#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_i2c_device.h"
#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"
#include "support/log_capture.h"
#include "unit/i2c_keyboard/refuses_one.h"

using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using sim_board::expect_trace;
using sim_board::Mcp23017;

namespace {

class BenchtopInitHw : public testing::Test {
protected:
    void SetUp() override
    {
        board->spi().set_node_present("/dev/spidev0.1", false); // it ended at its bus
        device.emplace("/dev/null", 4);
        logs.clear();
        board->trace().clear();
    }
    std::vector<std::string> trace() { return board->trace().take(); }
    auto fault(uint8_t address) { return sim_board::insert_fault(board->i2c(), address); }
    std::vector<std::string> accesses()
    {
        std::vector<std::string> lines = board->trace().lines_with({"i2c "});
        board->trace().clear();
        return lines;
    }

    sim_board::InstalledBoard board{sim_board::kBenchtopWiring};
    sim_board::SelfAdvancing self{board->clock()};
    orvan_test::LogCapture logs;
    std::optional<OrvanBenchtopDevice> device;
};

TEST_F(BenchtopInitHw, MakesTheseAccesses)
{
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(expect_trace(trace(), R"(
        pins setup
        pin 26 output
        pin 22 output
        pin 23 output
        pin 11 output
        pin 11 = 0
        pin 7 = 0
        pin 21 = 0
        pin 6 = 0
        delay 50000
        pin 7 = 1
        pin 21 = 0
        pin 6 = 0
        delay 50000
        pin 7 = 0
        pin 21 = 1
        pin 6 = 0
        delay 50000
        pin 7 = 1
        pin 21 = 1
        pin 6 = 0
        delay 50000
        pin 11 = 1
        pin 26 = 0
        delay 20000
        pin 26 = 1
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x04
        i2c 0x20 [0x00] = 0x00
        i2c 0x20 [0x01] = 0x00
        i2c 0x20 [0x12] -> 0x00
        i2c 0x20 [0x12] = 0x00
        i2c 0x20 [0x13] -> 0x00
        i2c 0x20 [0x13] = 0x04
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x40
        i2c 0x20 [0x00] = 0x00
        i2c 0x20 [0x01] = 0x6e
        i2c 0x20 [0x07] -> 0x00
        i2c 0x20 [0x07] = 0x20
        i2c 0x20 [0x09] -> 0x00
        i2c 0x20 [0x09] = 0x20
        i2c 0x20 [0x05] -> 0x00
        i2c 0x20 [0x05] = 0x20
        i2c 0x20 [0x12] -> 0x00
        i2c 0x20 [0x12] = 0x04
        i2c 0x20 [0x13] -> 0x20
        i2c 0x20 [0x13] = 0x20
        i2c 0x24 [0x0a] = 0x00
        i2c 0x24 [0x0b] = 0x00
        i2c 0x24 [0x00] = 0x00
        i2c 0x24 [0x01] = 0x00
        i2c 0x24 [0x12] -> 0x00
        i2c 0x24 [0x12] = 0x00
        pin 22 = 0
        pin 23 = 0
        delay 300
        pin 22 = 1
        pin 23 = 1
        delay 300
        pin 22 = 0
        pin 23 = 0
        i2c 0x24 [0x12] -> 0x00
        i2c 0x24 [0x12] = 0x08
        i2c 0x24 [0x13] = 0x00
        delay 3000000
        i2c 0x24 [0x12] -> 0x08
        i2c 0x24 [0x12] = 0x88
        i2c 0x24 [0x13] -> 0x00
        i2c 0x24 [0x13] = 0x00
        i2c 0x20 [0x13] -> 0x20
        i2c 0x20 [0x13] = 0xa8
        i2c 0x20 [0x13] -> 0xa0
        i2c 0x20 [0x13] = 0x00
        i2c 0x20 [0x12] -> 0x04
        i2c 0x20 [0x12] = 0x04
        i2c 0x20 [0x13] -> 0x20
        i2c 0x20 [0x13] = 0xa0
        i2c 0x20 [0x13] -> 0xa0
        i2c 0x20 [0x13] = 0x00
        i2c 0x20 [0x12] -> 0x04
        i2c 0x20 [0x12] = 0x24
        i2c 0x20 [0x13] -> 0x20
        i2c 0x20 [0x13] = 0x20
        i2c 0x20 [0x13] -> 0x20
        i2c 0x20 [0x13] = 0xa0
    )"));
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

TEST_F(BenchtopInitHw, ClearsTheseBitsOfWhatWasSet)
{
    board->i2c().attach(0x20, std::make_shared<Ones>());
    board->i2c().attach(0x24, std::make_shared<Ones>());
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(expect_trace(accesses(), R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x04
        i2c 0x20 [0x00] = 0x00
        i2c 0x20 [0x01] = 0x00
        i2c 0x20 [0x12] -> 0xff
        i2c 0x20 [0x12] = 0xff
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0xff
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x40
        i2c 0x20 [0x00] = 0x00
        i2c 0x20 [0x01] = 0x6e
        i2c 0x20 [0x07] -> 0xff
        i2c 0x20 [0x07] = 0xff
        i2c 0x20 [0x09] -> 0xff
        i2c 0x20 [0x09] = 0xff
        i2c 0x20 [0x05] -> 0xff
        i2c 0x20 [0x05] = 0xff
        i2c 0x20 [0x12] -> 0xff
        i2c 0x20 [0x12] = 0xff
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0xff
        i2c 0x24 [0x0a] = 0x00
        i2c 0x24 [0x0b] = 0x00
        i2c 0x24 [0x00] = 0x00
        i2c 0x24 [0x01] = 0x00
        i2c 0x24 [0x12] -> 0xff
        i2c 0x24 [0x12] = 0xf7
        i2c 0x24 [0x12] -> 0xff
        i2c 0x24 [0x12] = 0xff
        i2c 0x24 [0x13] = 0x00
        i2c 0x24 [0x12] -> 0xff
        i2c 0x24 [0x12] = 0xff
        i2c 0x24 [0x13] -> 0xff
        i2c 0x24 [0x13] = 0xfe
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0xff
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0x5d
        i2c 0x20 [0x12] -> 0xff
        i2c 0x20 [0x12] = 0x97
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0xff
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0x5f
        i2c 0x20 [0x12] -> 0xff
        i2c 0x20 [0x12] = 0xff
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0x7f
        i2c 0x20 [0x13] -> 0xff
        i2c 0x20 [0x13] = 0xff
    )"));
}

TEST_F(BenchtopInitHw, MissingExpandersAreSkippedUntilTheModulationReset)
{
    fault(0x20)->absent(true);
    fault(0x24)->absent(true);
    EXPECT_FALSE(device->InitHW());
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_ERR, "InitHW: external modulations reset failed"}}));
    EXPECT_TRUE(expect_trace(accesses(), R"(
        i2c 0x20 open -> ENXIO
        i2c 0x20 open -> ENXIO
        i2c 0x24 open -> ENXIO
        i2c ? [0x13] -> EBADF
        i2c ? [0x13] = 0x88 -> EBADF
        i2c ? [0x13] -> EBADF
        i2c ? [0x13] = 0x08 -> EBADF
        i2c ? [0x12] -> EBADF
        i2c ? [0x12] = 0x00 -> EBADF
        i2c ? [0x13] -> EBADF
        i2c ? [0x13] = 0x80 -> EBADF
        i2c ? [0x13] -> EBADF
        i2c ? [0x13] = 0x00 -> EBADF
        i2c ? [0x12] -> EBADF
        i2c ? [0x12] = 0x20 -> EBADF
        i2c ? [0x13] -> EBADF
        i2c ? [0x13] = 0x20 -> EBADF
        i2c ? [0x13] -> EBADF
        i2c ? [0x13] = 0xa0 -> EBADF
    )"));
}

TEST_F(BenchtopInitHw, MissingTriggerExpanderIsNotReported)
{
    fault(0x24)->absent(true);
    EXPECT_TRUE(device->InitHW());
    EXPECT_TRUE(logs.lines().empty());
    const std::vector<std::string> lines = trace();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "delay 3000000"), 0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "pin 22 = 1"), 0);
}

/** A start in which one chip stops acknowledging after this many transfers. */
struct Failure {
    uint8_t address;
    size_t transfers;
    const char* message; // empty: none
};

class BenchtopInitHwFailure : public BenchtopInitHw, public testing::WithParamInterface<Failure> {};
// 0x20: 10 transfers for its first handle (4 writes, 2 changes of 3), 19 for the second (4 writes, 5 changes
// of 3), 24 for the modulation reset. 0x24: 7, 4 and 6 around its waits.
INSTANTIATE_TEST_SUITE_P(
    Transfers, BenchtopInitHwFailure,
    testing::Values(Failure{0x20, 0, "InitHW: GPIO expander 0x20 initialization failed"},
                    Failure{0x20, 9, "InitHW: GPIO expander 0x20 initialization failed"},
                    Failure{0x20, 10, "InitHW: GPIO expander 0x21 initialization failed"},
                    Failure{0x20, 28, "InitHW: GPIO expander 0x21 initialization failed"},
                    Failure{0x20, 29, "InitHW: external modulations reset failed"},
                    Failure{0x20, 52, "InitHW: external modulations reset failed"}, Failure{0x20, 53, ""},
                    Failure{0x24, 0, "InitHW: GPIO expander 0x24 initialization failed"},
                    Failure{0x24, 16, "InitHW: GPIO expander 0x24 initialization failed"},
                    Failure{0x24, 17, ""}));

TEST_P(BenchtopInitHwFailure, IsReportedByThePartThatFailed)
{
    const auto& [address, transfers, message] = GetParam();
    fault(address)->refuse_after(transfers);
    const bool well = std::string(message).empty();
    EXPECT_EQ(device->InitHW(), well);
    EXPECT_EQ(logs.lines(), well ? std::vector<LogLine>{} : (std::vector<LogLine>{{LOG_ERR, message}}));
}

TEST_F(BenchtopInitHw, AnyFailedTransferOfTheModulationResetIsReported)
{
    const auto chip = orvan_test::refuse_one(board->i2c(), 0x20, SIZE_MAX);
    for (size_t transfer = 29; transfer < 53; ++transfer) {
        logs.clear();
        chip->refuse_after(transfer);
        EXPECT_FALSE(device->InitHW()) << transfer;
        EXPECT_EQ(logs.lines(),
                  (std::vector<LogLine>{{LOG_ERR, "InitHW: external modulations reset failed"}}));
    }
    EXPECT_TRUE(device->InitHW());
}

TEST_F(BenchtopInitHw, FailedPartIsCompletedAndTheNextOneNotStarted)
{
    const auto chip = fault(0x20);
    // Reads show bits that nothing sets; then the read of port B fails, and its change uses the value
    // read from port A.
    chip->flip_read_bits(0, 0xa0);
    chip->refuse_after(7);
    EXPECT_FALSE(device->InitHW());
    EXPECT_TRUE(expect_trace(accesses(), R"(
        i2c 0x20 open
        i2c 0x20 open
        i2c 0x24 open
        i2c 0x20 [0x0a] = 0x04
        i2c 0x20 [0x0b] = 0x04
        i2c 0x20 [0x00] = 0x00
        i2c 0x20 [0x01] = 0x00
        i2c 0x20 [0x12] -> 0xa0
        i2c 0x20 [0x12] = 0xa0
        i2c 0x20 [0x13] -> EREMOTEIO
        i2c 0x20 [0x13] = 0xa4 -> EREMOTEIO
    )"));
}

TEST_F(BenchtopInitHw, FailedTriggerExpanderTakesTheSameTime)
{
    fault(0x24)->not_acknowledging(true);
    EXPECT_FALSE(device->InitHW());
    const std::vector<std::string> lines = trace();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "delay 3000000"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "delay 300"), 2);
    EXPECT_EQ(lines.back(), "i2c 0x24 [0x13] = 0xa8 -> EREMOTEIO");
}

TEST_F(BenchtopInitHw, ArmsThePowerButtonOnBit20)
{
    ASSERT_TRUE(device->InitHW());
    Mcp23017& chip = board->expander(0x20);
    EXPECT_EQ(chip.reg(Mcp23017::kGpinten, Mcp23017::kB), 0x20);
    EXPECT_EQ(chip.reg(Mcp23017::kDefval, Mcp23017::kB), 0x20);
    EXPECT_EQ(chip.reg(Mcp23017::kIntcon, Mcp23017::kB), 0x20);
    EXPECT_EQ(chip.reg(Mcp23017::kIodir, Mcp23017::kB), 0x6E);
    EXPECT_EQ(board->gpio().level(2), 0);
    chip.drive(Mcp23017::kB, 0x20, 0x00); // pressed
    EXPECT_EQ(board->gpio().level(2), 1);
}

TEST_F(BenchtopInitHw, CanBeRepeated)
{
    EXPECT_TRUE(device->InitHW());
    const auto first = trace();
    EXPECT_TRUE(device->InitHW());
    EXPECT_EQ(trace(), first); // the reset has cleared the expanders
}

} // namespace
