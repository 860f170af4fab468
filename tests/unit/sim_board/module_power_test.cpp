#include <array>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "board/module_power.h"
#include <unique_fd.h>

using orvan_common::UniqueFd;

namespace sim_board {
namespace {

class ModulePowerReport : public testing::Test {
protected:
    ModulePowerReport()
    {
        char name[] = "/tmp/module_power_XXXXXX";
        m_folder = mkdtemp(name);
        path = m_folder / "pipe";
        ::mkfifo(path.c_str(), 0600);
        m_reader.reset(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }
    ~ModulePowerReport() override { std::filesystem::remove_all(m_folder); }

    /** What was written since the last call. */
    std::string reported() const
    {
        char text[64];
        const ssize_t count = ::read(m_reader.get(), text, sizeof text);
        return std::string(text, count > 0 ? static_cast<size_t>(count) : 0);
    }
    /** As the controller does: the line is an output, and the latch switches. */
    void latch(uint8_t value)
    {
        board.expander(0x20).write(std::array<uint8_t, 2>{0x14, value});
        board.expander(0x20).write(std::array<uint8_t, 2>{0x00, 0x03});
    }

    std::filesystem::path m_folder;
    std::filesystem::path path;
    UniqueFd m_reader;
    Board board{kPortableWiring, Clock::Mode::kManual};
};

TEST_F(ModulePowerReport, TheStateIsReportedAtOnceAndThenEverySwitch)
{
    report_module_power(board, path);
    EXPECT_EQ(reported(), "1");
    latch(0x80);
    EXPECT_EQ(reported(), "");
    latch(0x00);
    EXPECT_EQ(reported(), "0");
    latch(0x7f);
    EXPECT_EQ(reported(), "");
    latch(0x80);
    latch(0x00);
    EXPECT_EQ(reported(), "10");
}

TEST_F(ModulePowerReport, PowerThatIsAlreadyOffIsReported)
{
    latch(0x00);
    report_module_power(board, path);
    EXPECT_EQ(reported(), "0");
}

TEST_F(ModulePowerReport, ABoardThatCannotSwitchItIsAlwaysOn)
{
    Board benchtop(kBenchtopWiring, Clock::Mode::kManual);
    report_module_power(benchtop, path);
    benchtop.expander(0x20).write(std::array<uint8_t, 2>{0x14, 0x00});
    benchtop.expander(0x20).write(std::array<uint8_t, 2>{0x00, 0x00});
    EXPECT_EQ(reported(), "1");
}

TEST_F(ModulePowerReport, AnInvalidPathIsAnError)
{
    EXPECT_THROW(report_module_power(board, m_folder / "none"), std::system_error);
    m_reader.reset();
    EXPECT_THROW(report_module_power(board, path), std::system_error);
}

TEST_F(ModulePowerReport, AFullPipeDoesNotBlock)
{
    report_module_power(board, path);
    const UniqueFd writer(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    const std::string much(4096, '1');
    while (::write(writer.get(), much.data(), much.size()) > 0) {
    }
    latch(0x00);
    EXPECT_FALSE(board.module_power());
}

} // namespace
} // namespace sim_board
