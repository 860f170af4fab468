// The maintenance server as the last step of the benchtop's start, and at its end.

#include <algorithm>
#include <atomic>
#include <cstring>

#include <sys/socket.h>

#include "benchtop_start_bench.h"
#include "nothrow_new.h"
#include "support/maintenance_client.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using namespace std::string_literals;
using orvan_common::UniqueFd;
using orvan_test::FrameHeader;
using orvan_test::LogLine;
using orvan_test::MaintenanceClient;

namespace {

constexpr uint64_t kPageUs = 5'000; // of the EEPROM

bool port_is_free()
{
    const UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in any = orvan_test::ipv4("0.0.0.0", 7502);
    return ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0;
}

/** The line after which only the rows, the fans and the server follow. */
bool is_last_line(const LogLine& line)
{
    return line.text.starts_with("[CPersistentData] readData hostname");
}

TEST_F(BenchtopStart, OpensItsMaintenancePortLast)
{
    store(settled_settings());
    std::atomic<int> free_before = -1;
    logs.on_line([&](const LogLine& line) {
        if (is_last_line(line)) {
            free_before = port_is_free() ? 1 : 0;
        }
    });
    start_and_settle();
    EXPECT_EQ(free_before, 1);
    EXPECT_FALSE(port_is_free());
    EXPECT_TRUE(device->Initialized());
}

TEST_F(BenchtopStart, ReportsItsIdentityAndOptionsToTheMaintenanceTool)
{
    store(settled_settings());
    start_and_settle();
    const MaintenanceClient client;
    client.send(FrameHeader{"HEID"}.bytes(), 7502);
    const std::string identity = client.receive();
    ASSERT_EQ(identity.size(), 534u);
    for (const char* row : {"A10.0.0.2\0", "Hbench-4\0", "IOVX3654B\0", "S240017\0", "F1.19.145\0"}) {
        EXPECT_NE(identity.find(row + "\0"s), std::string::npos) << row;
    }
    client.send(FrameHeader{"HECT"}.bytes(), 7502);
    EXPECT_EQ(client.receive().substr(22 + 12, 4), "MOD\0"s);
}

TEST_F(BenchtopStart, TakesAParameterFromTheMaintenanceTool)
{
    store(settled_settings());
    start_and_settle();
    const MaintenanceClient client;
    client.send(orvan_test::request({"HEOT"}, {orvan_test::request_row('S', "240099")}), 7502);
    std::string reply;
    for (int steps = 0; steps < 5000 && reply.empty(); ++steps) {
        board->clock().advance(kPageUs);
        reply = client.receive(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(reply.size(), 534u);
    EEPROM_DEVICE_SETTINGS stored;
    std::memcpy(static_cast<void*>(&stored), eeprom_image().data(), sizeof stored);
    EXPECT_STREQ(stored.serialNum, "240099");
    EXPECT_EQ(eeprom_image(), file_image());
}

TEST_F(BenchtopStart, ContinuesWhenItsMaintenancePortIsTaken)
{
    store(settled_settings());
    const UniqueFd taken(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in any = orvan_test::ipv4("0.0.0.0", 7502);
    ASSERT_EQ(bind(taken.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
    start_and_settle();
    EXPECT_TRUE(device->Initialized());
}

TEST_F(BenchtopStart, WithoutMemoryForItsMaintenanceServerHasFailed)
{
    store(settled_settings());
    logs.on_line([](const LogLine& line) {
        if (is_last_line(line)) {
            refuse_nothrow_new(true);
        }
    });
    start();
    refuse_nothrow_new(false);
    logs.on_line({});
    pass(kSettlingUs);
    EXPECT_FALSE(device->Initialized());
    EXPECT_EQ(board->clock().sleepers(), threads) << "the rest runs";
    EXPECT_TRUE(port_is_free());
}

TEST_F(BenchtopStart, EndsItsBusBeforeItsMaintenanceServer)
{
    store(settled_settings());
    start_and_settle();
    wait_for_maintenance_server();
    board->trace().clear();
    end_without_frames_before_the_bus_ends();
    const auto lines = board->trace().lines_with({"spi close", "log 6 [CUdpServer]::WaitForEvent"});
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.front(), "spi close");
    EXPECT_EQ(lines.back().substr(0, 5), "log 6") << "the frame that ends the server";
}

} // namespace
