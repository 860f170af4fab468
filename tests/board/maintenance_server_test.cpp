// The maintenance server's socket, thread and state.

#include <csignal>
#include <future>
#include <thread>

#include <fcntl.h>
#include <netdb.h>

#include "maintenance_server_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::local_port;
using orvan_test::open_descriptors;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

bool descriptors_become(size_t count)
{
    const auto deadline = std::chrono::steady_clock::now() + seconds(5);
    while (open_descriptors() != count && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return open_descriptors() == count;
}

// ---- Init

TEST_F(MaintenanceServer, OpensItsPortOnTheAddress)
{
    EXPECT_EQ(server.Init("127.0.0.9", "7502", "lo"), IF_SUCCESS);
    EXPECT_EQ(address_of(peer.socket()), "127.0.0.9:7502");
    EXPECT_EQ(server.GetPort(), 7502);
    EXPECT_EQ(fcntl(peer.socket(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(peer.socket(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(option<int>(SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(option<int>(SO_BROADCAST), 1);
    EXPECT_EQ(option<int>(SO_RCVBUF), 2 * 2880) << "as the kernel counts";
    EXPECT_EQ(option<int>(SO_REUSEADDR), 0);
    const auto timeout = option<timeval>(SO_RCVTIMEO);
    EXPECT_EQ(timeout.tv_sec, 0) << "the wait for the frame is unbounded";
    EXPECT_EQ(timeout.tv_usec, 0);
}

TEST_F(MaintenanceServer, TakesAnAddressAsALittleEndianNumber)
{
    EXPECT_EQ(server.Init(0x0902007fUL, 7502, nullptr), IF_SUCCESS);
    EXPECT_EQ(address_of(peer.socket()), "127.0.2.9:7502");
    EXPECT_EQ(peer.error(), 0);
    server.Close();
    EXPECT_EQ(server.Init(LOCAL_ADDR_DEF, PORTUDP, nullptr), IF_SUCCESS);
    EXPECT_EQ(address_of(peer.socket()), "0.0.0.0:7502");
    EXPECT_EQ(server.GetPort(), 7502);
}

TEST_F(MaintenanceServer, TakesAPortInCNotation)
{
    const struct {
        const char* text;
        int port;
        long result; // the first five characters read as decimal
    } cases[] = {{"7502", 7502, 7502}, {"0x1d4e", 7502, 0}, {"016516", 7502, 1651}, {" 7502", 7502, 7502}};
    for (const auto& [text, port, result] : cases) {
        EXPECT_EQ(server.Init("127.0.0.1", text, nullptr), IF_SUCCESS) << text;
        EXPECT_EQ(local_port(peer.socket()), port) << text;
        EXPECT_EQ(server.GetPort(), result) << text;
        server.Close();
    }
}

TEST_F(MaintenanceServer, FailsOnAnAddressThatItCannotResolve)
{
    // A label has at most 63 characters, so no name server is queried for this name.
    const std::string unknown(64, 'x');
    EXPECT_EQ(server.Init(unknown.c_str(), "7502", nullptr), LXI_ERROR_INIT_SOCK_ADDR);
    EXPECT_EQ(server.Init("127.0.0.1", "no-such-service", nullptr), LXI_ERROR_INIT_SOCK_ADDR);
    EXPECT_EQ(server.Init("127.0.0.1", nullptr, nullptr), LXI_ERROR_INIT_SOCK_ADDR);
    EXPECT_EQ(peer.socket(), -1);
    EXPECT_EQ(peer.error(), 0) << "it is the form with numbers that keeps its result";
}

TEST_F(MaintenanceServer, FailsWithoutADescriptor)
{
    const FewDescriptors none(0);
    EXPECT_EQ(server.Init(LOCAL_ADDR_DEF, 7502, nullptr), LXI_ERROR_INV_SOCK);
    EXPECT_EQ(peer.socket(), -1);
    EXPECT_EQ(static_cast<uint32_t>(peer.error()), LXI_ERROR_INV_SOCK);
}

TEST_F(MaintenanceServer, FailsOnAPortThatIsTakenAndClosesItsSocket)
{
    ASSERT_EQ(server.Init("127.0.0.1", "7502", nullptr), IF_SUCCESS);
    CUdpServer second(nullptr, 7502, 0, true);
    UdpServerTestPeer of_second{second};
    EXPECT_EQ(static_cast<uint32_t>(of_second.error()), LXI_ERROR_BIND_SOCK);
    EXPECT_EQ(of_second.socket(), -1);
    EXPECT_EQ(second.GetPort(), 0);
    server.Close();
    EXPECT_EQ(second.Init(LOCAL_ADDR_DEF, 7502, nullptr), IF_SUCCESS) << "once it is free";
    EXPECT_EQ(of_second.error(), 0);
    second.Close();
}

TEST_F(MaintenanceServer, ClosesASocketOnce)
{
    const size_t before = open_descriptors();
    EXPECT_EQ(server.Close(), 0) << "there is none";
    ASSERT_EQ(server.Init("127.0.0.1", "0", nullptr), IF_SUCCESS);
    EXPECT_EQ(open_descriptors(), before + 1);
    EXPECT_EQ(server.Close(), 0);
    EXPECT_EQ(peer.socket(), -1);
    EXPECT_EQ(server.Close(), 0);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(MaintenanceServer, IgnoresTheBrokenPipeSignal)
{
    std::signal(SIGIO, SIG_DFL);
    ASSERT_EQ(server.Init("127.0.0.1", "0", nullptr), IF_SUCCESS);
    EXPECT_EQ(std::raise(SIGIO), 0);
    CUdpServer::_SignalHandler(SIGIO);
}

// ---- addresses

TEST_F(MaintenanceServer, ParsesAddressTexts)
{
    sockaddr_in address;
    std::memset(&address, 0xA5, sizeof address);
    EXPECT_EQ(server.InitSocketAddrStruct(nullptr, "7502", &address, "udp"), 0);
    sockaddr_in expected = orvan_test::ipv4("0.0.0.0", 7502);
    EXPECT_EQ(std::memcmp(&address, &expected, sizeof address), 0) << "with its padding zero";

    EXPECT_EQ(server.InitSocketAddrStruct("127.0.7.1", "0", &address, "udp"), 0);
    expected = orvan_test::ipv4("127.0.7.1", 0);
    EXPECT_EQ(std::memcmp(&address, &expected, sizeof address), 0);

    EXPECT_EQ(server.InitSocketAddrStruct("localhost", "1", &address, "udp"), 0);
    expected = orvan_test::ipv4("127.0.0.1", 1);
    EXPECT_EQ(std::memcmp(&address, &expected, sizeof address), 0);
}

TEST_F(MaintenanceServer, RefusesEmptyAddressTexts)
{
    sockaddr_in address;
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", nullptr, &address, "udp"), -1);
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", "7502", nullptr, "udp"), -1);
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", "7502", &address, nullptr), -1);
    for (const char* port : {"", "7502x", "x7502", "0x", "no-such-service"}) {
        EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", port, &address, "udp"), -1) << port;
    }
    EXPECT_EQ(server.InitSocketAddrStruct(std::string(64, 'x').c_str(), "7502", &address, "udp"), -1);
}

TEST_F(MaintenanceServer, TakesAPortByServiceName)
{
    if (getservbyname("domain", "udp") == nullptr) {
        GTEST_SKIP() << "no services in /etc/services";
    }
    sockaddr_in address;
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", "domain", &address, "udp"), 0);
    EXPECT_EQ(ntohs(address.sin_port), 53);
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", "domain", &address, "no-such-protocol"), -1);
}

TEST_F(MaintenanceServer, TakesTheHardwareAddressOfItsInterface)
{
    ASSERT_EQ(server.Init("127.0.0.1", "0", nullptr), IF_SUCCESS);
    for (const char* none : {"no-such-link", "", "a-name-that-is-longer-than-any-interface-has"}) {
        peer.set_own_mac(kOwnMac);
        server.GetHWaddr(none);
        EXPECT_EQ(peer.own_mac(), kOwnMac) << none;
    }
    server.GetHWaddr(nullptr);
    EXPECT_EQ(peer.own_mac(), kOwnMac);
    server.GetHWaddr("lo");
    EXPECT_EQ(peer.own_mac(), kNone) << "that of the loopback";
    peer.set_own_mac(kOwnMac);
    server.Close();
    server.GetHWaddr("lo");
    EXPECT_EQ(peer.own_mac(), kOwnMac) << "without a socket nothing can be queried";
}

// ---- construction and end

TEST_F(MaintenanceServer, WithoutAnInterfaceUsesADefaultHardwareAddress)
{
    EXPECT_EQ(peer.own_mac(), "\x02\x00\x5e\x00\x00\x00"s);
    CUdpServer with_name("no-such-link", 0, 0, true);
    EXPECT_EQ(UdpServerTestPeer{with_name}.own_mac(), kNone);
    with_name.Close();
}

TEST_F(MaintenanceServer, ShortFormOpensNothingUnlessStartIsRequested)
{
    EXPECT_EQ(peer.socket(), -1);
    EXPECT_FALSE(peer.has_thread());
    EXPECT_TRUE(peer.has_semaphore());
    EXPECT_EQ(server.GetState(), 0u);
    EXPECT_EQ(server.GetPort(), 0);
    EXPECT_EQ(peer.download_status(), -1);
    EXPECT_EQ(peer.device(), nullptr);
    CUdpServer started(nullptr, 7502, 0x0100007f, true);
    EXPECT_FALSE(UdpServerTestPeer{started}.has_thread());
    EXPECT_EQ(address_of(UdpServerTestPeer{started}.socket()), "127.0.0.1:7502");
    started.Close();
}

TEST_F(MaintenanceServer, ServesOnItsOwnThreadAndEndsWithOneMoreFrame)
{
    orvan_test::RecordingDevice device;
    MuxHandler handler;
    const MaintenanceClient client;
    const size_t before = open_descriptors();
    auto served = std::make_unique<CUdpServer>("lo", 7502, &handler, &device, 0, true);
    const UdpServerTestPeer inside{*served};
    EXPECT_EQ(inside.device(), &device);
    EXPECT_EQ(inside.handler(), &handler);
    EXPECT_EQ(inside.download_status(), -1);
    EXPECT_TRUE(inside.has_semaphore());
    const int fd = inside.socket();
    for (const uint16_t block : {uint16_t{1}, uint16_t{2}}) {
        client.send(FrameHeader{"HEID", block}.bytes(), 7502);
        EXPECT_EQ(client.receive().substr(0, 6), FrameHeader({"HEID", block}).bytes().substr(0, 6));
    }
    EXPECT_EQ(served->GetState(), 0u);

    // Its third event has begun.
    ASSERT_TRUE(descriptors_become(before + 1 + 3 * 4));
    std::future<void> ended = std::async(std::launch::async, [&] { served.reset(); });
    while (!inside.time_to_exit()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(ended.wait_for(milliseconds(200)), std::future_status::timeout) << "no frame, no end";
    client.send(FrameHeader{"HEID", 3}.bytes(), 7502);
    ASSERT_EQ(ended.wait_for(seconds(5)), std::future_status::ready);
    EXPECT_EQ(block_of(client.receive()), "\0\3"s) << "that frame is answered";
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << "the socket stays open";
    ::close(fd);
}

TEST_F(MaintenanceServer, ThreadEndsAtOnceWithoutASocket)
{
    ASSERT_EQ(server.Init("127.0.0.1", "7502", nullptr), IF_SUCCESS);
    orvan_test::RecordingDevice device;
    // Before its destructor stops it.
    const auto ends = [](CUdpServer& of) {
        const UdpServerTestPeer inside{of};
        const auto deadline = std::chrono::steady_clock::now() + seconds(5);
        while (!inside.time_to_exit() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        return inside.time_to_exit();
    };
    {
        CUdpServer late("lo", 7502, nullptr, &device, 0, true);
        EXPECT_EQ(static_cast<uint32_t>(UdpServerTestPeer{late}.error()), LXI_ERROR_BIND_SOCK);
        EXPECT_TRUE(ends(late));
        CUdpServer unstarted(nullptr, 7502, nullptr, &device, 0, false);
        EXPECT_EQ(UdpServerTestPeer{unstarted}.socket(), -1);
        EXPECT_EQ(UdpServerTestPeer{unstarted}.error(), 0);
        EXPECT_EQ(UdpServerTestPeer{unstarted}.own_mac(), "\x02\x00\x5e\x00\x00\x00"s);
        EXPECT_TRUE(ends(unstarted));
    } // their destructors need no frame
    const std::vector<orvan_test::LogLine> lines = logs.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, LOG_ERR);
    EXPECT_EQ(lines[0].text, "[CUdpServer] no maintenance on port 7502 (0x80000106)");
}

/** Its events return what a case sets; the last one ends it at the latest. */
class ScriptedServer : public CUdpServer {
public:
    explicit ScriptedServer(std::vector<uint32_t> results)
        : CUdpServer(nullptr, 0, 0, false), m_results(std::move(results))
    {
    }
    int64_t WaitForEvent() override
    {
        if (calls == m_results.size()) {
            return LXI_ERROR_INV_RSRC;
        }
        return m_results[calls++];
    }
    size_t calls = 0;

private:
    const std::vector<uint32_t> m_results;
};

TEST_F(MaintenanceServer, ThreadServesUntilAnEventEndsIt)
{
    const struct {
        uint32_t result;
        bool ends;
        state_t state;
    } cases[] = {
        {IF_SUCCESS, false, 0},
        {IF_FAILED, false, 0},
        {IF_SUCCESS_FPGA_UPDATED, true, 0x20},
        {IF_SUCCESS_NET_CONFIG, true, 0x40},
        {LXI_ERROR_INV_RSRC, true, 0},
        {LXI_ERROR_TIMEOUT, false, 0},
        {LXI_ERROR_INV_SOCK, false, 0},
        {1, false, 0},
        {0x20, false, 0},
    };
    for (const auto& [result, ends, state] : cases) {
        ScriptedServer scripted({result, IF_SUCCESS, result});
        scripted.ThreadMain();
        EXPECT_EQ(scripted.calls, ends ? 1u : 3u) << result;
        EXPECT_EQ(scripted.GetState(), state) << result;
        EXPECT_TRUE(UdpServerTestPeer{scripted}.time_to_exit());
        scripted.ThreadMain();
        EXPECT_EQ(scripted.calls, ends ? 1u : 3u) << "it stays ended";
    }
}

TEST_F(MaintenanceServer, StateIsThatOfTheLastInit)
{
    ScriptedServer scripted({IF_SUCCESS_FPGA_UPDATED, IF_SUCCESS_NET_CONFIG});
    scripted.ThreadMain();
    EXPECT_EQ(scripted.GetState(), 0x20u);
    EXPECT_EQ(scripted.Init("127.0.0.1", "no-such-service", nullptr), LXI_ERROR_INIT_SOCK_ADDR);
    EXPECT_EQ(scripted.GetState(), 0u) << "even of one that fails";
    EXPECT_TRUE(UdpServerTestPeer{scripted}.time_to_exit());
    ASSERT_EQ(scripted.Init("127.0.0.1", "0", nullptr), IF_SUCCESS);
    EXPECT_EQ(scripted.GetState(), 0u);
    EXPECT_FALSE(UdpServerTestPeer{scripted}.time_to_exit());
    scripted.ThreadMain();
    EXPECT_EQ(scripted.GetState(), 0x40u);
    scripted.Close();
}

TEST_F(MaintenanceServer, StateIsSetAndReadUnderItsSemaphore)
{
    ScriptedServer scripted(std::vector<uint32_t>{IF_SUCCESS_FPGA_UPDATED});
    COSSemaphore& guard = UdpServerTestPeer{scripted}.semaphore();
    tOSStatus status = kOSStatusSoftwareFault;
    guard.Acquire(kOSTimeoutNone, status);
    ASSERT_EQ(status, kOSStatusSuccess) << "free at first";
    std::future<void> served = std::async(std::launch::async, [&] { scripted.ThreadMain(); });
    EXPECT_EQ(served.wait_for(milliseconds(100)), std::future_status::timeout);
    guard.Release();
    ASSERT_EQ(served.wait_for(seconds(5)), std::future_status::ready);

    guard.Acquire(kOSTimeoutNone, status);
    ASSERT_EQ(status, kOSStatusSuccess) << "given back";
    std::future<state_t> state = std::async(std::launch::async, [&] { return scripted.GetState(); });
    EXPECT_EQ(state.wait_for(milliseconds(100)), std::future_status::timeout);
    guard.Release();
    EXPECT_EQ(state.get(), 0x20u);

    guard.Release(); // at the limit: one unit, and no more
    guard.Acquire(kOSTimeoutNone, status);
    EXPECT_EQ(status, kOSStatusSuccess);
    guard.Acquire(kOSTimeoutNone, status);
    EXPECT_EQ(status, kOSStatusOperationTimedOut);
}

} // namespace
