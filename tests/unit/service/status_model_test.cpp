#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "service/standard/status_model.h"

using namespace orvan_service;

namespace {

class StatusModelTest : public ::testing::Test {
protected:
    std::vector<uint8_t> requests;
    StatusModel status{[this](uint8_t byte) { requests.push_back(byte); }};
};

constexpr uint8_t kMav = kStatusMessageAvailable;
constexpr uint8_t kEav = kStatusErrorAvailable;
constexpr uint8_t kEsb = kStatusEventSummary;
constexpr uint8_t kRqs = kStatusRequest;

} // namespace

TEST_F(StatusModelTest, StartsEmpty)
{
    EXPECT_EQ(status.errors(), 0u);
    EXPECT_EQ(status.take_error(), (StandardError{0, "No error"}));
    EXPECT_EQ(status.take_events(), 0);
    EXPECT_EQ(status.event_enable(), 0);
    EXPECT_EQ(status.service_enable(), 0);
    EXPECT_EQ(status.status_byte(), 0);
    EXPECT_EQ(status.serial_poll(), 0);
}

TEST_F(StatusModelTest, ErrorsComeOutInTheirOrder)
{
    status.add(-113);
    status.add({-222, "Data out of range;above 3 GHz"});
    EXPECT_EQ(status.errors(), 2u);
    EXPECT_EQ(status.take_error(), (StandardError{-113, "Undefined header"}));
    EXPECT_EQ(status.take_error(), (StandardError{-222, "Data out of range;above 3 GHz"}));
    EXPECT_EQ(status.take_error(), (StandardError{0, "No error"}));
}

TEST_F(StatusModelTest, TheTwentyFirstErrorTurnsTheLastIntoAnOverflow)
{
    for (int i = 1; i <= 20; ++i) {
        status.add({i, std::to_string(i)});
    }
    EXPECT_EQ(status.take_events(), kEventDeviceError);
    status.add(-113);
    status.add(-222);
    EXPECT_EQ(status.take_events(), kEventCommandError | kEventExecutionError | kEventDeviceError);
    EXPECT_EQ(status.errors(), 20u);
    for (int i = 1; i <= 19; ++i) {
        EXPECT_EQ(status.take_error(), (StandardError{i, std::to_string(i)}));
    }
    EXPECT_EQ(status.take_error(), (StandardError{-350, "Queue overflow"}));
    status.add(-113);
    EXPECT_EQ(status.take_error().number, -113);
    EXPECT_EQ(status.errors(), 0u);
}

TEST_F(StatusModelTest, EachClassOfErrorsHasItsEvent)
{
    struct Row {
        int number;
        int event;
    };
    for (const Row& row :
         {Row{-100, kEventCommandError}, Row{-199, kEventCommandError}, Row{-200, kEventExecutionError},
          Row{-299, kEventExecutionError}, Row{-300, kEventDeviceError}, Row{-399, kEventDeviceError},
          Row{1, kEventDeviceError}, Row{32767, kEventDeviceError}, Row{-400, kEventQueryError},
          Row{-499, kEventQueryError}, Row{-500, kEventPowerOn}, Row{-600, kEventUserRequest},
          Row{-700, kEventRequestControl}, Row{-800, kEventOperationComplete}, Row{-99, 0}, Row{-900, 0}}) {
        status.add(row.number);
        EXPECT_EQ(status.take_events(), row.event) << row.number;
    }
}

TEST_F(StatusModelTest, EventsAddUpUntilTheyAreRead)
{
    status.set_events(kEventOperationComplete);
    status.set_events(kEventPowerOn);
    EXPECT_EQ(status.take_events(), kEventOperationComplete | kEventPowerOn);
    EXPECT_EQ(status.take_events(), 0);
}

TEST_F(StatusModelTest, TheEventSummaryFollowsItsEnableRegister)
{
    status.set_events(kEventOperationComplete);
    EXPECT_EQ(status.status_byte(), 0);
    status.set_event_enable(kEventOperationComplete);
    EXPECT_EQ(status.event_enable(), kEventOperationComplete);
    EXPECT_EQ(status.status_byte(), kEsb);
    status.set_event_enable(kEventCommandError);
    EXPECT_EQ(status.status_byte(), 0);
    status.add(-113);
    EXPECT_EQ(status.status_byte(), kEsb | kEav);
    status.take_events();
    EXPECT_EQ(status.status_byte(), kEav);
    status.take_error();
    EXPECT_EQ(status.status_byte(), 0);
}

TEST_F(StatusModelTest, MessageAvailableIsShownWhileItIsSet)
{
    status.set_message_available(true);
    EXPECT_EQ(status.status_byte(), kMav);
    EXPECT_EQ(status.serial_poll(), kMav);
    status.set_message_available(false);
    EXPECT_EQ(status.status_byte(), 0);
}

// Its MAV, ESB and RQS are those of its connection to the controller.
TEST_F(StatusModelTest, OnlyTheModulesOwnSummariesAreShown)
{
    status.set_module_status(0xFF);
    EXPECT_EQ(status.status_byte(), 0x8B | kEav);
    status.set_module_status(0x08);
    EXPECT_EQ(status.status_byte(), 0x08);
}

TEST_F(StatusModelTest, MasterSummaryFollowsTheServiceEnableRegister)
{
    status.add(-113);
    status.set_service_enable(0xFF);
    EXPECT_EQ(status.service_enable(), 0xFF & ~kRqs);
    EXPECT_EQ(status.status_byte(), kEav | kRqs);
    EXPECT_EQ(status.status_byte(), kEav | kRqs) << "reading it changes nothing";
    status.set_service_enable(kMav);
    EXPECT_EQ(status.status_byte(), kEav);
    status.set_service_enable(kEav);
    status.take_error();
    EXPECT_EQ(status.status_byte(), 0);
}

TEST_F(StatusModelTest, ARequestIsMadeOnceForEachNewReason)
{
    status.set_service_enable(kEav | kMav);
    status.add(-113);
    EXPECT_EQ(requests, (std::vector<uint8_t>{kEav | kRqs}));
    status.add(-113);
    EXPECT_EQ(requests.size(), 1u) << "the reason is known";
    status.set_message_available(true);
    EXPECT_EQ(requests.back(), kEav | kMav | kRqs) << "another reason";
    status.set_message_available(false);
    status.set_message_available(true);
    EXPECT_EQ(requests.size(), 3u) << "a reason that was gone";
}

TEST_F(StatusModelTest, AReasonThatIsEnabledAfterItAppearedMakesARequest)
{
    status.add(-113);
    EXPECT_TRUE(requests.empty());
    status.set_service_enable(kEav);
    EXPECT_EQ(requests.size(), 1u);
    status.set_service_enable(kEav | kMav);
    EXPECT_EQ(requests.size(), 1u);
    status.set_event_enable(kEventCommandError);
    EXPECT_EQ(requests.size(), 1u);
    status.set_service_enable(kEav | kEsb);
    EXPECT_EQ(requests.size(), 2u);
}

TEST_F(StatusModelTest, ASerialPollEndsTheRequestAndNotItsReason)
{
    status.set_service_enable(kMav);
    status.set_message_available(true);
    EXPECT_EQ(status.serial_poll(), kMav | kRqs);
    EXPECT_EQ(status.serial_poll(), kMav);
    EXPECT_EQ(status.status_byte(), kMav | kRqs);
    EXPECT_EQ(requests.size(), 1u);
    status.set_message_available(false);
    status.set_message_available(true);
    EXPECT_EQ(status.serial_poll(), kMav | kRqs);
}

TEST_F(StatusModelTest, ARequestWhoseReasonIsGoneIsWithdrawn)
{
    status.set_service_enable(kMav);
    status.set_message_available(true);
    status.set_message_available(false);
    EXPECT_EQ(status.serial_poll(), 0);
    status.set_message_available(true);
    EXPECT_EQ(requests.size(), 2u);
    EXPECT_EQ(status.serial_poll(), kMav | kRqs);
}

TEST_F(StatusModelTest, ClearKeepsTheEnableRegistersAndTheMessage)
{
    status.set_service_enable(kEav);
    status.set_event_enable(kEventCommandError);
    status.add(-113);
    status.set_module_status(0x8F);
    status.set_message_available(true);
    status.clear();
    EXPECT_EQ(status.errors(), 0u);
    EXPECT_EQ(status.status_byte(), kMav);
    EXPECT_EQ(status.take_events(), 0);
    EXPECT_EQ(status.serial_poll(), kMav) << "the request is withdrawn";
    EXPECT_EQ(status.service_enable(), kEav);
    EXPECT_EQ(status.event_enable(), kEventCommandError);
}

TEST(StatusModel, ARequestMayReadTheStatusItIsAbout)
{
    StatusModel* model = nullptr;
    uint8_t polled = 0;
    StatusModel status([&](uint8_t) { polled = model->serial_poll(); });
    model = &status;
    status.set_service_enable(kEav);
    status.add(-113);
    EXPECT_EQ(polled, kEav | kRqs);
    StatusModel without({});
    without.set_service_enable(kEav);
    without.add(-113);
}

TEST(StatusModel, ReasonsOnSeveralThreadsAreAllReported)
{
    constexpr int kRounds = 2000;
    std::atomic<int> requests = 0;
    StatusModel status([&](uint8_t) { ++requests; });
    status.set_service_enable(kMav | kEav);
    std::thread other([&] {
        for (int i = 0; i < kRounds; ++i) {
            status.set_message_available(true);
            status.set_message_available(false);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        status.add(-113);
        status.serial_poll();
        EXPECT_EQ(status.take_error().number, -113);
    }
    other.join();
    EXPECT_EQ(requests, 2 * kRounds);
}
