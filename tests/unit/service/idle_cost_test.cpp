// The cost of idle clients, measured from outside.
#include <filesystem>
#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include "service/listener.h"
#include "service_fixture.h"
#include "service_process.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

const std::string kUndefinedHeader = "-ERR -113, \"Undefined header\";+OK\r\n";

long status_number(const std::string& file, const std::string& name)
{
    std::ifstream status(file);
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name + ":", 0) == 0) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    return -1;
}

/** How often each thread of the process has slept so far, by the thread's number. */
std::map<std::string, long> sleeps(pid_t pid)
{
    std::map<std::string, long> result;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        result[task.path().filename()] = status_number(task.path() / "status", "voluntary_ctxt_switches");
    }
    return result;
}

class IdleCostTest : public ::testing::Test {
protected:
    IdleCostTest()
    {
        service.errors_until("ready");
        EXPECT_EQ(TestClient(port).ask(":NO:SUCH:HEADER\n"), kUndefinedHeader);
    }

    long number(const std::string& name) const
    {
        return status_number("/proc/" + std::to_string(service.pid()) + "/status", name);
    }

    std::vector<orvan_common::UniqueFd> listener = open_listeners("127.0.0.1", 0);
    const int port = local_port(listener[0].get());
    ServiceProcess service{{{"--modules-on-loopback", "--module-wait", "0", "--hislip-port", "off",
                             "--foreground", "--message-memory", "8"},
                            {},
                            listener[0].get()}};
};

} // namespace

TEST_F(IdleCostTest, TwoHundredAndFiftySixClientsCostLessThanAMegabyteAndNoThread)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer keeps memory for each descriptor";
#endif
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "AddressSanitizer keeps freed memory for a while, so nothing can be measured";
#endif
    const long kilobytes = number("VmRSS");
    const long threads = number("Threads");
    std::vector<TestClient> clients;
    for (int i = 0; i < 256; ++i) {
        clients.emplace_back(port);
        ASSERT_EQ(clients.back().ask(":NO:SUCH:HEADER\n"), kUndefinedHeader) << i;
    }
    EXPECT_LT(number("VmRSS") - kilobytes, 1024);
    EXPECT_EQ(number("Threads"), threads);
}

TEST_F(IdleCostTest, IdleClientsWakeNoThread)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer has its own thread, which wakes all the time";
#endif
    TestClient idle(port);
    ASSERT_EQ(idle.ask(":NO:SUCH:HEADER\n"), kUndefinedHeader);
    TestClient silent(port);
    // Accepting the client causes some activity; it must come to rest.
    EXPECT_TRUE(eventually([&] {
        const auto before = sleeps(service.pid());
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return sleeps(service.pid()) == before;
    }));
}

// Each of them could announce a block of 3 MB and send none of it.
TEST_F(IdleCostTest, HalfBlocksTakeNoMoreThanTheMemoryForMessages)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP()
        << "the thread sanitizer's shadow of touched pages stays resident, so nothing can be measured";
#endif
    const long kilobytes = number("VmRSS");
    std::vector<TestClient> clients;
    const std::string half = ":SYST:UPD:SOFT #72900000" + std::string(60'000, 'x');
    for (int i = 0; i < 100; ++i) {
        clients.emplace_back(port);
        clients.back().send(half);
    }
    // The first two hold the memory; the rest of their blocks arrives.
    for (size_t i = 0; i < 2; ++i) {
        clients[i].send(std::string(2'800'000, 'x'));
    }
    TestClient other(port);
    EXPECT_EQ(other.ask(":NO:SUCH:HEADER\n"), kUndefinedHeader);
    EXPECT_LT(number("VmRSS") - kilobytes, 8 * 1024 + 4 * 1024);
}
