// Eight clients at once: each gets its own replies, and in the end the records match the modules.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <thread>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "orvan_db.h"

using namespace orvan_test;
using Clock = std::chrono::steady_clock;

namespace {

const std::string kIdentity = "Halde Electronics Ltd.,OVX3654B,100001,1.19.145";
const std::string kUndefinedHeader = "-ERR -113, \"Undefined header\"";

// Each client has its own setting and its own values.
struct Share {
    const char* header;
    const char* tag;
    int64_t first;
};
constexpr int64_t kValues = 9000; // from `first` on; the one after them is set last
constexpr Share kShares[] = {
    {":FREQ", "ODT_FREQ", 1'000'000'001},          {":FRSW:STAR", "ODT_FRS_START", 3'000'000'001},
    {":FRSW:STOP", "ODT_FRS_STOP", 4'000'000'001}, {":FM:DEV", "ODT_FM_DEV", 2'000'001},
    {":TRIG:COUN", "ODT_TRG_COUNT", 500'001},      {":PULS:FREQ", "ODT_PULS_FREQ", 200'001},
    {":AM:INT:FREQ", "ODT_AM_FREQ", 50'001},       {":FRSW:STEP", "ODT_FRS_STEPS", 10'001},
};

/** How long the clients run: ORVAN_MANY_CLIENTS_SECONDS of the environment, 10 s by default. */
std::chrono::seconds duration()
{
    const char* const seconds = std::getenv("ORVAN_MANY_CLIENTS_SECONDS");
    return std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 10);
}

struct Round {
    std::string lines;                // sent at once
    std::vector<std::string> replies; // one for each line
};

Round round_of(int kind, const std::string& header, const std::string& before, const std::string& now)
{
    const std::string set = header + " " + now;
    const std::string query = header + "?";
    switch (kind % 5) {
    case 0:
        return {set + ";" + query + "\n", {now + ";+OK\r\n"}};
    case 1:
        return {set + "\n" + query + "\n", {"+OK\r\n", now + ";+OK\r\n"}};
    case 2:
        return {query + ";*IDN?;" + set + ";" + query + "\r\n",
                {before + ";" + kIdentity + ";" + now + ";+OK\r\n"}};
    case 3:
        return {":NO:SUCH?;" + set + "\n*IDN?\n" + query + "\n",
                {kUndefinedHeader + ";+OK\r\n", kIdentity + ";+OK\r\n", now + ";+OK\r\n"}};
    default:
        return {query + ";" + set + ";" + query + ";:SYST:VERS?\n", {before + ";" + now + ";1999.0;+OK\r\n"}};
    }
}

struct Played {
    std::string last; // the last value set
    size_t rounds = 0;
    std::string wrong; // the first mismatch; empty for none
};

Played play(const Instrument& instrument, const Share& share, Clock::time_point end)
{
    Client client = instrument.client();
    Played played;
    played.last = std::to_string(share.first);
    client.ask(std::string(share.header) + " " + played.last);
    while (Clock::now() < end) {
        const auto number = static_cast<int64_t>(++played.rounds);
        const std::string now = std::to_string(share.first + number % kValues);
        const Round round = round_of(static_cast<int>(number % 5), share.header, played.last, now);
        played.last = now;
        client.send(round.lines);
        for (const std::string& expected : round.replies) {
            const std::string reply = client.read_line();
            if (reply != expected) {
                played.wrong = "round " + std::to_string(number) + " sent " + round.lines + "and got " +
                               reply + "for " + expected;
                return played;
            }
        }
    }
    // No later query updates the records: they get this value from the set.
    played.last = std::to_string(share.first + kValues);
    if (const std::string reply = client.ask(share.header + (" " + played.last)); reply != "+OK\r\n") {
        played.wrong = "the last set got " + reply;
    }
    return played;
}

/** A number of the records from the JSON document. */
double number_in(const cJSON* document, int channel, const char* tag)
{
    const cJSON* const record = cJSON_GetArrayItem(cJSON_GetObjectItem(document, "channels"), channel - 1);
    return cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(record, tag));
}

} // namespace

TEST(ManyClients, GetTheirOwnRepliesAndTheRecordsMatchTheModulesInTheEnd)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    std::vector<Played> played(std::size(kShares));
    {
        const auto end = Clock::now() + duration();
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < played.size(); ++i) {
            threads.emplace_back([&, i] { played[i] = play(instrument, kShares[i], end); });
        }
    }
    for (const Played& one : played) {
        EXPECT_EQ(one.wrong, "");
        EXPECT_GT(one.rounds, 10U);
    }

    // The records first: a forwarded query would update them.
    const std::string text = orvan_db(instrument, {"--json"}).output;
    const std::unique_ptr<cJSON, void (*)(cJSON*)> document(cJSON_Parse(text.c_str()), cJSON_Delete);
    ASSERT_NE(document, nullptr) << text;
    for (size_t i = 0; i < played.size(); ++i) {
        const std::string query = std::string(kShares[i].header) + "?";
        EXPECT_EQ(instrument.ask_module(1, query), played[i].last + ";+OK") << query;
        EXPECT_EQ(number_in(document.get(), 1, kShares[i].tag), std::stod(played[i].last)) << query;
    }
    for (int channel = 2; channel <= 4; ++channel) {
        EXPECT_EQ(instrument.ask_module(channel, ":FREQ?"), "1000000000;+OK") << channel;
        EXPECT_EQ(number_in(document.get(), channel, "ODT_FREQ"), 1e9) << channel;
    }
}

// Both go to all modules, and involve the controller.
TEST(ManyClients, WaitForAnotherClientsResetAndSelfTest)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    Client other = instrument.client();
    for (const std::string command : {"*RST", "*TST"}) {
        ASSERT_EQ(instrument.ctl({"module", "3", "slow", "1500"}).status, 0);
        ASSERT_TRUE(client.send(command + "\n"));
        ASSERT_TRUE(eventually([&] {
            return instrument.ctl({"module", "3", "log"}).output.find(command) != std::string::npos;
        })) << command;
        ASSERT_TRUE(other.send(":SYST:VERS?\n"));
        EXPECT_TRUE(other.stays_silent(std::chrono::milliseconds(500))) << command;
        // A reset sends the setup that is recalled, element by element.
        ASSERT_EQ(instrument.ctl({"module", "3", "up"}).status, 0);
        EXPECT_EQ(client.read_line(), "+OK\r\n") << command;
        EXPECT_EQ(other.read_line(), "1999.0;+OK\r\n") << command;
    }
}
