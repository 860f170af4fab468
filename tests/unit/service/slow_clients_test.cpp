// Clients that stall, do not read or hold memory must not affect the others.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "hostile_clients.h"
#include "support/log_capture.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

// As the library sends a reply: blocking writes until all is sent or one fails.
bool write_all(int socket, const std::string& reply)
{
    for (size_t sent = 0; sent < reply.size();) {
        const ssize_t n = ::write(socket, reply.data() + sent, reply.size() - sent);
        if (n < 0) {
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    return true;
}

} // namespace

TEST(HostileClients, AClientThatNeverEndsItsLineDelaysNoOther)
{
    RecordingSink sink;
    RunningServer server(sink);
    TestClient endless(server.port());
    endless.send(std::string(200'000, 'x'));
    TestClient silent(server.port());
    expect_good_service(server.port());
    // Nor does a message beyond the limit that continues.
    endless.send(std::string(0x300000, 'x'));
    EXPECT_EQ(endless.line(), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    endless.send(std::string(0x300000, 'x'));
    expect_good_service(server.port());
    EXPECT_EQ(endless.ask("\n*IDN?\n"), "*IDN?;+OK\r\n");
}

// The sink's writes must not even come close to blocking: a client without room gets no turn.
TEST(HostileClients, AClientThatReadsLateBlocksNoTurnAndGetsEveryReply)
{
    constexpr int kMessages = 3000;
    const std::string filler(1990, 'r');
    std::atomic<int> blocked = 0;
    std::atomic<int> answered = 0;
    RecordingSink sink([&](int socket, const std::string& message) {
        const std::string reply = message.substr(0, message.size() - 1) + filler + ";+OK\r\n";
        const ssize_t n = ::send(socket, reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        blocked += n != static_cast<ssize_t>(reply.size()) ? 1 : 0;
        ++answered;
    });
    ServerLimits limits;
    limits.raw.reply_patience = std::chrono::seconds(60);
    RunningServer server(sink, limits);
    TestClient late(server.port(), 4096);
    std::thread sender([&] {
        for (int i = 0; i < kMessages; ++i) {
            late.send(std::to_string(i) + "\n");
        }
    });
    TestClient good(server.port());
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(good.ask("g\n"), "g" + filler + ";+OK\r\n");
    }
    sender.join();
    EXPECT_LT(answered, kMessages) << "the late client was not held back, so nothing was tested";
    for (int i = 0; i < kMessages; ++i) {
        ASSERT_EQ(late.line(), std::to_string(i) + filler + ";+OK\r\n");
    }
    EXPECT_EQ(blocked, 0);
}

TEST(HostileClients, AClientThatNeverReadsIsClosed)
{
    const LogCapture log;
    RecordingSink sink(
        [](int socket, const std::string&) { write_all(socket, std::string(2000, 'r') + "\r\n"); });
    ServerLimits limits;
    limits.raw.reply_patience = std::chrono::milliseconds(50);
    RunningServer server(sink, limits);
    TestClient deaf(server.port(), 4096);
    std::thread sender([&] {
        for (int i = 0; i < 5000; ++i) {
            deaf.send("*IDN?\n");
        }
    });
    EXPECT_TRUE(eventually([&] { return logged(log, "closed, it does not read its replies"); }));
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    sender.join();
    EXPECT_TRUE(eventually([&] { return sink.lost().size() == 1; }));
}

TEST(HostileClients, AReplyThatBlocksItsTurnHoldsTheNextClientForItsSendTimeoutsOnly)
{
    const LogCapture log;
    std::atomic<bool> blocked = false;
    RecordingSink sink([&](int socket, const std::string& message) {
        if (message != "huge?\n") {
            RecordingSink::answer(socket, message);
            return;
        }
        // As the library sends a block: its body in chunks until one fails, then the reply's end.
        blocked = true;
        const std::string chunk(2048, 'r');
        while (write_all(socket, chunk)) {
        }
        write_all(socket, chunk);
    });
    ServerLimits limits;
    limits.raw.send_timeout = std::chrono::milliseconds(100);
    RunningServer server(sink, limits);
    TestClient good(server.port());
    TestClient deaf(server.port(), 4096);
    deaf.send("huge?\n");
    ASSERT_TRUE(eventually([&] { return blocked.load(); }));
    good.send("*IDN?\n");
    EXPECT_EQ(good.line(), "*IDN?;+OK\r\n");
    EXPECT_TRUE(eventually([&] { return logged(log, "closed, it does not read its reply"); }));
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 1; }));
}

TEST(HostileClients, ALongCommandDoesNotCountAsABlockedReply)
{
    RecordingSink sink([](int socket, const std::string& message) {
        std::this_thread::sleep_for(std::chrono::milliseconds(30)); // the duration of the command
        RecordingSink::answer(socket, message);
    });
    ServerLimits limits;
    limits.raw.send_timeout = std::chrono::milliseconds(10);
    RunningServer server(sink, limits);
    TestClient client(server.port());
    EXPECT_EQ(client.ask("a\n"), "a;+OK\r\n");
    EXPECT_EQ(client.ask("b\n"), "b;+OK\r\n");
}

TEST(HostileClients, MemoryOfLargeMessagesIsReturned)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP()
        << "the thread sanitizer's shadow of touched pages stays resident, so nothing can be measured";
#endif
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "AddressSanitizer keeps the shadow of touched pages, so nothing can be measured";
#endif
    const auto resident_pages = [] {
        FILE* file = std::fopen("/proc/self/statm", "r");
        long total = 0;
        long resident = 0;
        EXPECT_EQ(std::fscanf(file, "%ld %ld", &total, &resident), 2);
        std::fclose(file);
        return resident;
    };
    RecordingSink sink([](int, const std::string&) {});
    RunningServer server(sink, {.message_budget = 128u << 20});
    const std::string unfinished(2'000'000, 'x');
    const long before = resident_pages();
    {
        std::vector<TestClient> clients;
        for (int i = 0; i < 32; ++i) {
            clients.emplace_back(server.port());
            clients.back().send(unfinished);
        }
        // The buffers of unfinished messages hold 64 MB.
        EXPECT_TRUE(eventually([&] { return resident_pages() - before > 32L * 1'900'000 / 4096; }));
    }
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    EXPECT_TRUE(eventually([&] { return resident_pages() - before < 12L * 1024 * 1024 / 4096; }));
}

TEST(HostileClients, AMessageThatTricklesIsClosedInTime)
{
    const LogCapture log;
    RecordingSink sink;
    ServerLimits limits;
    limits.raw.message_patience = std::chrono::milliseconds(100);
    RunningServer server(sink, limits);
    TestClient idle(server.port());
    TestClient trickling(server.port());
    std::string line;
    EXPECT_TRUE(eventually([&] {
        trickling.send("x");
        line = trickling.line(std::chrono::milliseconds(2));
        return !line.empty();
    }));
    EXPECT_EQ(line, "-ERR -365, \"Time out error\";+OK\r\n");
    EXPECT_TRUE(trickling.sees_end());
    EXPECT_TRUE(logged(log, "closed, its message did not arrive completely in time"));
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 1; }));
    EXPECT_EQ(idle.ask("a\n"), "a;+OK\r\n");
}

TEST(HostileClients, ABlockHasAnotherSecondForEach64Kilobytes)
{
    RecordingSink sink([](int socket, const std::string&) { RecordingSink::answer(socket, "ok"); });
    ServerLimits limits;
    limits.raw.message_patience = std::chrono::milliseconds(1);
    RunningServer server(sink, limits);
    const std::string block = ":DATA #7" + std::to_string(2'000'000) + std::string(2'000'000, 'x') + "\n";
    TestClient client(server.port());
    client.send(block.substr(0, 1'000'000));
    TestClient impatient(server.port());
    impatient.send(":DATA");
    EXPECT_EQ(impatient.line(), "-ERR -365, \"Time out error\";+OK\r\n");
    client.send(block.substr(1'000'000));
    EXPECT_EQ(client.line(), "ok;+OK\r\n");
}

TEST(HostileClients, TheDeadlineOfAHalfMessageStopsWhileACommandRuns)
{
    RecordingSink sink([](int socket, const std::string& message) {
        if (message == "long\n") {
            std::this_thread::sleep_for(std::chrono::seconds(6)); // the duration of the command
        }
        RecordingSink::answer(socket, message);
    });
    ServerLimits limits;
    limits.raw.message_patience = std::chrono::seconds(5);
    RunningServer server(sink, limits);
    TestClient half(server.port());
    half.send(":FRE");
    TestClient busy(server.port());
    EXPECT_EQ(busy.ask("long\n"), "long;+OK\r\n");
    EXPECT_EQ(half.ask("Q?\n"), ":FREQ?;+OK\r\n");
}

TEST(HostileClients, HalfBlocksBeyondTheBudgetWaitAndDelayNoOther)
{
    RecordingSink sink;
    RunningServer server(sink, {.message_budget = 7'000'000});
    const auto block = [](char fill) { return ":DATA #72900000" + std::string(2'900'000, fill) + "\n"; };
    std::vector<TestClient> holders;
    for (int i = 0; i < 2; ++i) {
        holders.emplace_back(server.port());
        holders.back().send(block('h').substr(0, 100'000));
    }
    expect_good_service(server.port());
    TestClient waiting(server.port());
    std::thread sender([&] { waiting.send(block('w')); });
    TestClient resetting(server.port());
    resetting.send(block('r').substr(0, 100'000));
    for (int i = 0; i < 10; ++i) {
        expect_good_service(server.port());
    }
    resetting.reset();
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 3; }));
    EXPECT_EQ(sink.messages(), std::vector<std::string>(11, "*IDN?\n"));
    holders.front().close();
    EXPECT_EQ(waiting.line().size(), block('w').size() + 5);
    sender.join();
    EXPECT_EQ(holders.back().ask(block('h').substr(100'000)).size(), block('h').size() + 5);
}

// Two clients with slow queries yield turns to a third with several lines.
TEST(HostileClients, ClientsThatAskAgainAtOnceCostNoOtherItsTurn)
{
    RecordingSink sink([](int socket, const std::string& message) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the duration of the command
        RecordingSink::answer(socket, message);
    });
    RunningServer server(sink);
    std::atomic<bool> end = false;
    std::vector<std::jthread> asking;
    for (int i = 0; i < 2; ++i) {
        asking.emplace_back([&] {
            TestClient client(server.port());
            while (!end) {
                client.ask("a\n");
            }
        });
    }
    ASSERT_TRUE(eventually([&] { return sink.messages().size() > 4; }));
    TestClient queueing(server.port());
    queueing.send("1\n2\n3\n4\n");
    for (int i = 1; i <= 4; ++i) {
        EXPECT_EQ(queueing.line(std::chrono::seconds(5)), std::to_string(i) + ";+OK\r\n");
    }
    end = true;
}

TEST(HostileClients, HalfBlocksThatNeedMoreMemoryDoNotDeadlock)
{
    RecordingSink sink;
    ServerLimits limits;
    limits.max_message = 100'000;
    limits.message_budget = 100'000;
    limits.raw.message_patience = std::chrono::seconds(1);
    RunningServer server(sink, limits);
    // Each has its block and continues after it, where only one fits.
    std::vector<TestClient> holders;
    for (int i = 0; i < 2; ++i) {
        holders.emplace_back(server.port());
        holders.back().send(":DATA #530000" + std::string(30'000 + 18'000, 'x'));
    }
    TestClient other(server.port());
    const std::string message = ":DATA #560000" + std::string(60'000, 'y') + "\n";
    EXPECT_EQ(other.ask(message).size(), message.size() + 5);
}
