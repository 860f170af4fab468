// The downloads of orvan-maint over UDP through a relay that loses and duplicates datagrams.
#include <random>

#include <gtest/gtest.h>

#include "maintenance_peer.h"
#include "orvan-maint/failure.h"
#include "orvan-maint/module_stream.h"
#include "orvan-maint/software_transfer.h"
#include "orvan-maint/udp_link.h"
#include "support/lossy_relay.h"

using namespace orvan_maint;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

constexpr size_t kTenMegabytes = 10'000'000;

std::string random_bytes(size_t size)
{
    std::mt19937_64 random(size);
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(random());
    }
    return bytes;
}

class MaintLossyLink : public testing::TestWithParam<double> {};

} // namespace

TEST_P(MaintLossyLink, APackageArrivesWhole)
{
    const std::string package = random_bytes(kTenMegabytes);
    InstrumentModel model;
    MaintenancePeer peer(model);
    LossyRelay relay(peer.port(), GetParam(), GetParam());
    UdpLink link(resolve("127.0.0.1", relay.port()), -1);
    SoftwareTransfer transfer(link, model.mac, package, {4ms, 1ms, 4ms, 30s}, [](size_t) {});
    EXPECT_NO_THROW(transfer.run());
    peer.stop();
    EXPECT_TRUE(model.file == package);
    EXPECT_EQ(model.ended, 1);
    EXPECT_GT(relay.lost(), 0U);
    EXPECT_GT(relay.doubled(), 0U);
    EXPECT_GE(transfer.resent(), relay.lost() / 2);
    EXPECT_FALSE(transfer.damaged());
}

TEST_P(MaintLossyLink, AnImageArrivesWhole)
{
    const std::string image = random_bytes(kTenMegabytes / 10);
    InstrumentModel model;
    MaintenancePeer peer(model);
    LossyRelay relay(peer.port(), GetParam(), GetParam());
    UdpLink link(resolve("127.0.0.1", relay.port()), -1);
    ModuleStream stream(
        link, model.mac, image, 4, {{4ms, 1ms, 4ms, 30s}, 100ms, 200ms}, [](size_t) {},
        [](size_t, std::optional<uint32_t>) {});
    // The instrument's final frame is sent once, and may be lost.
    try {
        stream.run();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, kExitUnconfirmed) << failure.what();
    }
    peer.stop();
    EXPECT_TRUE(model.image == image);
    EXPECT_EQ(model.streams, 1);
    EXPECT_GT(relay.lost(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Losing, MaintLossyLink, testing::Values(0.01, 0.1), [](const auto& loss) {
    return std::to_string(static_cast<int>(loss.param * 100)) + "Percent";
});
