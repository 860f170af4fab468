#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "module/options.h"
#include "support/output_capture.h"

using orvan_test::OutputCapture;
using sim_module::Options;

namespace {

std::optional<Options> parse(std::vector<const char*> arguments, int& exit_code)
{
    arguments.insert(arguments.begin(), "orvan-module");
    return sim_module::parse_options(static_cast<int>(arguments.size()), arguments.data(), exit_code);
}

} // namespace

TEST(ModuleOptions, TheChannelDecidesTheLoopbackAddressAndThePort)
{
    for (int channel = 1; channel <= 4; ++channel) {
        int exit_code = -1;
        const auto options = parse({"--channel", std::to_string(channel).c_str()}, exit_code);
        ASSERT_TRUE(options);
        EXPECT_EQ(options->channel, channel);
        EXPECT_EQ(options->address, "127.0." + std::to_string(6 + channel) + ".1");
        EXPECT_EQ(options->port, 6000 + channel);
        EXPECT_EQ(options->firmware_port, std::nullopt);
        EXPECT_EQ(options->restart_time.count(), 1000);
        EXPECT_EQ(options->control_path, "");
        EXPECT_EQ(options->identity.model, "OVX3654B");
        EXPECT_EQ(options->temperature, 42.0);
        EXPECT_EQ(options->seed, static_cast<unsigned>(channel));
    }
}

TEST(ModuleOptions, EveryOptionIsAccepted)
{
    int exit_code = -1;
    const auto options =
        parse({"--channel=2", "--address=127.0.0.5", "--port=0", "--control=/tmp/c", "--firmware-port=7502",
               "--restart-time=0", "--model=OVX5351P", "--manufacturer=M", "--serial=S", "--hardware=H",
               "--firmware=F", "--fpga=G", "--calibration-date=C", "--temperature=-10.5",
               "--seed=18446744073709551615", "--rf-revision=R", "--digital-revision=D"},
              exit_code);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->address, "127.0.0.5");
    EXPECT_EQ(options->port, 0);
    EXPECT_EQ(options->firmware_port, 7502);
    EXPECT_EQ(options->restart_time.count(), 0);
    EXPECT_EQ(options->control_path, "/tmp/c");
    EXPECT_EQ(options->temperature, -10.5);
    EXPECT_EQ(options->seed, UINT64_MAX);
    const sim_module::Identity& identity = options->identity;
    EXPECT_EQ(identity.model, "OVX5351P");
    EXPECT_EQ(identity.manufacturer + identity.serial + identity.hardware + identity.firmware +
                  identity.fpga + identity.calibration_date + identity.rf_revision +
                  identity.digital_revision,
              "MSHFGCRD");
}

TEST(ModuleOptions, MistakesAreErrors)
{
    const std::vector<std::vector<const char*>> mistakes = {
        {},
        {"--channel", "0"},
        {"--channel", "5"},
        {"--channel", "one"},
        {"--channel", "1", "--port", "65536"},
        {"--channel", "1", "--port", "-1"},
        {"--channel", "1", "--address", "localhost"},
        {"--channel", "1", "--address", "256.0.0.1"},
        {"--channel", "1", "--model", "OVX9999B"},
        {"--channel", "1", "--serial", "a;b"},
        {"--channel", "1", "--serial", ""},
        {"--channel", "1", "--serial", "a\nb"},
        {"--channel", "1", "--temperature", "1000.1"},
        {"--channel", "1", "--temperature", "-274"},
        {"--channel", "1", "--temperature", "warm"},
        {"--channel", "1", "--seed", "-1"},
        {"--channel", "1", "--seed", "one"},
        {"--channel", "1", "extra"},
    };
    for (const auto& arguments : mistakes) {
        const OutputCapture errors(STDERR_FILENO);
        int exit_code = 0;
        EXPECT_FALSE(parse(arguments, exit_code)) << (arguments.empty() ? "" : arguments.back());
        EXPECT_NE(exit_code, 0);
        EXPECT_NE(errors.text(), "");
    }
}

TEST(ModuleOptions, HelpAndVersionAreNoErrors)
{
    for (const char* option : {"--help", "--version"}) {
        const OutputCapture output(STDOUT_FILENO);
        int exit_code = -1;
        EXPECT_FALSE(parse({option}, exit_code));
        EXPECT_EQ(exit_code, 0);
        EXPECT_NE(output.text().find("orvan-module"), std::string::npos) << option;
    }
}
