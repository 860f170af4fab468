// The library's temperature poll asks for the selected channel through the raw server, while clients select
// others: every reading is recorded for the channel that it comes from.
#include <atomic>
#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "library_bench.h"
#include "scripted_instrument.h"
#include "service/standard/library_instrument.h"
#include "service/standard/standard_session.h"
#include "service_fixture.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

const std::string kPoll = ":SYST:TEMP?\r\n";

/** Calls `before` before each message. */
class Preceded : public MessageSink {
public:
    Preceded(MessageSink& sink, std::function<void(std::string_view message)> before)
        : m_sink(sink), m_before(std::move(before))
    {
    }
    void execute(int socket, char* data, size_t len) override
    {
        m_before({data, len});
        m_sink.execute(socket, data, len);
    }
    void client_lost(int socket) override { m_sink.client_lost(socket); }

private:
    MessageSink& m_sink;
    const std::function<void(std::string_view)> m_before;
};

/** Messages that begin with "<n>@" are those of standard session n; one more LF ends the response. */
class WithSessions : public MessageSink {
public:
    WithSessions(MessageSink& sink, int sessions) : m_sink(sink), m_standard(sink)
    {
        for (int i = 0; i < sessions; ++i) {
            m_sessions.emplace_back(m_standard, nullptr);
        }
    }
    void execute(int socket, char* data, size_t len) override
    {
        const std::string_view message(data, len);
        if (len < 2 || message[1] != '@') {
            m_sink.execute(socket, data, len);
            return;
        }
        StandardSession& session = m_sessions.at(static_cast<size_t>(message[0] - '0'));
        const std::string response = orvan_test::execute_in(session, message.substr(2)) + "\r\n";
        EXPECT_EQ(::write(socket, response.data(), response.size()), static_cast<ssize_t>(response.size()));
    }
    void client_lost(int socket) override { m_sink.client_lost(socket); }

private:
    MessageSink& m_sink;
    LibraryInstrument m_standard;
    std::deque<StandardSession> m_sessions;
};

class TemperatureBooking : public LibraryBench {
protected:
    TemperatureBooking()
    {
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            answers(channel, temperature(channel));
        }
    }

    /** What the module of the channel answers to everything. */
    static std::string temperature(int channel) { return std::to_string(40 + channel); }

    void expect_each_its_own()
    {
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            EXPECT_EQ(record(channel).SYSTEM.Temperature, 40 + channel) << "channel " << channel;
        }
    }
};

} // namespace

TEST_F(TemperatureBooking, APollKeepsItsChannelWhenAClientSelectsAnother)
{
    Preceded sink(instrument, [&](std::string_view message) {
        if (message == kPoll) {
            library->setSelectedChannel(3); // a client's ":INST 3" came first
        }
    });
    RunningServer server(sink);
    library->setScpiPort(server.port());
    library->getTempOrvanXForAlltheChannel(kMaxChannels);
    expect_each_its_own();
    EXPECT_EQ(module(1).connections(), 1u);
    EXPECT_EQ(module(3).connections(), 1u);
    EXPECT_EQ(library->getSelectedChannel(), 3);
}

// The same message of a client is for the selected channel, also during a poll.
TEST_F(TemperatureBooking, AClientsQueryDuringAPollIsForTheSelectedChannel)
{
    const int listener = listen_on_loopback();
    const OtherProcess client(local_port(listener), 1);
    const UniqueFd socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    ::close(listener);
    bool asked = false;
    Preceded sink(instrument, [&](std::string_view message) {
        if (message == kPoll && !asked) {
            asked = true;
            library->setSelectedChannel(3);
            std::string query = kPoll;
            instrument.execute(socket.get(), query.data(), query.size());
        }
    });
    RunningServer server(sink);
    library->setScpiPort(server.port());
    library->getTempOrvanXForAlltheChannel(kMaxChannels);
    EXPECT_EQ(client.first_line(), temperature(3) + ";+OK\r\n");
    expect_each_its_own();
}

TEST_F(TemperatureBooking, TheProcesssOwnQueryWithoutAPollIsForTheSelectedChannel)
{
    RunningServer server(instrument);
    TestClient client(server.port());
    EXPECT_EQ(client.ask(":INST 2;:SYST:TEMP?\r\n"), temperature(2) + ";+OK\r\n");
    EXPECT_EQ(client.ask(kPoll), temperature(2) + ";+OK\r\n");
}

TEST_F(TemperatureBooking, EveryReadingIsBookedToItsChannelWhateverClientsSelect)
{
    constexpr int kPolls = 400;
    WithSessions sink(instrument, 2);
    RunningServer server(sink);
    library->setScpiPort(server.port());
    std::atomic<bool> done = false;
    std::vector<std::string> wrong(4);
    std::vector<std::thread> clients;
    for (size_t number : {0u, 1u}) {
        clients.emplace_back([&, number] { // raw: selects all channels in turn
            TestClient client(server.port(), 0, "127.0.0.3");
            for (int i = static_cast<int>(number); !done; ++i) {
                if (client.ask(":INST " + std::to_string(1 + i % kMaxChannels) + '\n') != "+OK\r\n") {
                    wrong[number] = "selection failed";
                }
            }
        });
        clients.emplace_back([&, number] { // standard: channels 2 and 4
            TestClient client(server.port(), 0, "127.0.0.4");
            const std::string session = std::to_string(number) + '@';
            const int channel = number == 0 ? 2 : 4;
            client.ask(session + ":INST " + std::to_string(channel) + '\n');
            while (!done) {
                const std::string reply = client.ask(session + ":SYST:TEMP?;*ESE?;:INST?\n");
                if (reply != temperature(channel) + ";0;" + std::to_string(channel) + "\n\r\n") {
                    wrong[2 + number] = reply;
                }
            }
        });
    }
    for (int poll = 0; poll < kPolls; ++poll) {
        library->getTempOrvanXForAlltheChannel(kMaxChannels);
        expect_each_its_own();
        EXPECT_EQ(library->getTempMaxOrvanx(), 40 + kMaxChannels);
        if (HasFailure()) {
            break;
        }
    }
    done = true;
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(wrong, std::vector<std::string>(4));
}
