// The maintenance server's socket, thread and state.

#include "maintenance_bench.h"
#include "support/loopback.h"
#include "support/private_network.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <future>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/resource.h>

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::local_port;
using orvan_test::open_descriptors;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

const std::string kNone(6, '\0');

std::string block_of(const std::string& frame)
{
    return frame.size() < FRMHEADERLEN ? "" : frame.substr(4, 2);
}

bool descriptors_become(size_t count)
{
    const auto deadline = std::chrono::steady_clock::now() + seconds(5);
    while (open_descriptors() != count && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return open_descriptors() == count;
}

/** In a network of its own: its ports are free, and names lead nowhere. */
class MaintenanceServer : public testing::Test {
protected:
    void SetUp() override
    {
        if (!network.refusal().empty())
            GTEST_SKIP() << network.refusal();
    }
    void TearDown() override { server.Close(); }

    static std::string address_of(int fd)
    {
        sockaddr_in own = {};
        socklen_t size = sizeof own;
        getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
        return std::string(inet_ntoa(own.sin_addr)) + ":" + std::to_string(ntohs(own.sin_port));
    }
    template <typename Value>
    Value option(int name)
    {
        Value value = {};
        socklen_t size = sizeof value;
        EXPECT_EQ(getsockopt(peer.socket(), SOL_SOCKET, name, &value, &size), 0);
        return value;
    }

    orvan_test::PrivateNetwork network;
    orvan_test::LogCapture logs;
    CUdpServer server{nullptr, 0, 0, false};
    UdpServerTestPeer peer{server};
};

/** While it lives, the process gets so many more descriptors and not one beyond them. */
class FewDescriptors {
public:
    explicit FewDescriptors(size_t more)
    {
        std::vector<UniqueFd> next;
        do
            next.emplace_back(dup(STDERR_FILENO));
        while (next.size() <= more);
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit few = m_before;
        few.rlim_cur = static_cast<rlim_t>(next.back().get());
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit m_before = {};
};

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
    EXPECT_EQ(timeout.tv_sec, 0) << "the frame is waited for without an end";
    EXPECT_EQ(timeout.tv_usec, 0);
}

TEST_F(MaintenanceServer, TakesAnAddressAsANumberFirstByteLowest)
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
        long told; // what the first five characters come to in decimal
    } cases[] = {{"7502", 7502, 7502}, {"0x1d4e", 7502, 0}, {"016516", 7502, 1651}, {" 7502", 7502, 7502}};
    for (const auto& [text, port, told] : cases) {
        EXPECT_EQ(server.Init("127.0.0.1", text, nullptr), IF_SUCCESS) << text;
        EXPECT_EQ(local_port(peer.socket()), port) << text;
        EXPECT_EQ(server.GetPort(), told) << text;
        server.Close();
    }
}

TEST_F(MaintenanceServer, FailsOnAnAddressThatItCannotResolve)
{
    // Labels of a name have at most 63 characters, and so nobody is asked for this one.
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

TEST_F(MaintenanceServer, KeepsTheSignalOfSocketsFromEndingTheProcess)
{
    std::signal(SIGIO, SIG_DFL);
    ASSERT_EQ(server.Init("127.0.0.1", "0", nullptr), IF_SUCCESS);
    EXPECT_EQ(std::raise(SIGIO), 0);
    CUdpServer::_SignalHandler(SIGIO);
}

// ---- addresses

TEST_F(MaintenanceServer, MakesAnAddressOfTexts)
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

TEST_F(MaintenanceServer, MakesNoAddressOfNothing)
{
    sockaddr_in address;
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", nullptr, &address, "udp"), -1);
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", "7502", nullptr, "udp"), -1);
    EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", "7502", &address, nullptr), -1);
    for (const char* port : {"", "7502x", "x7502", "0x", "no-such-service"})
        EXPECT_EQ(server.InitSocketAddrStruct("127.0.0.1", port, &address, "udp"), -1) << port;
    EXPECT_EQ(server.InitSocketAddrStruct(std::string(64, 'x').c_str(), "7502", &address, "udp"), -1);
}

TEST_F(MaintenanceServer, TakesThePortOfAServicesName)
{
    if (getservbyname("domain", "udp") == nullptr)
        GTEST_SKIP() << "no services in /etc/services";
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
    EXPECT_EQ(peer.own_mac(), kOwnMac) << "without a socket nobody can be asked";
}

// ---- construction and end

TEST_F(MaintenanceServer, WithoutAnInterfaceHasAnAddressOfItsOwn)
{
    EXPECT_EQ(peer.own_mac(), "\x02\x00\x5e\x00\x00\x00"s);
    CUdpServer with_name("no-such-link", 0, 0, true);
    EXPECT_EQ(UdpServerTestPeer{with_name}.own_mac(), kNone);
    with_name.Close();
}

TEST_F(MaintenanceServer, ShortFormOpensNothingUnlessItIsToStart)
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

TEST_F(MaintenanceServer, ServesOnAThreadOfItsOwnAndEndsWithOneMoreFrame)
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
    EXPECT_EQ(ended.wait_for(milliseconds(200)), std::future_status::timeout) << "no frame, no end";
    client.send(FrameHeader{"HEID", 3}.bytes(), 7502);
    ASSERT_EQ(ended.wait_for(seconds(5)), std::future_status::ready);
    EXPECT_EQ(block_of(client.receive()), "\0\3"s) << "that frame is answered";
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << "the socket stays open";
    close(fd);
}

TEST_F(MaintenanceServer, ThreadEndsAtOnceWithoutASocket)
{
    ASSERT_EQ(server.Init("127.0.0.1", "7502", nullptr), IF_SUCCESS);
    orvan_test::RecordingDevice device;
    // Before its destructor tells it to.
    const auto ends = [](CUdpServer& of) {
        const UdpServerTestPeer inside{of};
        const auto deadline = std::chrono::steady_clock::now() + seconds(5);
        while (!inside.time_to_exit() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
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
    } // their ends take no frame
    const std::vector<orvan_test::LogLine> lines = logs.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, LOG_ERR);
    EXPECT_EQ(lines[0].text, "[CUdpServer] no maintenance on port 7502 (0x80000106)");
}

/** Its events come to what a case says, and the last one ends it if nothing else has. */
class ScriptedServer : public CUdpServer {
public:
    explicit ScriptedServer(std::vector<uint32_t> results)
        : CUdpServer(nullptr, 0, 0, false), m_results(std::move(results))
    {
    }
    int64_t WaitForEvent() override
    {
        if (calls == m_results.size())
            return LXI_ERROR_INV_RSRC;
        return m_results[calls++];
    }
    size_t calls = 0;

private:
    const std::vector<uint32_t> m_results;
};

TEST_F(MaintenanceServer, ThreadServesOnUnlessAnEventEndsIt)
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
        EXPECT_EQ(scripted.calls, ends ? 1u : 3u) << "its end is for good";
    }
}

TEST_F(MaintenanceServer, StateIsThatOfTheLastStart)
{
    ScriptedServer scripted({IF_SUCCESS_FPGA_UPDATED, IF_SUCCESS_NET_CONFIG});
    scripted.ThreadMain();
    EXPECT_EQ(scripted.GetState(), 0x20u);
    EXPECT_EQ(scripted.Init("127.0.0.1", "no-such-service", nullptr), LXI_ERROR_INIT_SOCK_ADDR);
    EXPECT_EQ(scripted.GetState(), 0u) << "also of one that fails";
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

// ---- events

TEST_F(MaintenanceServer, EventLeavesItsDescriptorsWhateverCame)
{
    ASSERT_EQ(server.Init("127.0.0.1", "7502", nullptr), IF_SUCCESS);
    sim_board::InstalledBoard board{sim_board::kPortableWiring};
    const sim_board::SelfAdvancing self{board->clock()};
    const orvan_test::OutputCapture out(STDOUT_FILENO);
    const MaintenanceClient own;
    const MaintenanceClient elsewhere("127.0.0.2");
    const struct {
        const MaintenanceClient& from;
        const char* opcode;
        uint16_t size;
        int64_t result;
    } cases[] = {
        {own, "HEID", 0, IF_SUCCESS}, {own, "HEIP", 0, IF_SUCCESS},       {own, "HEIP", 1, IF_SUCCESS},
        {own, "HEOT", 0, IF_SUCCESS}, {own, "HECT", 0, IF_FAILED},        {own, "HESU", 0, IF_FAILED},
        {own, "NONE", 0, IF_SUCCESS}, {elsewhere, "HEID", 0, IF_SUCCESS},
    };
    for (const auto& [from, opcode, size, result] : cases) {
        from.send(FrameHeader{opcode, 0, size}.bytes(), 7502);
        const size_t before = open_descriptors();
        EXPECT_EQ(server.WaitForEvent(), result) << opcode;
        EXPECT_EQ(open_descriptors(), before + 4) << opcode;
    }
}

// Programs and tools have these values compiled in.
TEST(MaintenanceNumbers, AreWhatOthersKnow)
{
    const std::pair<int64_t, int64_t> numbers[] = {
        {IF_SUCCESS, 0},
        {LXI_SUCCESS, 0},
        {IF_SUCCESS_RECV_FIRMWARE, 100},
        {LXI_SUCCESS_RECV_FIRMWARE, 100},
        {IF_SUCCESS_FPGA_UPDATED, 101},
        {LXI_SUCCESS_RECV_FPGA, 101},
        {IF_SUCCESS_NET_CONFIG, 102},
        {LXI_SUCCESS_RECV_NETCONFIG, 102},
        {IF_FAILED, 0xFFFFFFFF},
        {LXI_FAILED, 0xFFFFFFFF},
        {ERROR_BASE, 0x80000000},
        {IF_ERROR_INV_LENGTH, 0x80000020},
        {IF_ERROR_INV_PARAMETER, 0x80000021},
        {IF_ERROR_INV_BIN_HEADER_FORMAT, 0x80000022},
        {IF_ERROR_CMD_QUEUE_OVERFLOW, 0x80000023},
        {ERROR_LXI_BASE, 0x80000100},
        {LXI_ERROR_INV_RSRC, 0x80000101},
        {LXI_ERROR_INIT_SOCK_ADDR, 0x80000102},
        {LXI_ERROR_INV_SOCK, 0x80000103},
        {LXI_ERROR_REUSE_ADDR, 0x80000104},
        {LXI_ERROR_KEEPALIVE, 0x80000105},
        {LXI_ERROR_BIND_SOCK, 0x80000106},
        {LXI_ERROR_LISTEN_SOCK, 0x80000107},
        {LXI_ERROR_INV_HWADDR, 0x80000108},
        {LXI_ERROR_INV_ATTR, 0x80000109},
        {LXI_ERROR_TIMEOUT, 0x8000010A},
        {IFC_FIFOSTATE, 0x03},
        {IFC_FIFOEMPTY, 0},
        {IFC_FIFOHALFEMPTY, 1},
        {IFC_FIFOFULL, 2},
        {IFC_TERMINATED, 0x04},
        {IFC_RECV_BLOCK_MASK, 0x18},
        {IFC_RECV_BLOCK_START, 0},
        {IFC_RECV_BLOCK_INPROC, 0x08},
        {IFC_RECV_BLOCK_FINISH, 0x10},
        {IFC_RECV_FIRMWARE, 0x20},
        {IFC_RECV_NETCONFIG, 0x40},
        {MAX_WR_BUF_SIZE, 1024},
        {PORTUDP, 7502},
        {UDP_PORT_CTRL, 7502},
        {UDP_PORT_DATA, 7501},
        {TCP_PORT_CTRL, 5025},
        {TCP_PORT_TELNET, 5024},
        {TCP_PORT_DEF, 5024},
        {RECV_BUF_SIZE, 2880},
        {TIMEOUT_MS, 1000},
        {RECV_TIMEOUT_S, 5},
        {EOD, 0xFFFF},
        {ACK_ONLY_LEN, 22},
    };
    size_t row = 0;
    for (const auto& [number, value] : numbers)
        EXPECT_EQ(number, value) << "row " << row++;
    EXPECT_STREQ(INTERFACE_NAME, "eth0");
}

TEST_F(MaintenanceServer, EventWithoutASocketTellsThatItIsGone)
{
    EXPECT_EQ(server.WaitForEvent(), LXI_ERROR_INV_RSRC);
}

TEST_F(MaintenanceServer, EventThatFailsForAnotherReasonIsOneThatFailed)
{
    ASSERT_EQ(server.Init("127.0.0.1", "0", nullptr), IF_SUCCESS);
    const timeval soon = {0, 1000};
    ASSERT_EQ(setsockopt(peer.socket(), SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof soon), 0);
    EXPECT_EQ(server.WaitForEvent(), IF_FAILED);
}

TEST_F(MaintenanceServer, EventCostsADescriptorForEachModule)
{
    const size_t before = open_descriptors();
    for (size_t calls = 1; calls <= 3; ++calls) {
        EXPECT_EQ(server.WaitForEvent(), LXI_ERROR_INV_RSRC);
        EXPECT_EQ(open_descriptors(), before + 4 * calls) << "without settings there are four";
    }
    MuxHandler handler;
    {
        const orvan_test::OutputCapture out(STDOUT_FILENO);
        CPersistentData::Init(&handler, g_benchtopModelsTable);
    }
    for (const uint8_t modules : {uint8_t{1}, uint8_t{2}, uint8_t{4}, uint8_t{0}}) {
        CPersistentData::GetInstance()->getSettings()->numDevices = modules;
        const size_t ahead = open_descriptors();
        server.WaitForEvent();
        EXPECT_EQ(open_descriptors(), ahead + modules);
    }
    CPersistentData::GetInstance()->getSettings()->numDevices = 200;
    const size_t ahead = open_descriptors();
    server.WaitForEvent();
    EXPECT_EQ(open_descriptors(), ahead + 4) << "there are no more addresses";
    PersistentDataTestPeer::forget_instance();
}

TEST_F(MaintenanceServer, ModulesHaveTheirAddresses)
{
    EXPECT_EQ(std::vector<std::string>(std::begin(CUdpServer::modulAddr), std::end(CUdpServer::modulAddr)),
              (std::vector<std::string>{"192.168.7.1", "192.168.8.1", "192.168.9.1", "192.168.10.1"}));
}

ssize_t tell_of_the_log(void* logs, const char* printed, size_t size)
{
    std::string told(printed, size);
    for (const LogLine& line : static_cast<orvan_test::LogCapture*>(logs)->lines())
        told += std::to_string(line.priority) + " " + line.text + "\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, told.data(), told.size());
    return static_cast<ssize_t>(size);
}

TEST_F(MaintenanceServer, EventWithoutADescriptorForAModuleEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // What is printed still gets out, and shows what has been logged by then.
            stdout = fopencookie(&logs, "w", {nullptr, tell_of_the_log, nullptr, nullptr});
            std::fputs("printed\n", stdout);
            const FewDescriptors three(3);
            server.WaitForEvent();
        },
        testing::ExitedWithCode(1), "printed\n6 \\[CUdpServer\\]::WaitForEvent socket creation failed\n");
}

TEST_F(MaintenanceServer, EventTakesNoMoreOfADatagramThanAFrame)
{
    ASSERT_EQ(server.Init("127.0.0.1", "7502", nullptr), IF_SUCCESS);
    const MaintenanceClient client;
    const std::string frame =
        FrameHeader({"HEIP", 1, 1}).bytes() + std::string(544, '\0') + std::string(480, 'x');
    ASSERT_EQ(frame.size(), 1046u);
    client.send(frame + std::string(500, 'y'), 7502);
    sim_board::InstalledBoard board{sim_board::kPortableWiring};
    const sim_board::SelfAdvancing self{board->clock()};
    const orvan_test::OutputCapture out(STDOUT_FILENO);
    EXPECT_EQ(server.WaitForEvent(), IF_SUCCESS);
    EXPECT_EQ(client.receive().substr(FRMHEADERLEN), frame.substr(FRMHEADERLEN) + std::string(22, '\0'));
}

TEST_F(MaintenanceServer, NetworkRepliesAndThenWaitsHalfASecond)
{
    ASSERT_EQ(server.Init("127.0.0.1", "7502", nullptr), IF_SUCCESS);
    sim_board::InstalledBoard board{sim_board::kPortableWiring};
    const orvan_test::OutputCapture out(STDOUT_FILENO);
    const MaintenanceClient client;
    client.send(request({"HEIP"}, {request_row('A', "10.1.1.1")}), 7502);
    std::future<int64_t> event = std::async(std::launch::async, [&] { return server.WaitForEvent(); });
    ASSERT_TRUE(board->clock().wait_for_sleepers(1));
    EXPECT_EQ(client.ready().size(), 588u);
    board->clock().advance(499'999);
    EXPECT_EQ(board->clock().sleepers(), 1u);
    board->clock().advance(1);
    EXPECT_EQ(event.get(), IF_SUCCESS);
}

TEST_F(MaintenanceServer, EventsAreServedOneAfterTheOtherInTheirOrder)
{
    ASSERT_EQ(server.Init("127.0.0.1", "7502", nullptr), IF_SUCCESS);
    const MaintenanceClient first;
    const MaintenanceClient second("127.0.0.2");
    first.send(FrameHeader{"HEID", 1}.bytes(), 7502);
    second.send(FrameHeader{"HEID", 2, 0, kBroadcast}.bytes(), 7502);
    first.send(FrameHeader{"HEID", 3}.bytes(), 7502);
    EXPECT_EQ(server.WaitForEvent(), IF_SUCCESS);
    EXPECT_EQ(block_of(first.ready()), "\0\1"s);
    EXPECT_EQ(second.ready(), "");
    EXPECT_EQ(server.WaitForEvent(), IF_SUCCESS);
    EXPECT_EQ(block_of(second.ready()), "\0\2"s);
    EXPECT_EQ(first.ready(), "");
    EXPECT_EQ(server.WaitForEvent(), IF_SUCCESS);
    EXPECT_EQ(block_of(first.ready()), "\0\3"s);
}

TEST_F(MaintenanceServer, ServesManyToolsWhileOthersAskForItsState)
{
    orvan_test::RecordingDevice device;
    device.option_table = "12345678";
    auto served = std::make_unique<CUdpServer>("lo", 7502, nullptr, &device, 0, true);
    const int fd = UdpServerTestPeer{*served}.socket();
    std::atomic<bool> done = false;
    std::thread watcher([&] {
        while (!done)
            EXPECT_EQ(served->GetState(), 0u);
    });
    std::vector<std::thread> tools;
    for (uint16_t tool = 0; tool < 4; ++tool) {
        tools.emplace_back([tool] {
            const MaintenanceClient client;
            for (uint16_t round = 0; round < 25; ++round) {
                const FrameHeader asked{round % 2 == 0 ? "HEID" : "HECT", round, 0, kNone, tool};
                client.send(asked.bytes(), 7502);
                const std::string told = client.receive();
                EXPECT_EQ(told.size(), round % 2 == 0 ? 534u : 30u);
                EXPECT_EQ(told.substr(0, 6), asked.bytes().substr(0, 6)) << "the own reply";
                EXPECT_EQ(told.substr(14, 2), asked.bytes().substr(14, 2));
            }
        });
    }
    for (std::thread& tool : tools)
        tool.join();
    done = true;
    watcher.join();
    orvan_test::end_with_frames([&] { served.reset(); });
    close(fd);
}

} // namespace
