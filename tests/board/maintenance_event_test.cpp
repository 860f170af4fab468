// What the maintenance server does with each frame, whatever its contents.

#include <atomic>
#include <cstdlib>
#include <future>
#include <thread>

#include "maintenance_server_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::open_descriptors;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

TEST_F(MaintenanceServer, EventKeepsItsDescriptorsOpenForEveryFrame)
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

TEST_F(MaintenanceServer, EventWithoutASocketReportsThatItIsClosed)
{
    EXPECT_EQ(server.WaitForEvent(), LXI_ERROR_INV_RSRC);
}

TEST_F(MaintenanceServer, EventReportsAnyOtherFailureAsAFailure)
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
        const size_t count = open_descriptors();
        server.WaitForEvent();
        EXPECT_EQ(open_descriptors(), count + modules);
    }
    CPersistentData::GetInstance()->getSettings()->numDevices = 200;
    const size_t count = open_descriptors();
    server.WaitForEvent();
    EXPECT_EQ(open_descriptors(), count + 4) << "there are no more addresses";
    PersistentDataTestPeer::forget_instance();
}

TEST_F(MaintenanceServer, ModulesHaveTheirAddresses)
{
    EXPECT_EQ(std::vector<std::string>(std::begin(CUdpServer::modulAddr), std::end(CUdpServer::modulAddr)),
              (std::vector<std::string>{"192.168.7.1", "192.168.8.1", "192.168.9.1", "192.168.10.1"}));
}

ssize_t print_the_log(void* logs, const char* printed, size_t size)
{
    std::string lines(printed, size);
    for (const LogLine& line : static_cast<orvan_test::LogCapture*>(logs)->lines()) {
        lines += std::to_string(line.priority) + " " + line.text + "\n";
    }
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, lines.data(), lines.size());
    return static_cast<ssize_t>(size);
}

TEST_F(MaintenanceServer, EventWithoutADescriptorForAModuleEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // Output is still flushed and shows the log so far.
            stdout = fopencookie(&logs, "w", {nullptr, print_the_log, nullptr, nullptr});
            std::fputs("printed\n", stdout);
            const FewDescriptors three(3);
            server.WaitForEvent();
        },
        testing::ExitedWithCode(1),
        "printed\n6 \\[CUdpServer\\]::WaitForEvent socket creation failed\n"
        "3 \\[CUdpServer\\] the process ends with exit code 1: no socket to module 4: Too many open files; "
        "every frame leaves one open\n");
}

TEST_F(MaintenanceServer, EventReadsNoMoreOfADatagramThanAFrame)
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

TEST_F(MaintenanceServer, EventsAreServedOneByOneInOrder)
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
        while (!done) {
            EXPECT_EQ(served->GetState(), 0u);
        }
    });
    std::vector<std::thread> tools;
    for (uint16_t tool = 0; tool < 4; ++tool) {
        tools.emplace_back([tool] {
            const MaintenanceClient client;
            for (uint16_t round = 0; round < 25; ++round) {
                const FrameHeader asked{round % 2 == 0 ? "HEID" : "HECT", round, 0, kNone, tool};
                client.send(asked.bytes(), 7502);
                const std::string reply = client.receive();
                EXPECT_EQ(reply.size(), round % 2 == 0 ? 534u : 30u);
                EXPECT_EQ(reply.substr(0, 6), asked.bytes().substr(0, 6)) << "the reply to this request";
                EXPECT_EQ(reply.substr(14, 2), asked.bytes().substr(14, 2));
            }
        });
    }
    for (std::thread& tool : tools) {
        tool.join();
    }
    done = true;
    watcher.join();
    orvan_test::end_with_frames([&] { served.reset(); });
    ::close(fd);
}

} // namespace
