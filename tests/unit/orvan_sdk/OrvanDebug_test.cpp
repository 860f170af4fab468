#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "orvan_sdk/OrvanDebug.h"
#include "own_process.h"
#include "support/files.h"
#include "support/output_capture.h"

using HaldeElec::OrvanDebug;
using orvan_test::OutputCapture;
using orvan_test::read_file;

namespace {

const std::string kStamp = R"(\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\])";

std::vector<std::string> g_received;

void receive(const char* line)
{
    g_received.emplace_back(line);
}

class DebugLog : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
        OrvanDebug::SetLogFile(log());
        OrvanDebug::SetLogMode(1);
        OrvanDebug::SetLogStatus(1);
        g_received.clear();
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    std::string log() const { return m_folder + "/log.txt"; }

    static bool matches(const std::string& text, const std::string& pattern)
    {
        return std::regex_match(text, std::regex(pattern));
    }

private:
    std::string m_folder = (std::filesystem::temp_directory_path() / "orvan-debug-XXXXXX").string();
};

/** As a process starts. */
class DebugLogAtFirst : public orvan_test::OwnProcess {};

TEST_F(DebugLogAtFirst, ModeIsFileAndStatusIsOn)
{
    EXPECT_EQ(OrvanDebug::GetLogMode(), 1);
    EXPECT_EQ(OrvanDebug::GetLogStatus(), 1);
}

TEST_F(DebugLogAtFirst, TheFileIsOrvanLogInTheWorkingDirectory)
{
    std::string folder = (std::filesystem::temp_directory_path() / "orvan-debug-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    OrvanDebug::Err("x");
    std::filesystem::current_path(before);
    std::string line;
    std::getline(std::ifstream(folder + "/orvan_log.txt"), line);
    EXPECT_EQ(line, "[ORVAN.ERR] x");
    std::filesystem::remove_all(folder);
}

TEST_F(DebugLog, FileModeAppendsALineForEachCall)
{
    OrvanDebug::Log("first", true);
    OrvanDebug::Err("second");
    OrvanDebug::Log("third", true);
    EXPECT_TRUE(matches(read_file(log()), kStamp + "first\n\\[ORVAN\\.ERR\\] second\n" + kStamp + "third\n"))
        << read_file(log());
}

TEST_F(DebugLog, FileModeOpensTheFileForEachLine)
{
    OrvanDebug::Err("lost with the file");
    ASSERT_TRUE(std::filesystem::remove(log()));
    OrvanDebug::Err("new");
    EXPECT_EQ(read_file(log()), "[ORVAN.ERR] new\n");
}

TEST_F(DebugLog, AFileThatCannotBeOpenedLosesTheLineSilently)
{
    OutputCapture out(STDOUT_FILENO);
    OutputCapture err(STDERR_FILENO);
    OrvanDebug::SetLogFile(log() + "/no/such/folder");
    OrvanDebug::Err("x");
    OrvanDebug::Log("x", true);
    EXPECT_EQ(out.text() + err.text(), "");
    EXPECT_EQ(read_file(log()), "");
}

TEST_F(DebugLog, SetLogFileEmptiesTheFile)
{
    std::ofstream(log()) << "of the last start\n";
    OrvanDebug::SetLogFile(log());
    EXPECT_EQ(std::filesystem::file_size(log()), 0u);
}

TEST_F(DebugLog, SetLogFileCreatesTheFileInAnyMode)
{
    OrvanDebug::SetLogMode(4);
    OrvanDebug::SetLogFile(log() + ".other");
    EXPECT_TRUE(std::filesystem::exists(log() + ".other"));
}

TEST_F(DebugLog, ConsoleModeSendsLogToStandardOutputAndErrToStandardError)
{
    OutputCapture out(STDOUT_FILENO);
    OutputCapture err(STDERR_FILENO);
    OrvanDebug::SetLogMode(0);
    OrvanDebug::Log("message", true);
    OrvanDebug::Err("fault");
    EXPECT_TRUE(matches(out.text(), kStamp + "message\n")) << out.text();
    EXPECT_EQ(err.text(), "[ORVAN.ERR] fault\n");
    EXPECT_EQ(read_file(log()), "");
}

TEST_F(DebugLog, CallbackModeHandsOverTheLineWithoutALineEnd)
{
    OrvanDebug::SetLogMode(2);
    OrvanDebug::RegisterCallback(receive);
    OrvanDebug::Log("message", true);
    OrvanDebug::Err("fault");
    ASSERT_EQ(g_received.size(), 2u);
    EXPECT_TRUE(matches(g_received[0], kStamp + "message")) << g_received[0];
    EXPECT_EQ(g_received[1], "[ORVAN.ERR] fault");
    EXPECT_EQ(read_file(log()), "");
}

TEST_F(DebugLog, ANullCallbackIsIgnored)
{
    OrvanDebug::SetLogMode(2);
    OrvanDebug::RegisterCallback(receive);
    OrvanDebug::RegisterCallback(nullptr);
    OrvanDebug::Err("fault");
    EXPECT_EQ(g_received, (std::vector<std::string>{"[ORVAN.ERR] fault"}));
}

class DebugLogWithoutCallback : public orvan_test::OwnProcess {};

TEST_F(DebugLogWithoutCallback, CallbackModeDropsTheLines)
{
    OutputCapture out(STDOUT_FILENO);
    OutputCapture err(STDERR_FILENO);
    OrvanDebug::SetLogMode(2);
    OrvanDebug::Log("x", true);
    OrvanDebug::Err("x");
    EXPECT_EQ(out.text() + err.text(), "");
}

TEST_F(DebugLog, WithoutForceLogWritesNothingInAnyMode)
{
    OutputCapture out(STDOUT_FILENO);
    OutputCapture err(STDERR_FILENO);
    OrvanDebug::RegisterCallback(receive);
    for (const int mode : {0, 1, 2, 4}) {
        OrvanDebug::SetLogMode(mode);
        OrvanDebug::Log("x", false);
    }
    EXPECT_EQ(out.text() + err.text() + read_file(log()), "");
    EXPECT_TRUE(g_received.empty());
}

TEST_F(DebugLog, StatusZeroSilencesLogThoughItIsForcedAndLeavesErrAlone)
{
    EXPECT_EQ(OrvanDebug::SetLogStatus(0), 0);
    EXPECT_EQ(OrvanDebug::GetLogStatus(), 0);
    OrvanDebug::Log("x", true);
    OrvanDebug::Err("y");
    EXPECT_EQ(read_file(log()), "[ORVAN.ERR] y\n");
}

TEST_F(DebugLog, LogPrintsAtAnyStatusButZero)
{
    EXPECT_EQ(OrvanDebug::SetLogStatus(-7), 0);
    EXPECT_EQ(OrvanDebug::GetLogStatus(), -7);
    OrvanDebug::Log("x", true);
    EXPECT_TRUE(matches(read_file(log()), kStamp + "x\n"));
}

TEST_F(DebugLog, ModeFourWritesNothing)
{
    OutputCapture out(STDOUT_FILENO);
    OutputCapture err(STDERR_FILENO);
    OrvanDebug::RegisterCallback(receive);
    OrvanDebug::SetLogMode(4);
    OrvanDebug::Log("x", true);
    OrvanDebug::Err("x");
    EXPECT_EQ(out.text() + err.text() + read_file(log()), "");
    EXPECT_TRUE(g_received.empty());
}

TEST_F(DebugLog, ModesZeroOneTwoAndFourAreTakenAndEveryOtherBecomesFour)
{
    for (const int mode : {0, 1, 2, 4}) {
        OrvanDebug::SetLogMode(mode);
        EXPECT_EQ(OrvanDebug::GetLogMode(), mode);
    }
    for (const int mode : {3, -1, 5, 7, 1000}) {
        OrvanDebug::SetLogMode(0);
        OrvanDebug::SetLogMode(mode);
        EXPECT_EQ(OrvanDebug::GetLogMode(), 4) << mode;
    }
}

TEST_F(DebugLog, TheDateAndTimeAreLocal)
{
    ::setenv("TZ", "XXX-05:30", 1);
    tzset();
    const std::time_t before = std::time(nullptr);
    const std::string text = OrvanDebug::currentDateTime();
    const std::time_t after = std::time(nullptr);
    const auto shown = [](std::time_t at) {
        at += (5 * 60 + 30) * 60;
        std::tm parts{};
        gmtime_r(&at, &parts);
        char line[32];
        std::strftime(line, sizeof line, "%Y-%m-%d %H:%M:%S", &parts);
        return std::string(line);
    };
    EXPECT_TRUE(text == shown(before) || text == shown(after)) << text;
}

TEST_F(DebugLog, LinesOfSeveralThreadsStayWholeInTheFile)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                OrvanDebug::Err(std::string(300, static_cast<char>('a' + t)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::ifstream file(log());
    int lines = 0;
    for (std::string line; std::getline(file, line); ++lines) {
        EXPECT_TRUE(matches(line, R"(\[ORVAN\.ERR\] (a{300}|b{300}|c{300}|d{300}))")) << line;
    }
    EXPECT_EQ(lines, kThreads * kLines);
}

} // namespace
