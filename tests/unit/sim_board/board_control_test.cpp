#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "board/board_control.h"
#include "board/current_board.h"
#include "hw/hw.h"
#include "support/loopback.h"

namespace sim_board {
namespace {

class BoardControlTest : public testing::Test {
protected:
    BoardControlTest()
    {
        char name[] = "/tmp/board_control_XXXXXX";
        m_folder = mkdtemp(name);
        path = m_folder / "board.sock";
    }
    ~BoardControlTest() override { std::filesystem::remove_all(m_folder); }

    /** The whole reply to some lines, all sent before it is read. */
    std::string ask(const std::string& lines) const
    {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        std::strncpy(name.sun_path, path.c_str(), sizeof name.sun_path - 1);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
            ::close(fd);
            return "not connected";
        }
        EXPECT_EQ(send(fd, lines.data(), lines.size(), MSG_NOSIGNAL), static_cast<ssize_t>(lines.size()));
        ::shutdown(fd, SHUT_WR);
        std::string reply = orvan_test::read_until(fd, "(the end)");
        ::close(fd);
        return reply;
    }

    std::filesystem::path m_folder;
    std::filesystem::path path;
    InstalledBoard board{kBenchtopWiring};
};

TEST_F(BoardControlTest, LinesAreExecutedInOrder)
{
    const BoardControl control(path);
    EXPECT_EQ(ask("i2c 0x24 nack\ni2c\nnonsense\n"),
              "ok\nok\n0x20  ok\n0x24  nack\n0x34  ok\nerror unknown verb 'nonsense'; 'help' lists them\n");
}

TEST_F(BoardControlTest, UsesTheBoardCurrentAtTheTime)
{
    const BoardControl control(path);
    EXPECT_TRUE(ask("board\n").starts_with("ok\nboard                             benchtop\n"));
    InstalledBoard other(kPortableWiring);
    EXPECT_TRUE(ask("board\n").starts_with("ok\nboard                             portable\n"));
}

TEST_F(BoardControlTest, DestructionLeavesNothing)
{
    const size_t descriptors = orvan_test::open_descriptors();
    {
        const BoardControl control(path);
        EXPECT_EQ(ask("power-button\n"), "ok\n");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(ask("board\n"), "not connected");
    EXPECT_EQ(orvan_test::open_descriptors(), descriptors);
}

TEST_F(BoardControlTest, AnUnusablePathIsAnError)
{
    EXPECT_THROW(BoardControl(m_folder / "none" / "board.sock"), std::system_error);
    const BoardControl first(path);
    EXPECT_THROW(BoardControl second(path), std::system_error);
    EXPECT_EQ(ask("power-button\n"), "ok\n");
}

TEST_F(BoardControlTest, TheEnvironmentNamesThePath)
{
    ::unsetenv("ORVAN_BOARD_CONTROL");
    EXPECT_EQ(board_control_of_environment(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
    ::setenv("ORVAN_BOARD_CONTROL", path.c_str(), 1);
    const auto control = board_control_of_environment();
    ASSERT_NE(control, nullptr);
    EXPECT_EQ(ask("power-button\n"), "ok\n");
}

TEST_F(BoardControlTest, TheSeamOpensItByTheEnvironmentAndClosesIt)
{
    ::unsetenv("ORVAN_BOARD_CONTROL");
    hw_control_open();
    EXPECT_FALSE(std::filesystem::exists(path));
    hw_control_close();
    ::setenv("ORVAN_BOARD_CONTROL", path.c_str(), 1);
    hw_control_open();
    EXPECT_EQ(ask("power-button\n"), "ok\n");
    hw_control_close();
    EXPECT_FALSE(std::filesystem::exists(path));
    hw_control_close();
}

TEST_F(BoardControlTest, AnInvalidPathIsReportedAndTheProcessContinues)
{
    ::setenv("ORVAN_BOARD_CONTROL", (m_folder / "none" / "s").c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(board_control_of_environment(), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "sim_board: no control socket: " + (m_folder / "none" / "s").string() +
                  ": No such file or directory\n");
}

TEST_F(BoardControlTest, ManyClientsAndTheControllersAccessesRunConcurrently)
{
    const BoardControl control(path);
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&, i] {
            const char* const lines[] = {"board\n", "i2c\n", "power-button\n", "i2c 0x24 ok\n"};
            for (int turn = 0; turn < 25; ++turn) {
                EXPECT_TRUE(ask(lines[i]).starts_with("ok\n"));
            }
        });
    }
    const int fd = board->i2c().open(0x20);
    for (int value = 0; value < 1000; ++value) {
        board->i2c().write_register8(fd, 0x12, value);
        board->i2c().write_register8(fd, 0x13, value);
    }
    ::close(fd);
    for (std::thread& client : clients) {
        client.join();
    }
}

} // namespace
} // namespace sim_board
