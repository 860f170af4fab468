// The library as standard sessions use it.
#include <array>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

#include "library_bench.h"
#include "scripted_instrument.h"
#include "service/standard/library_instrument.h"
#include "service/standard/standard_session.h"
#include "service_fixture.h"
#include "support/loopback.h"
#include "support/output_capture.h"
#include "support/recording_device.h"

using namespace orvan_service;
using namespace orvan_test;
using Texts = std::vector<std::string>;

namespace {

class LibraryInstrumentTest : public LibraryBench {
protected:
    std::string execute(int& channel, std::string message) { return standard.execute(channel, message); }
    std::string execute(std::string message)
    {
        int channel = 1;
        return standard.execute(channel, message);
    }

    LibraryInstrument standard{instrument};
};

/** A session on it. */
class StandardLibraryTest : public LibraryInstrumentTest {
protected:
    std::string ask(std::string_view message) { return execute_in(session, message); }
    int error() { return session.status().take_error().number; }

    StandardSession session{standard, {}};
};

void write_all(int socket, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(socket, bytes.data(), bytes.size());
        if (written < 0) {
            return;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

} // namespace

TEST_F(LibraryInstrumentTest, MessagesGoToTheChannelOfTheirSession)
{
    answers(2, "22");
    answers(3, "33");
    int channel = 2;
    EXPECT_EQ(execute(channel, ":FREQ?\n"), "22;+OK\r\n");
    EXPECT_EQ(channel, 2);
    EXPECT_EQ(execute(channel, ":INST 3;:FREQ?\n"), "33;+OK\r\n");
    EXPECT_EQ(channel, 3);
    EXPECT_EQ(library->getSelectedChannel(), 1) << "the one of all raw clients";
    EXPECT_EQ(module(1).connections(), 0u);
    EXPECT_TRUE(record(1).CHANNEL.Enabled);
    EXPECT_FALSE(record(3).CHANNEL.Enabled);
}

TEST_F(LibraryInstrumentTest, ItsMessagesAreNoneOfTheInstrumentsOwn)
{
    const TcpPair own;
    std::string command = ":STAT:PRES\n";
    instrument.execute(own.server(), command.data(), command.size());
    EXPECT_FALSE(library->isExternalCommand());
    EXPECT_EQ(execute(":STAT:PRES\n"), "+OK\r\n");
    EXPECT_TRUE(library->isExternalCommand());
}

TEST_F(LibraryInstrumentTest, TheLibraryFindsNoFaultWithItsSocket)
{
    const OutputCapture errors(STDERR_FILENO); // where it reports those
    EXPECT_EQ(execute(":STAT:OPER:ENAB?\n"), "0;+OK\r\n");
    EXPECT_EQ(errors.text(), "");
}

TEST(LibraryInstrumentReplies, OfAnySizeAreReceivedWhole)
{
    std::string reply;
    RecordingSink sink([&](int socket, const std::string&) { write_all(socket, reply); });
    LibraryInstrument standard(sink);
    int channel = 1;
    for (const size_t size : {0u, 1u, 15u, 16u, 17u, 2047u, 2048u, 4096u, 4097u, 65536u, 131072u}) {
        for (const char* unit : {"x", "\n", "end of reply\4"}) {
            reply.clear();
            while (reply.size() < size) {
                reply += unit;
            }
            std::string message = "\n";
            EXPECT_EQ(standard.execute(channel, message), reply);
        }
    }
    EXPECT_EQ(sink.messages().size(), 33u);
}

// Nobody reads while the library writes.
TEST(LibraryInstrumentReplies, ThatFitInNoBufferAreCutShortAndTheNextIsWhole)
{
    std::string reply(8u << 20, 'x');
    RecordingSink sink([&](int socket, const std::string&) { write_all(socket, reply); });
    LibraryInstrument standard(sink);
    int channel = 1;
    std::string message = "\n";
    const std::string received = standard.execute(channel, message);
    EXPECT_GT(received.size(), 100'000u);
    EXPECT_LT(received.size(), reply.size());
    EXPECT_EQ(received.find_first_not_of('x'), std::string::npos);
    reply = "next";
    EXPECT_EQ(standard.execute(channel, message), "next");
}

TEST_F(StandardLibraryTest, ResultsAreDataOnly)
{
    answers(1, "1000000000;-3");
    EXPECT_EQ(ask(":FREQ?;:POW?;*ESE?;:INST?;:STAT:OPER:ENAB 5;:STAT:OPER:ENAB?\n"), "1000000000;-3;0;1;5\n");
    module(1).always(ModuleAnswer::reply("+OK\r\n"));
    EXPECT_EQ(ask(":FREQ 1;*CLS\n"), "");
}

TEST_F(StandardLibraryTest, StringsOfAModuleMayContainAnything)
{
    for (const std::string text : {R"("a;b")", R"("a;""-ERR;""b")", R"("-ERR -113")", R"("it's;+O")"}) {
        answers(1, text + ";2");
        EXPECT_EQ(ask(":SYST:FILE:CAT:LIST?;:FREQ?;*ESE?"), text + ";2;0\n");
    }
    EXPECT_EQ(session.status().errors(), 0u);
}

TEST_F(StandardLibraryTest, ErrorsOfTheLibraryAndOfTheModuleGoToTheQueue)
{
    module(1).then(ModuleAnswer::reply("-ERR -222, \"Data out of range\";5;+OK\r\n"));
    EXPECT_EQ(ask(":FREQ 1E99;:FREQ?;:FOO;1X;:STAT:OPER:ENAB;:INST?"), "5;1\n");
    EXPECT_EQ(error(), -222);
    EXPECT_EQ(error(), -113);
    EXPECT_EQ(error(), -102);
    EXPECT_EQ(error(), -109);
    EXPECT_EQ(error(), 0);
    EXPECT_EQ(session.status().take_events(), kEventCommandError | kEventExecutionError);
}

TEST_F(StandardLibraryTest, ErrorsOfTheLinkHaveNumbers)
{
    const int closed = listen_on_loopback();
    const auto port = library->m_OrvanXport[1];
    library->m_OrvanXport[1] = static_cast<uint32_t>(local_port(closed));
    ::close(closed);
    EXPECT_EQ(ask(":INST 2;:FREQ?;:INST?"), "2\n");
    EXPECT_EQ(error(), -241);
    library->m_OrvanXport[1] = port;
    module(2).then(ModuleAnswer::reset());
    module(2).then(ModuleAnswer::reset());
    EXPECT_EQ(ask(":FREQ?;:INST?;:FREQ?"), "2\n");
    EXPECT_EQ(error(), -360);
    EXPECT_EQ(error(), -360);
    EXPECT_EQ(error(), 0);
    EXPECT_EQ(session.status().take_events(), kEventExecutionError | kEventDeviceError);
}

TEST_F(StandardLibraryTest, ThePathIsCarriedOverACommandOfTheSession)
{
    EXPECT_EQ(ask(":SOUR:FREQ 1;*ESE?;POW 2;PHAS 3;*TRG;FREQ 4"), "0\n");
    EXPECT_EQ(session.status().errors(), 0u) << session.status().take_error().text;
    EXPECT_EQ(record(1).ANALOGOUTPUT.Power, 2.0);
    EXPECT_EQ(record(1).ANALOGOUTPUT.Frequency, 4.0);
    EXPECT_EQ(ask("SYST:ERR?;VERS?;ERR:COUN?"), "0,\"No error\";1999.0;0\n");
}

TEST_F(StandardLibraryTest, TextOfAsManyBytesAsTheBufferHasIsWhole)
{
    for (size_t size = 2040; size <= 2048; ++size) {
        const std::string text = '"' + std::string(size - 2, ';') + '"';
        answers(1, text);
        EXPECT_EQ(ask(":FREQ?;*ESE?"), text + ";0\n") << size;
    }
    EXPECT_EQ(session.status().errors(), 0u);
}

TEST_F(StandardLibraryTest, BlocksOfAnySizeAreWholeAmongOtherResults)
{
    RecordingDevice device;
    library->setDevicePtr(&device);
    for (const size_t size : {2u, 10u, 2040u, 2041u, 2042u, 2043u, 2044u, 4090u, 8186u, 65530u, 65536u}) {
        device.option_table.assign(size, ';');
        device.option_table.replace(0, 1, "\n");
        device.option_table.replace(size - 1, 1, ",");
        const std::string length = std::to_string(size);
        const std::string block = "#" + std::to_string(length.size()) + length + device.option_table;
        EXPECT_EQ(ask(":INST?;:INT:INF:DEV:OPT?;*ESE?;:INST?;:SYST:VERS?"), "1;" + block + ";0;1;1999.0\n");
        EXPECT_EQ(ask("INF:DEV:OPT?;OPT?;FOO"), block + ';' + block + '\n');
        EXPECT_EQ(error(), -113);
    }
    library->setDevicePtr(nullptr);
}

TEST_F(StandardLibraryTest, ABlockWithLineFeedsReachesTheModule)
{
    const std::string block("#18\n;\"\0\r\n(;", 11);
    const std::string request = ":LIST:DATA " + block + ";\r\n";
    module(1).then(ModuleAnswer::reply_to_block(request.size(), "+OK\r\n"));
    EXPECT_EQ(ask(":INST?;:LIST:DATA " + block + ";*ESE?\n"), "1;0\n");
    EXPECT_EQ(session.status().errors(), 0u);
    EXPECT_EQ(module(1).requests(), Texts{request});
}

// The library would wait for its rest, and the next message would be taken for that.
TEST_F(StandardLibraryTest, AnIncompleteBlockLeavesTheParserFree)
{
    for (const char* unit : {":LIST:DATA #3100ab", "1X #15ab", "*ESE #9", ":NO:SUCH 1,#212"}) {
        EXPECT_EQ(ask(std::string(":INST?;") + unit), "1\n");
        EXPECT_LT(error(), 0) << unit;
        EXPECT_EQ(ask(":INST?"), "1\n");
    }
    EXPECT_EQ(session.status().errors(), 0u);
}

TEST_F(StandardLibraryTest, WhatIsOpenAtTheEndOfAMessageIsAnError)
{
    EXPECT_EQ(ask(":FREQ \"open;:INST?\n"), "");
    EXPECT_EQ(error(), -151);
    EXPECT_EQ(ask(":FREQ (open;:INST?"), "");
    EXPECT_EQ(error(), -171);
    EXPECT_EQ(ask(":INST?"), "1\n");
}

TEST_F(StandardLibraryTest, StatusOfTheModuleIsAskedFor)
{
    module(1).then(ModuleAnswer::reply("136;+OK\r\n"));
    module(1).then(ModuleAnswer::reply("4;+OK\r\n"));
    module(1).then(ModuleAnswer::reply("-222,\"Data out of range;too high\";+OK\r\n"));
    module(1).then(ModuleAnswer::reply("1;+OK\r\n"));
    EXPECT_EQ(ask("*ESR?;*STB?;:SYST:ERR?;*OPC?"), "136;4;-222,\"Data out of range;too high\";1\n");
    EXPECT_EQ(module(1).requests(), (Texts{"*ESR?;\r\n", "*STB?;\r\n", ":SYST:ERR?;\r\n", "*OPC?;\r\n"}));
}

// Two sessions in turn, and a raw client that keeps selecting other channels between them.
TEST_F(LibraryInstrumentTest, TenThousandSettingsOfTwoSessionsAreNotCrossed)
{
    constexpr int kMessages = 1000;
    constexpr int kSettings = 10; // in each
    std::array<StandardSession, 2> sessions{StandardSession(standard, {}), StandardSession(standard, {})};
    execute_in(sessions[0], ":INST 2");
    execute_in(sessions[1], ":INST 3");
    std::array<int, 2> wrong{};
    std::array<int, 2> received{};
    for (const int i : {0, 1}) {
        module(2 + i).on_request([&, i](const std::string& request) {
            const std::string own = ":FREQ " + std::to_string(i + 1);
            for (size_t at = 0; (at = request.find(":FREQ ", at)) != std::string::npos; ++at) {
                ++received[static_cast<size_t>(i)];
                wrong[static_cast<size_t>(i)] += request.compare(at, own.size(), own) != 0 ? 1 : 0;
            }
        });
    }
    TcpPair raw("127.0.0.3");
    for (int count = 0; count < kMessages; ++count) {
        for (const int i : {0, 1}) {
            std::string message;
            for (int setting = 0; setting < kSettings; ++setting) {
                message +=
                    ":FREQ " + std::to_string(i + 1) + std::to_string(10000 + count * kSettings + setting);
                message += setting == 1 ? ";*ESE 1;" : ";";
            }
            ASSERT_EQ(execute_in(sessions[static_cast<size_t>(i)], message), "");
            std::string select = ":INST " + std::to_string(1 + (count + i) % 4) + '\n';
            instrument.execute(raw.server(), select.data(), select.size());
        }
        read_ready(raw.client());
    }
    const std::string last = std::to_string(10000 + kMessages * kSettings - 1);
    for (const int i : {0, 1}) {
        EXPECT_EQ(received[static_cast<size_t>(i)], kMessages * kSettings);
        EXPECT_EQ(wrong[static_cast<size_t>(i)], 0);
        EXPECT_EQ(record(2 + i).ANALOGOUTPUT.Frequency, std::stod(std::to_string(i + 1) + last));
        EXPECT_EQ(sessions[static_cast<size_t>(i)].status().errors(), 0u);
    }
    EXPECT_EQ(module(1).connections() + module(4).connections(), 0u);
}
