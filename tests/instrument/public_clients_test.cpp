// Third-party clients: lxi-tools and PyVISA, as packaged by Debian.
#include <gtest/gtest.h>

#include "dialogue.h"
#include "instrument.h"

using namespace orvan_test;

namespace {

using Names = std::vector<std::string>;

std::string path_of(const std::string& session)
{
    return ORVAN_INSTRUMENT_TESTS_DIR "/sessions/" + session + ".txt";
}

// Debian's own interpreter: another one in PATH may not see Debian's packages.
Names visa_session(const std::string& resource, const Names& sessions)
{
    Names command{"/usr/bin/python3", ORVAN_INSTRUMENT_TESTS_DIR "/visa_session.py", resource};
    for (const std::string& session : sessions) {
        command.push_back(path_of(session));
    }
    return command;
}

void hold_with_visa(const Instrument& instrument, const Names& sessions)
{
    const std::string resource = "TCPIP::127.0.0.1::" + std::to_string(instrument.port()) + "::SOCKET";
    const Outcome outcome = run_program(visa_session(resource, sessions));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

void hold_with_visa_by_vxi11(const Instrument& instrument, const Names& sessions)
{
    const Outcome outcome = instrument.exec("lan", visa_session("TCPIP::10.0.0.2::INSTR", sessions));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

/** The client waits for a reply only to lines with a question mark, so each line gets one. */
Exchange with_a_question(Exchange exchange)
{
    if (exchange.line.find('?') != std::string::npos) {
        return exchange;
    }
    exchange.line += ";:SYST:VERS?";
    exchange.reply.insert(exchange.reply.rfind("+OK"), "1999.0;");
    return exchange;
}

void hold_with_lxi(const Instrument& instrument, const Names& sessions)
{
    for (const std::string& session : sessions) {
        for (const Exchange& written : read_session(path_of(session))) {
            const Exchange exchange = with_a_question(written);
            const Outcome outcome = run_program({"lxi", "scpi", "-t", "20", "-a", "127.0.0.1", "-p",
                                                 std::to_string(instrument.port()), "-r", exchange.line});
            EXPECT_EQ(outcome.output, exchange.reply + "\r\n") << exchange.line;
        }
    }
}

struct PublicClient {
    const char* name;
    void (*hold)(const Instrument& instrument, const Names& sessions);
};

constexpr PublicClient kVisa = {"PyVisa", hold_with_visa};
constexpr PublicClient kVisaByVxi11 = {"PyVisaByVxi11", hold_with_visa_by_vxi11};
constexpr PublicClient kLxi = {"LxiTools", hold_with_lxi};

struct Platform {
    const char* name;
    const char* model;
    const char* session;
};

constexpr Platform kBenchtop = {"Benchtop", "OVX3654B", "benchtop"};
constexpr Platform kPortable = {"Portable", "OVX3651P", "portable"};
constexpr Platform kKsr7000 = {"Ksr7000", "KSR-7036", "ksr7000"};

using Pair = std::tuple<PublicClient, Platform>;

class PublicClients : public testing::TestWithParam<Pair> {};

TEST_P(PublicClients, RunASessionOfEveryKindOfCommand)
{
    ORVAN_NEEDS_SANDBOX();
    const auto& [client, platform] = GetParam();
    const Instrument instrument({"--model", platform.model});
    client.hold(instrument, {"every_platform", platform.session, "every_platform"});
}

INSTANTIATE_TEST_SUITE_P(Each, PublicClients,
                         testing::Combine(testing::Values(kVisa, kVisaByVxi11, kLxi),
                                          testing::Values(kBenchtop, kPortable, kKsr7000)),
                         [](const auto& pair) {
                             return std::string(std::get<PublicClient>(pair.param).name) +
                                    std::get<Platform>(pair.param).name;
                         });

class PublicClientsWithADeadModule : public testing::TestWithParam<PublicClient> {};

TEST_P(PublicClientsWithADeadModule, ResetAndTestTheOthersAndThenAllOnceItReturns)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    ASSERT_EQ(instrument.ctl({"module", "2", "refuse"}).status, 0);
    GetParam().hold(instrument, {"dead_module"});
    ASSERT_EQ(instrument.ctl({"module", "2", "up"}).status, 0);
    GetParam().hold(instrument, {"module_well_again"});
}

INSTANTIATE_TEST_SUITE_P(Each, PublicClientsWithADeadModule, testing::Values(kVisa, kLxi),
                         [](const auto& client) { return std::string(client.param.name); });

} // namespace
