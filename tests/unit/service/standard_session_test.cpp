// A session over an instrument that records its messages and gives scripted replies.
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "scripted_instrument.h"
#include "service/standard/standard_session.h"

using namespace orvan_service;
using orvan_test::execute_in;
using Texts = std::vector<std::string>;

namespace {

class ScriptedInstrument : public StandardInstrument {
public:
    std::string execute(int& channel, std::span<char> line) override
    {
        std::string message(line.data(), line.size());
        EXPECT_TRUE(message.ends_with('\n'));
        message.pop_back();
        messages.push_back(std::to_string(channel) + ' ' + message);
        if (message.starts_with(":INST ")) {
            channel = message.back() - '0';
        }
        const auto reply = replies.find(message);
        return reply == replies.end() ? "+OK\r\n" : reply->second;
    }

    std::map<std::string, std::string> replies;
    Texts messages;
};

class StandardSessionTest : public ::testing::Test {
protected:
    std::string execute(std::string_view message) { return execute_in(session, message); }
    std::vector<int> errors()
    {
        std::vector<int> numbers;
        while (session.status().errors() != 0) {
            numbers.push_back(session.status().take_error().number);
        }
        return numbers;
    }
    void reply(const std::string& message, const std::string& reply) { instrument.replies[message] = reply; }

    ScriptedInstrument instrument;
    std::vector<uint8_t> requests;
    StandardSession session{instrument, [this](uint8_t status) { requests.push_back(status); }};
};

const std::string kSilent = "-ERR Receive timeout;+OK\r\n";

} // namespace

TEST_F(StandardSessionTest, AMessageWithoutAQueryHasNoResponse)
{
    EXPECT_EQ(execute(":FREQ 1GHz\n"), "");
    EXPECT_EQ(execute("*CLS;*ESE 1;*SRE 1;*OPC;*WAI"), "");
    EXPECT_EQ(execute("\n"), "");
    EXPECT_EQ(execute(""), "");
    EXPECT_EQ(errors(), std::vector<int>{});
}

TEST_F(StandardSessionTest, AResponseIsTheDataOnly)
{
    reply(":FREQ 1;:FREQ?;:POW?", "1000000000;-3;+OK\r\n");
    EXPECT_EQ(execute(":FREQ 1;:FREQ?;:POW?\n"), "1000000000;-3\n");
    EXPECT_EQ(instrument.messages, Texts{"1 :FREQ 1;:FREQ?;:POW?"});
}

TEST_F(StandardSessionTest, ResultsOfTheSessionAndOfTheInstrumentAreJoined)
{
    reply(":FREQ?", "5;+OK\r\n");
    reply(":POW?;:PHAS?", "6;7;+OK\r\n");
    EXPECT_EQ(execute("*ESE?;:FREQ?;*SRE?;:POW?;:PHAS?;*ESE 3;*ESE?\n"), "0;5;0;6;7;3\n");
}

TEST_F(StandardSessionTest, ErrorsGoToTheQueueAndTheRestIsExecuted)
{
    reply(":FOO", "-ERR -113, \"Undefined header\";+OK\r\n");
    reply(":FREQ?;:BAR?;:POW?", "5;-ERR -222, \"Data out of range\";6;+OK\r\n");
    EXPECT_EQ(execute(":FOO;*ESE?;:FREQ?;:BAR?;:POW?\n"), "0;5;6\n");
    EXPECT_EQ(execute(":SYST:ERR:COUN?"), "2\n");
    EXPECT_EQ(execute(":SYST:ERR?"), "-113,\"Undefined header\"\n");
    EXPECT_EQ(execute(":SYST:ERR?"), "-222,\"Data out of range\"\n");
    EXPECT_EQ(session.status().take_events(), kEventCommandError | kEventExecutionError);
}

TEST_F(StandardSessionTest, AnIncompleteBlockIsAnErrorAndWhatIsBeforeItIsExecuted)
{
    EXPECT_EQ(execute(":FREQ 1;:LIST:DATA #3100abc\n"), "");
    EXPECT_EQ(instrument.messages, Texts{"1 :FREQ 1"});
    EXPECT_EQ(errors(), std::vector<int>{-161});
}

TEST_F(StandardSessionTest, EachSessionHasItsChannel)
{
    StandardSession other(instrument, {});
    execute(":INST 3");
    execute(":FREQ 1;*ESR?;:FREQ 2");
    execute_in(other, ":FREQ 3");
    EXPECT_EQ(instrument.messages, (Texts{"1 :INST 3", "3 :FREQ 1", "3 *ESR?", "3 :FREQ 2", "1 :FREQ 3"}));
}

TEST_F(StandardSessionTest, TheRestOfAClearedMessageIsDropped)
{
    reply(":FREQ?", "5;+OK\r\n");
    int left = 2;
    EXPECT_EQ(execute_in(session, ":FREQ?;*ESE 1;:POW 1;*ESE 2\n", [&] { return left-- > 0; }), "");
    EXPECT_EQ(instrument.messages, Texts{"1 :FREQ?"});
    EXPECT_EQ(session.status().event_enable(), 1);
}

TEST_F(StandardSessionTest, ErrorsOfTheModuleFollowThoseOfTheSession)
{
    session.status().add(-113);
    reply(":SYST:ERR?", "-222,\"Data out of range\";+OK\r\n");
    reply(":SYST:ERR:COUN?", "3;+OK\r\n");
    EXPECT_EQ(execute("SYST:ERR:COUN?"), "4\n");
    EXPECT_EQ(execute("SYST:ERR?;ERR?"), "-113,\"Undefined header\";-222,\"Data out of range\"\n");
    reply(":SYST:ERR?", "0,\"No error\";+OK\r\n");
    EXPECT_EQ(execute(":SYST:ERR:NEXT?"), "0,\"No error\"\n");
    EXPECT_EQ(execute("*ESR?"), "32\n") << "reading an error of the module is none";
}

// Otherwise a client that reads errors until there are none would never end.
TEST_F(StandardSessionTest, AModuleThatCannotBeAskedForErrorsHasNone)
{
    reply(":SYST:ERR?", kSilent);
    reply(":SYST:ERR:COUN?", kSilent);
    EXPECT_EQ(execute(":SYST:ERR?"), "0,\"No error\"\n");
    EXPECT_EQ(execute(":SYST:ERR:COUN?"), "0\n");
    EXPECT_EQ(errors(), std::vector<int>{});
    session.status().add(-113);
    EXPECT_EQ(execute(":SYST:ERR:COUN?;:SYST:ERR?"), "1;-113,\"Undefined header\"\n");
}

TEST_F(StandardSessionTest, AllErrorsOfTheSessionAreReadAtOnceWithoutTheModule)
{
    EXPECT_EQ(execute(":SYST:ERR:SESS?"), "0,\"No error\"\n");
    session.status().add(-113);
    session.status().add(-222);
    session.status().add({-241, "Hardware missing;Unable to connect"});
    EXPECT_EQ(execute("*ESE?;:SYST:ERR:SESS?;*ESE?"),
              "0;-113,\"Undefined header\",-222,\"Data out of range\",-241,\"Hardware missing;Unable to "
              "connect\";0\n");
    EXPECT_EQ(execute(":SYSTEM:ERROR:SESSION?"), "0,\"No error\"\n");
    EXPECT_EQ(execute(":SYST:ERR:SESS? 1"), "");
    EXPECT_EQ(errors(), std::vector<int>{-108});
    EXPECT_EQ(instrument.messages, Texts{});
}

TEST_F(StandardSessionTest, TheEventStatusIsThatOfTheSessionAndOfTheModule)
{
    session.status().add(-113);
    reply("*ESR?", "129;+OK\r\n");
    EXPECT_EQ(execute("*ESR?"), "161\n");
    reply("*ESR?", "+0;+OK\r\n");
    EXPECT_EQ(execute("*ESR?"), "0\n");
    reply("*ESR?", kSilent);
    EXPECT_EQ(execute("*ESR?"), "8\n") << "the time-out is an error of its own";
    EXPECT_EQ(errors(), (std::vector<int>{-113, -365}));
}

TEST_F(StandardSessionTest, TheStatusByteIsThatOfTheSessionAndOfTheModule)
{
    reply("*STB?", "140;+OK\r\n");
    EXPECT_EQ(execute("*SRE 8;*STB?"), "204\n");
    EXPECT_EQ(session.status().serial_poll(), 204) << "as last seen";
    EXPECT_EQ(session.status().serial_poll(), 140);
    EXPECT_EQ(requests, std::vector<uint8_t>{204});
    reply("*STB?", "0;+OK\r\n");
    EXPECT_EQ(execute("*STB?"), "0\n");
}

TEST_F(StandardSessionTest, ClearReachesTheModuleToo)
{
    session.status().add(-113);
    session.status().set_module_status(0x8F);
    EXPECT_EQ(execute("*CLS"), "");
    EXPECT_EQ(instrument.messages, Texts{"1 *CLS"});
    EXPECT_EQ(session.status().status_byte(), 0);
    EXPECT_EQ(session.status().take_events(), 0);
    reply("*CLS", kSilent);
    execute("*CLS");
    EXPECT_EQ(errors(), std::vector<int>{-365}) << "the module was not cleared";
}

TEST_F(StandardSessionTest, OperationsAreCompleteWhenTheModuleSaysSo)
{
    reply("*OPC?", "1;+OK\r\n");
    EXPECT_EQ(execute("*OPC?"), "1\n");
    EXPECT_EQ(execute("*OPC"), "");
    EXPECT_EQ(session.status().take_events(), kEventOperationComplete);
    EXPECT_EQ(execute("*WAI"), "");
    EXPECT_EQ(session.status().take_events(), 0);
    EXPECT_EQ(instrument.messages, Texts(3, "1 *OPC?"));
    reply("*OPC?", kSilent);
    EXPECT_EQ(execute("*OPC?;*WAI"), "1\n");
    EXPECT_EQ(errors(), (std::vector<int>{-365, -365}));
}

TEST_F(StandardSessionTest, ParametersWhereNoneMayBeAreAnError)
{
    for (const char* command : {"*CLS", "*ESE?", "*ESR?", "*OPC", "*OPC?", "*SRE?", "*STB?", "*WAI",
                                ":SYST:ERR?", ":SYST:ERR:COUN?"}) {
        EXPECT_EQ(execute(std::string(command) + " 1"), "");
        EXPECT_EQ(errors(), std::vector<int>{-108}) << command;
    }
    EXPECT_EQ(instrument.messages, Texts{});
}

TEST_F(StandardSessionTest, AnEnableRegisterTakesANumberOfOneByte)
{
    struct Row {
        const char* text;
        int value;
    };
    for (const Row& row : {Row{"0", 0}, Row{"255", 255}, Row{"+32", 32}, Row{"3.2E1", 32}, Row{"31.5", 32},
                           Row{"254.4", 254}, Row{"255.4", 255}, Row{"#H20", 32}, Row{"#B101", 5},
                           Row{"  16\t", 16}, Row{".4", 0}, Row{"-0.4", 0}}) {
        EXPECT_EQ(execute("*ESE 1;*SRE 1;*ESE " + std::string(row.text) + ";*SRE " + row.text), "");
        EXPECT_EQ(execute("*ESE?;*SRE?"),
                  std::to_string(row.value) + ';' + std::to_string(row.value & ~64) + '\n')
            << row.text;
        EXPECT_EQ(errors(), std::vector<int>{}) << row.text;
    }
    EXPECT_EQ(instrument.messages, Texts{});
}

TEST_F(StandardSessionTest, AnEnableRegisterRefusesAnythingElse)
{
    struct Row {
        const char* text;
        int error;
    };
    execute("*ESE 7;*SRE 7");
    for (const Row& row : {Row{"", -109}, Row{" ", -109}, Row{" 256", -222}, Row{" -1", -222},
                           Row{" 255.5", -222}, Row{" 1E3", -222}, Row{" 1E99", -222}, Row{" 1,2", -108},
                           Row{" \"1\"", -158}, Row{" #11a", -168}}) {
        for (const char* header : {"*ESE", "*SRE"}) {
            EXPECT_EQ(execute(std::string(header) + row.text), "");
            EXPECT_EQ(errors(), std::vector<int>{row.error}) << header << row.text;
        }
    }
    for (const char* text : {" 0x10", " inf", " nan", " ON", " 1 2", " 1V", " ,", " 1,", " 1e"}) {
        EXPECT_EQ(execute("*ESE" + std::string(text)), "");
        EXPECT_EQ(errors().size(), 1u) << text;
    }
    EXPECT_EQ(execute("*ESE?;*SRE?"), "7;7\n");
}

TEST_F(StandardSessionTest, ARequestComesWhenAnErrorIsQueued)
{
    reply(":FOO", "-ERR -113, \"Undefined header\";+OK\r\n");
    execute("*SRE 4;:FOO");
    EXPECT_EQ(requests, std::vector<uint8_t>{kStatusErrorAvailable | kStatusRequest});
}

TEST_F(StandardSessionTest, ABlockIsPassedUntouched)
{
    const std::string block("#18;\r\n\0+OK\0", 11);
    reply(":INF:DEV:OPT?", block + "+OK\r\n");
    reply(":FREQ?", "5;+OK\r\n");
    EXPECT_EQ(execute(":FREQ?;:INF:DEV:OPT?;:FREQ?"), "5;" + block + ";5\n");
}
