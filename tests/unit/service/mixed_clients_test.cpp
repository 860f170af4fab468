// Clients of all protocols at once, well-behaved and not, in front of the library: each gets its own answers,
// and its turn.
#include <algorithm>
#include <array>
#include <iostream>
#include <latch>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>

#include "library_bench.h"
#include "numbered_queries.h"
#include "service_fixture.h"
#include "support/hislip_client.h"
#include "vxi11_fixture.h"
#include "whole_front.h"

using namespace orvan_test;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

enum ClientNumber { kHislip = 1, kHislipToo, kVxi11, kVxi11Too, kRaw, kRawToo, kDead, kFlood, kClients };

constexpr int kQueries = 30;
constexpr milliseconds kCommand{12}; // longer than a step of the clock that the executor times turns with
void ask_by_raw_socket(TestClient& client, Script& script)
{
    client.send(script.next());
    script.sent();
    script.received(client.line());
}

// Every third query is given up, before its turn or in it, and cleared. Its message id is that of the next.
void ask_and_clear_by_hislip(HislipClient& client, Script& script, int turn)
{
    if (turn % 3 == 0) {
        EXPECT_EQ(client.clear(), 0);
        script.cleared();
        client.write(script.next());
        script.sent();
        if (turn % 2 == 0) {
            if (const std::string early = client.read(milliseconds(1)); early != "none") {
                script.received(early);
            }
        } else {
            script.wait_for_turn();
        }
        EXPECT_EQ(client.clear(), 0);
        script.cleared();
    }
    client.write(script.next());
    script.sent();
    script.received(client.read());
}

// Every third query is interrupted by the next.
void ask_and_interrupt_by_hislip(HislipClient& client, Script& script, int turn)
{
    if (turn % 3 == 0) {
        client.write(script.next());
        script.sent();
    }
    client.write(script.next());
    script.sent();
    script.received(client.read());
}

// Every third query is read too early at first, and every other of them cleared then.
void ask_by_vxi11(Vxi11Client& client, Script& script, int turn)
{
    EXPECT_EQ(client.write(script.next()).error, 0);
    script.sent();
    if (turn % 3 == 0) {
        if (turn % 4 == 0) {
            script.wait_for_turn();
        }
        const ReadResult early = client.read(0);
        if (early.error == 0) {
            script.received(early.data);
            return;
        }
        EXPECT_EQ(early.error, 15);
        if (turn % 2 == 0) {
            EXPECT_EQ(client.act(DEVICE_CLEAR), 0);
            script.cleared();
            return;
        }
    }
    script.received(client.read().data);
}

enum class Protocol { kRaw, kHislip, kVxi11 };

std::ostream& operator<<(std::ostream& out, Protocol protocol)
{
    return out << std::array{"Raw", "Hislip", "Vxi11"}[static_cast<size_t>(protocol)];
}

struct BadClients {
    Protocol dead;
    Protocol flood;
};

class MixedClients : public LibraryBench, public ::testing::WithParamInterface<BadClients> {
protected:
    MixedClients()
    {
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            module(channel).always(ModuleAnswer::reply_made([channel](const std::string& request) {
                std::this_thread::sleep_for(kCommand); // the command's duration
                return std::to_string(number_in(request)) + '.' + std::to_string(channel) + ";+OK\r\n";
            }));
        }
    }

    /** Asks a query, never reads the answer, and stops within the next message. */
    void die(Protocol protocol)
    {
        const std::string query = kQuery + std::to_string(kDead * kNumbersOfAClient + 1) + '\n';
        switch (protocol) {
        case Protocol::kRaw:
            m_dead_raw = std::make_unique<TestClient>(front.raw_port);
            m_dead_raw->send(query + query.substr(0, 5));
            break;
        case Protocol::kHislip:
            m_dead_hislip = std::make_unique<HislipClient>(front.hislip_port);
            m_dead_hislip->write(query);
            m_dead_hislip->sync().send_bytes(HislipFrame{7, 0, 0xFFFF'FF02, query}.bytes().substr(0, 20));
            break;
        case Protocol::kVxi11:
            m_dead_vxi11 = std::make_unique<Vxi11Client>(front.vxi11_port());
            EXPECT_EQ(m_dead_vxi11->create().error, 0);
            EXPECT_EQ(m_dead_vxi11->write(query).error, 0);
            EXPECT_EQ(m_dead_vxi11->write(query.substr(0, 5), 0).error, 0);
            m_dead_raw = std::make_unique<TestClient>(front.vxi11_port());
            m_dead_raw->send(std::string("\x80\0\0\x40\0\0", 6)); // a call's first bytes
            break;
        }
    }

    /** Sends queries as fast as it can and reads nothing, until shut down. */
    static void flood(int socket, Protocol protocol)
    {
        std::string bytes;
        uint32_t id = HislipClient::kFirstId;
        for (int number = kFlood * kNumbersOfAClient + 1; client_of(number) == kFlood; ++number) {
            bytes += protocol == Protocol::kHislip
                         ? HislipFrame{7, 0, id, kQuery + std::to_string(number)}.bytes()
                         : kQuery + std::to_string(number) + '\n';
            id += 2;
            if (bytes.size() > 4096) {
                const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
                if (sent <= 0) {
                    return;
                }
                bytes.erase(0, static_cast<size_t>(sent));
            }
        }
    }

    Script& script(ClientNumber client, int channel, const std::string& end)
    {
        return *m_scripts.emplace_back(std::make_unique<Script>(client, channel, end, turns));
    }

    /** Starts a client whose `ask` is called until the queries are done. */
    template <class Ask>
    void start(Ask ask)
    {
        m_threads.emplace_back([this, ask] {
            m_begin.arrive_and_wait();
            const auto deadline = Clock::now() + std::chrono::seconds(40);
            for (int turn = 0; turn < kQueries && Clock::now() < deadline; ++turn) {
                ask(turn);
            }
        });
    }

    void join()
    {
        for (auto& thread : m_threads) {
            thread.join();
        }
    }

    /** Checks that each query's turn came after at most one of each other client's. */
    void expect_fair_turns()
    {
        const std::vector<int> order = turns.numbers();
        ptrdiff_t longest = 0;
        for (const auto& one : m_scripts) {
            for (const auto& [number, before] : one->turns_before()) {
                const auto place = std::find(order.begin(), order.end(), number);
                if (place == order.end()) {
                    continue; // cleared before its turn
                }
                const auto begin = begin_of_wait(number, std::min(order.begin() + before, place), place);
                std::array<int, kClients> had_turns{};
                std::string waited_for;
                for (auto turn = begin; turn != place; ++turn) {
                    ++had_turns.at(static_cast<size_t>(client_of(*turn)));
                    waited_for += ' ' + std::to_string(*turn);
                }
                // After a device clear a session gets its turns again at the end of a round only.
                EXPECT_LE(*std::max_element(had_turns.begin(), had_turns.end()),
                          one->follows_clear(number) ? 2 : 1)
                    << number << " waited for" << waited_for;
                longest = std::max(longest, place - begin);
            }
        }
        Clock::duration longest_time{0};
        for (const auto& one : m_scripts) {
            longest_time = std::max(longest_time, one->longest());
        }
        const auto flooding =
            std::count_if(order.begin(), order.end(), [](int number) { return client_of(number) == kFlood; });
        EXPECT_GE(flooding, kQueries);
        std::cout << "longest wait: " << longest << " turns of " << kCommand.count() << " ms, "
                  << std::chrono::duration_cast<milliseconds>(longest_time).count() << " ms; " << order.size()
                  << " queries, " << flooding << " of them of the flood\n";
    }

    void expect_right_answers()
    {
        for (const auto& one : m_scripts) {
            EXPECT_EQ(one->wrong(), std::vector<std::string>());
            EXPECT_EQ(one->stale(), std::vector<std::string>());
            EXPECT_GE(one->right(), kQueries * 2 / 3);
        }
    }

    Turns turns{instrument};
    WholeFront front{turns};

private:
    /** The turns after the one of the client's own query before it, for which `number` had to wait, too. */
    using Turn = std::vector<int>::const_iterator;
    static Turn begin_of_wait(int number, Turn sent, Turn place)
    {
        return std::find_if(std::reverse_iterator(place), std::reverse_iterator(sent),
                            [&](int other) { return client_of(other) == client_of(number); })
            .base();
    }

    std::latch m_begin{kRawToo};
    std::vector<std::unique_ptr<Script>> m_scripts;
    std::vector<std::thread> m_threads;
    std::unique_ptr<TestClient> m_dead_raw;
    std::unique_ptr<HislipClient> m_dead_hislip;
    std::unique_ptr<Vxi11Client> m_dead_vxi11;
};

} // namespace

TEST_P(MixedClients, EachGetsItsOwnAnswersAndItsTurn)
{
    HislipClient hislip(front.hislip_port);
    HislipClient hislip_too(front.hislip_port);
    Vxi11Client vxi11(front.vxi11_port());
    Vxi11Client vxi11_too(front.vxi11_port());
    TestClient raw(front.raw_port);
    TestClient raw_too(front.raw_port);
    EXPECT_EQ(hislip.ask(":INST 2;:INST?"), "2\n");
    EXPECT_EQ(hislip_too.ask(":INST 3;:INST?"), "3\n");
    ASSERT_EQ(vxi11.create().error, 0);
    ASSERT_EQ(vxi11_too.create().error, 0);
    EXPECT_EQ(vxi11_too.ask(":INST 4;:INST?"), "4\n");

    die(GetParam().dead);
    const bool by_hislip = GetParam().flood == Protocol::kHislip;
    TestClient flooding(front.raw_port, 4096);
    HislipClient flooding_hislip(front.hislip_port);
    const int socket = by_hislip ? flooding_hislip.sync().fd() : flooding.fd();
    std::thread flooder([&] { flood(socket, GetParam().flood); });

    start([&, &mine = script(kHislip, 2, "\n")](int turn) { ask_and_clear_by_hislip(hislip, mine, turn); });
    start([&, &mine = script(kHislipToo, 3, "\n")](int turn) {
        ask_and_interrupt_by_hislip(hislip_too, mine, turn);
    });
    start([&, &mine = script(kVxi11, 1, "\n")](int turn) { ask_by_vxi11(vxi11, mine, turn); });
    start([&, &mine = script(kVxi11Too, 4, "\n")](int turn) { ask_by_vxi11(vxi11_too, mine, turn + 1); });
    start([&, &mine = script(kRaw, 1, ";+OK\r\n")](int) { ask_by_raw_socket(raw, mine); });
    start([&, &mine = script(kRawToo, 1, ";+OK\r\n")](int) { ask_by_raw_socket(raw_too, mine); });
    join();
    ::shutdown(socket, SHUT_RDWR);
    flooder.join();
    expect_right_answers();
    expect_fair_turns();
}

INSTANTIATE_TEST_SUITE_P(OneDeadOneFlooding, MixedClients,
                         ::testing::Values(BadClients{Protocol::kRaw, Protocol::kHislip},
                                           BadClients{Protocol::kHislip, Protocol::kRaw},
                                           BadClients{Protocol::kVxi11, Protocol::kRaw}),
                         [](const auto& bad) {
                             std::ostringstream name;
                             name << bad.param.dead << "Dead" << bad.param.flood << "Flooding";
                             return name.str();
                         });
