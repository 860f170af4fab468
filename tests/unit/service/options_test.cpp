#include <cstdlib>
#include <initializer_list>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "service/options.h"
#include "support/output_capture.h"

using namespace orvan_service;
using orvan_test::OutputCapture;

namespace {

std::optional<Options> parse(std::initializer_list<const char*> arguments, int& exit_code)
{
    std::vector<const char*> argv{"orvan-service"};
    argv.insert(argv.end(), arguments);
    return parse_options(static_cast<int>(argv.size()), argv.data(), exit_code);
}

Options parsed(std::initializer_list<const char*> arguments)
{
    int exit_code = -1;
    const auto options = parse(arguments, exit_code);
    EXPECT_TRUE(options.has_value());
    return options.value_or(Options{});
}

struct BadCase {
    std::vector<const char*> arguments;
    const char* named; // text that the error message must contain
};

} // namespace

TEST(Options, DefaultsAreThoseOfTheInstrument)
{
    const Options options = parsed({});
    EXPECT_EQ(options.address, "");
    EXPECT_EQ(options.platform, Platform::kFactory);
    EXPECT_EQ(options.produce, "");
    EXPECT_FALSE(options.port.has_value());
    EXPECT_TRUE(options.hislip);
    EXPECT_FALSE(options.hislip_port.has_value());
    EXPECT_TRUE(options.vxi11);
    EXPECT_EQ(options.local_dir, "/run/orvan");
    EXPECT_EQ(options.max_clients, 256);
    EXPECT_EQ(options.message_memory, 64);
    EXPECT_EQ(options.channels, 4);
    EXPECT_EQ(options.module_wait, 60);
    EXPECT_FALSE(options.modules_on_loopback);
    EXPECT_FALSE(options.foreground);
    EXPECT_EQ(options.hang_limit, 120);
    EXPECT_EQ(options.log_level, LOG_NOTICE);
}

TEST(Options, EachIsAccepted)
{
    const Options options = parsed({"--platform",
                                    "ksr7000",
                                    "--port",
                                    "1234",
                                    "--address",
                                    "127.0.0.1",
                                    "--max-clients",
                                    "7",
                                    "--channels",
                                    "2",
                                    "--module-wait",
                                    "0",
                                    "--modules-on-loopback",
                                    "--foreground",
                                    "--hang-limit",
                                    "1.5",
                                    "--log-level",
                                    "debug",
                                    "--message-memory",
                                    "5"});
    EXPECT_EQ(options.platform, Platform::kKsr7000);
    EXPECT_EQ(options.port, 1234);
    EXPECT_EQ(options.address, "127.0.0.1");
    EXPECT_EQ(options.max_clients, 7);
    EXPECT_EQ(options.message_memory, 5);
    EXPECT_EQ(options.channels, 2);
    EXPECT_EQ(options.module_wait, 0);
    EXPECT_TRUE(options.modules_on_loopback);
    EXPECT_TRUE(options.foreground);
    EXPECT_EQ(options.hang_limit, 1.5);
    EXPECT_EQ(options.log_level, LOG_DEBUG);
}

TEST(Options, TheHislipPortIsANumberOrOff)
{
    EXPECT_TRUE(parsed({"--hislip-port", "4881"}).hislip);
    EXPECT_EQ(parsed({"--hislip-port", "4881"}).hislip_port, 4881);
    EXPECT_EQ(parsed({"--hislip-port", "0"}).hislip_port, 0);
    EXPECT_FALSE(parsed({"--hislip-port", "off"}).hislip);
    EXPECT_FALSE(parsed({"--no-vxi11"}).vxi11);
    EXPECT_FALSE(parsed({"--modules-on-loopback"}).vxi11);
}

TEST(Options, TheFolderOfLocalSocketsIsOffOnAMachineThatIsNoInstrument)
{
    EXPECT_EQ(parsed({"--local-dir", "/tmp/orvan"}).local_dir, "/tmp/orvan");
    EXPECT_EQ(parsed({"--local-dir", "off"}).local_dir, "");
    EXPECT_EQ(parsed({"--modules-on-loopback"}).local_dir, "");
    EXPECT_EQ(parsed({"--modules-on-loopback", "--local-dir", "/tmp/orvan"}).local_dir, "/tmp/orvan");
}

TEST(Options, EachPlatformIsAccepted)
{
    EXPECT_EQ(parsed({"--platform", "factory"}).platform, Platform::kFactory);
    EXPECT_EQ(parsed({"--platform", "portable"}).platform, Platform::kPortable);
    EXPECT_EQ(parsed({"--platform", "benchtop"}).platform, Platform::kBenchtop);
}

TEST(Options, ProductionTakesAModelAndASerialNumber)
{
    const Options options = parsed({"--produce", "OVX3652B", "--serial", "240001"});
    EXPECT_EQ(options.produce, "OVX3652B");
    EXPECT_EQ(options.serial, "240001");
}

TEST(Options, LogLevelsAreThoseOfSyslog)
{
    EXPECT_EQ(parsed({"--log-level", "err"}).log_level, LOG_ERR);
    EXPECT_EQ(parsed({"--log-level", "warning"}).log_level, LOG_WARNING);
    EXPECT_EQ(parsed({"--log-level", "notice"}).log_level, LOG_NOTICE);
    EXPECT_EQ(parsed({"--log-level", "info"}).log_level, LOG_INFO);
}

TEST(Options, TheHangLimitCanBeSetInTheEnvironment)
{
    ::setenv("ORVAN_HANG_LIMIT", "7", 1);
    EXPECT_EQ(parsed({}).hang_limit, 7);
    EXPECT_EQ(parsed({"--hang-limit", "8"}).hang_limit, 8);
    ::setenv("ORVAN_HANG_LIMIT", "never", 1);
    OutputCapture errors(STDERR_FILENO);
    int exit_code = -1;
    EXPECT_FALSE(parse({}, exit_code));
    EXPECT_EQ(exit_code, kExitBadOptions);
    EXPECT_NE(errors.text().find("never"), std::string::npos) << errors.text();
    EXPECT_EQ(parsed({"--hang-limit", "9"}).hang_limit, 9) << "then it is not looked at";
    ::unsetenv("ORVAN_HANG_LIMIT");
}

TEST(Options, AValueMayFollowAnEqualsSign)
{
    EXPECT_EQ(parsed({"--port=1234"}).port, 1234);
}

TEST(Options, AnErrorIsNamedWordForWord)
{
    int exit_code = -1;
    OutputCapture errors(STDERR_FILENO);
    EXPECT_FALSE(parse({"--max-clients", "513"}, exit_code));
    EXPECT_EQ(errors.text(), "orvan-service: --max-clients: 513 is not a number of 1 to 512\n"
                             "Run with --help for more information.\n");
}

TEST(Options, BadOptionsAreNamedAndExitWithCodeTwo)
{
    const BadCase cases[] = {
        {{"--port", "65536"}, "65536"},
        {{"--port", "-1"}, "-1"},
        {{"--port", "x"}, "--port"},
        {{"--port"}, "--port"},
        {{"--hislip-port", "65536"}, "65536 is neither a port nor off"},
        {{"--hislip-port", "-1"}, "-1 is neither a port nor off"},
        {{"--hislip-port", "48 80"}, "48 80 is neither a port nor off"},
        {{"--hislip-port", ""}, "--hislip-port"},
        {{"--hislip-port"}, "--hislip-port"},
        {{"--max-clients", "0"}, "0"},
        {{"--max-clients", "513"}, "513"},
        {{"--message-memory", "2"}, "2"},
        {{"--message-memory", "1025"}, "1025"},
        {{"--modules-on-loopback", "--channels", "0"}, "0"},
        {{"--modules-on-loopback", "--channels", "5"}, "5"},
        {{"--modules-on-loopback", "--module-wait", "-1"}, "-1"},
        {{"--modules-on-loopback", "--module-wait", "601"}, "601"},
        {{"--channels", "2"}, "--modules-on-loopback"},
        {{"--module-wait", "2"}, "--modules-on-loopback"},
        {{"--platform", "rack"}, "rack"},
        {{"--produce", "OVX3652B"}, "--serial"},
        {{"--serial", "240001"}, "--produce"},
        {{"--produce", "OVX3652B", "--serial", ""}, "1 to 30 characters"},
        {{"--produce", "OVX3652B", "--serial", "1234567890123456789012345678901"}, "1 to 30 characters"},
        {{"--modules-on-loopback", "--produce", "OVX3652B", "--serial", "1"}, "--produce"},
        {{"--hang-limit", "0"}, "--hang-limit"},
        {{"--hang-limit", "86401"}, "--hang-limit"},
        {{"--hang-limit", "nan"}, "--hang-limit"},
        {{"--log-level", "loud"}, "loud is none of err, warning, notice, info, debug"},
        {{"--port", "1", "--port", "2"}, "--port is given more than once"},
        {{"--foreground=1"}, "--foreground"},
        {{"--max-clients", "7x"}, "7x"},
        {{"--no-such-option"}, "--no-such-option"},
        {{"stray"}, "stray"},
    };
    for (const auto& bad : cases) {
        std::vector<const char*> argv{"orvan-service"};
        argv.insert(argv.end(), bad.arguments.begin(), bad.arguments.end());
        int exit_code = -1;
        OutputCapture errors(STDERR_FILENO);
        EXPECT_FALSE(parse_options(static_cast<int>(argv.size()), argv.data(), exit_code));
        EXPECT_EQ(exit_code, kExitBadOptions);
        EXPECT_NE(errors.text().find(bad.named), std::string::npos) << errors.text();
    }
}

TEST(Options, VersionAndHelpGoToStandardOutputAndEndWithSuccess)
{
    OutputCapture output(STDOUT_FILENO);
    int exit_code = -1;
    EXPECT_FALSE(parse({"--version"}, exit_code));
    EXPECT_EQ(exit_code, kExitDone);
    EXPECT_EQ(output.text(), "orvan-service " ORVAN_VERSION "\n");
    exit_code = -1;
    EXPECT_FALSE(parse({"--help"}, exit_code));
    EXPECT_EQ(exit_code, kExitDone);
    for (const char* option :
         {"--platform", "--produce", "--serial", "--port", "--hislip-port", "--no-vxi11", "--address",
          "--max-clients", "--message-memory", "--channels", "--module-wait", "--modules-on-loopback",
          "--local-dir", "--hang-limit", "--foreground", "--log-level", "--version", "Exit codes:"}) {
        EXPECT_NE(output.text().find(option), std::string::npos) << option;
    }
}
