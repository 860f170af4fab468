#include <syslog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "options.h"

using namespace orvan_web;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

std::optional<Options> parse(std::vector<const char*> arguments, int& exit_code)
{
    arguments.insert(arguments.begin(), "orvan-web");
    return parse_options(static_cast<int>(arguments.size()), arguments.data(), exit_code);
}

Options parsed(const std::vector<const char*>& arguments)
{
    int exit_code = -1;
    return parse(arguments, exit_code).value();
}

} // namespace

TEST(WebOptions, HaveTheDefaultsOfAnInstrument)
{
    const Options options = parsed({});
    EXPECT_EQ(options.task, Task::kServe);
    EXPECT_EQ(options.address, "");
    EXPECT_EQ(options.port, 80);
    EXPECT_EQ(options.local_dir, "/run/orvan");
    EXPECT_EQ(options.page, "");
    EXPECT_EQ(options.charts, "/usr/share/javascript/chart.js/chart.min.js");
    EXPECT_EQ(options.setups, "/home/orvan/halde");
    EXPECT_EQ(options.state, "/var/lib/orvan-web");
    EXPECT_TRUE(options.names.empty());
    EXPECT_FALSE(options.read_only);
    EXPECT_FALSE(options.changes_without_password);
    EXPECT_TRUE(options.mdns);
    EXPECT_FALSE(options.foreground);
    EXPECT_EQ(options.log_level, LOG_NOTICE);
}

TEST(WebOptions, AreAllTaken)
{
    const Options options = parsed({"--address",   "127.0.0.1",
                                    "--port",      "0",
                                    "--local-dir", "l",
                                    "--page",      "p",
                                    "--charts",    "c",
                                    "--setups",    "u",
                                    "--state",     "s",
                                    "--name",      "a",
                                    "--name",      "b",
                                    "--read-only", "--changes-without-password",
                                    "--no-mdns",   "--foreground",
                                    "--log-level", "debug"});
    EXPECT_EQ(options.address, "127.0.0.1");
    EXPECT_EQ(options.port, 0);
    EXPECT_EQ(options.local_dir + options.page + options.charts + options.setups + options.state, "lpcus");
    EXPECT_THAT(options.names, ElementsAre("a", "b"));
    EXPECT_TRUE(options.read_only);
    EXPECT_TRUE(options.changes_without_password);
    EXPECT_FALSE(options.mdns);
    EXPECT_TRUE(options.foreground);
    EXPECT_EQ(options.log_level, LOG_DEBUG);
}

TEST(WebOptions, NameOneTask)
{
    EXPECT_EQ(parsed({"--set-password"}).task, Task::kSetPassword);
    const Options made = parsed({"--new-token", "a"});
    EXPECT_EQ(made.task, Task::kNewToken);
    EXPECT_EQ(made.token_name, "a");
    const Options removed = parsed({"--remove-token", "b"});
    EXPECT_EQ(removed.task, Task::kRemoveToken);
    EXPECT_EQ(removed.token_name, "b");
}

TEST(WebOptions, ThatAreWrongEndTheProgram)
{
    const std::vector<std::vector<const char*>> table{{"--nonsense"},
                                                      {"stray"},
                                                      {"--port", "65536"},
                                                      {"--port", "-1"},
                                                      {"--port", "http"},
                                                      {"--log-level", "loud"},
                                                      {"--name", "a", "b"},
                                                      {"--new-token"},
                                                      {"--set-password", "--new-token", "a"},
                                                      {"--new-token", "a", "--remove-token", "b"}};
    for (const auto& arguments : table) {
        ::testing::internal::CaptureStderr();
        int exit_code = -1;
        EXPECT_FALSE(parse(arguments, exit_code)) << arguments.front();
        EXPECT_EQ(exit_code, kExitBadOptions) << arguments.front();
        EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("--help")) << arguments.front();
    }
}

TEST(WebOptions, HelpAndVersionArePrinted)
{
    for (const auto& [argument, text] : {std::pair("--help", "--changes-without-password"),
                                         std::pair("--version", "orvan-web " ORVAN_VERSION "\n")}) {
        ::testing::internal::CaptureStdout();
        int exit_code = -1;
        EXPECT_FALSE(parse({argument}, exit_code));
        EXPECT_EQ(exit_code, kExitDone);
        EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr(text));
    }
}
