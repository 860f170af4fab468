// The message exchange of a link; what the executor does is called on the test's own thread.
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <poll.h>
#include <vxi11.h>

#include <gtest/gtest.h>

#include "scripted_instrument.h"
#include "service/vxi11/vxi11_link.h"
#include "support/log_capture.h"

using namespace orvan_service;
using namespace orvan_test;
using Reason = Vxi11Link::Part::Reason;
using Wait = Session::Wait;

namespace {

constexpr size_t kLongest = 3'145'727;
constexpr size_t kMemory = 64 << 20;

class Vxi11LinkTest : public ::testing::Test {
protected:
    /** Executes what has been taken. */
    void execute()
    {
        while (link->next(false) == Wait::kTurn) {
            link->execute();
        }
    }
    std::string response()
    {
        const auto part = link->read(100'000, {});
        EXPECT_TRUE(!part || part->reasons == Reason::kEnd);
        return part ? part->data : std::string();
    }
    std::vector<int> errors()
    {
        std::vector<int> numbers;
        while (link->status().errors() > 0) {
            numbers.push_back(link->status().take_error().number);
        }
        return numbers;
    }
    bool message_available() { return (link->status().status_byte() & kStatusMessageAvailable) != 0; }

    ScriptedInstrument instrument;
    const std::shared_ptr<Vxi11Shared> shared = std::make_shared<Vxi11Shared>();
    Counters counters;
    std::optional<Vxi11Link> link{std::in_place, instrument, shared, counters,
                                  Client{Protocol::kVxi11, "10.0.0.1:700"}};
};

using Messages = std::vector<std::string>;

} // namespace

TEST_F(Vxi11LinkTest, AMessageEndsWithEndWithOrWithoutLf)
{
    link->write("A?", true);
    execute();
    EXPECT_EQ(response(), "A?\n");
    link->write("B?\n", true);
    execute();
    EXPECT_EQ(response(), "B?\n");
    EXPECT_EQ(instrument.texts(), (Messages{"A?", "B?"}));
    EXPECT_EQ(errors(), std::vector<int>());
}

TEST_F(Vxi11LinkTest, AMessageMayComeInAnyNumberOfWrites)
{
    link->write("A", false);
    EXPECT_EQ(link->next(false), Wait::kInput);
    link->write("BC", false);
    link->write("", false);
    link->write("?", true);
    execute();
    EXPECT_EQ(response(), "ABC?\n");
}

TEST_F(Vxi11LinkTest, ALfInTheMidstEndsAMessageToo)
{
    link->write("A\nB 1\nC?", true);
    execute();
    EXPECT_EQ(instrument.texts(), (Messages{"A", "B 1", "C?"}));
    EXPECT_EQ(response(), "C?\n");
}

TEST_F(Vxi11LinkTest, ALfWithinABlockEndsNothing)
{
    link->write("A #14x\n", false);
    link->write("\ny;B\nC\n", true);
    execute();
    EXPECT_EQ(instrument.texts(), (Messages{"A #14x\n\ny;B", "C"}));
}

TEST_F(Vxi11LinkTest, EndInAnUnfinishedBlockEndsIt)
{
    link->write("A #19x", true);
    link->write("B\nC\n", true);
    execute();
    const Messages messages = instrument.texts();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages[messages.size() - 2], "B");
    EXPECT_EQ(messages.back(), "C");
}

TEST_F(Vxi11LinkTest, EmptyMessagesAreNone)
{
    link->write("\n", true);
    link->write("A?\r\n", false);
    link->write("\r\n", true);
    link->write("", true);
    execute();
    link->write("\n", true); // does not interrupt
    EXPECT_EQ(response(), "A?\n");
    EXPECT_EQ(errors(), std::vector<int>());
    EXPECT_EQ(instrument.texts().size(), 1u);
}

TEST_F(Vxi11LinkTest, AResponseIsReadInParts)
{
    link->write("ABCDEFG?", true);
    execute();
    EXPECT_TRUE(message_available());
    auto part = link->read(2, {});
    EXPECT_EQ(part->data, "AB");
    EXPECT_EQ(part->reasons, Reason::kCount);
    part = link->read(100, 'D');
    EXPECT_EQ(part->data, "CD");
    EXPECT_EQ(part->reasons, Reason::kCharacter);
    part = link->read(1, 'E');
    EXPECT_EQ(part->data, "E");
    EXPECT_EQ(part->reasons, Reason::kCount | Reason::kCharacter);
    EXPECT_TRUE(message_available());
    part = link->read(4, '\n');
    EXPECT_EQ(part->data, "FG?\n");
    EXPECT_EQ(part->reasons, Reason::kCount | Reason::kCharacter | Reason::kEnd);
    EXPECT_FALSE(message_available());
    EXPECT_FALSE(link->read(100, {}));
}

TEST_F(Vxi11LinkTest, APartWithoutAReasonIsTheLargestThereIs)
{
    const std::string text(VXI11_MOST_DATA + 5, 'x');
    instrument.answer_with([&](int&, const std::string&) { return text + ";+OK\r\n"; });
    link->write("A?", true);
    execute();
    auto part = link->read(0xFFFFFFFF, {});
    EXPECT_EQ(part->data.size(), size_t{VXI11_MOST_DATA});
    EXPECT_EQ(part->reasons, 0);
    part = link->read(0xFFFFFFFF, {});
    EXPECT_EQ(part->data, "xxxxx\n");
    EXPECT_EQ(part->reasons, Reason::kEnd);
}

TEST_F(Vxi11LinkTest, AWriteBeforeTheResponseIsReadInterrupts)
{
    link->write("A?", true);
    execute();
    link->write("B", false);
    EXPECT_FALSE(message_available());
    EXPECT_FALSE(link->read(100, {}));
    link->write("?", true);
    execute();
    EXPECT_EQ(response(), "B?\n");
    EXPECT_EQ(errors(), std::vector<int>{-410});
}

TEST_F(Vxi11LinkTest, TheRestOfAnInterruptedResponseIsGone)
{
    link->write("ABC?", true);
    execute();
    link->read(1, {});
    link->write("D?", true);
    execute();
    EXPECT_EQ(response(), "D?\n");
    EXPECT_EQ(errors(), std::vector<int>{-410});
}

TEST_F(Vxi11LinkTest, AMessageThatWaitsInterruptsTheOneBeforeIt)
{
    link->write("A?", true);
    link->write("B?", true);
    execute();
    EXPECT_EQ(response(), "B?\n");
    EXPECT_EQ(errors(), std::vector<int>{-410});
}

TEST_F(Vxi11LinkTest, ABegunMessageInterruptsTheOneBeforeIt)
{
    link->write("A?\nB", false);
    execute();
    EXPECT_FALSE(link->read(100, {}));
    EXPECT_EQ(errors(), std::vector<int>{-410});
}

TEST_F(Vxi11LinkTest, IsAskedWhileAResponseMayCome)
{
    EXPECT_FALSE(link->is_asked());
    link->write("A?", false);
    EXPECT_FALSE(link->is_asked());
    link->write("", true);
    EXPECT_TRUE(link->is_asked());
    instrument.answer_with([&](int&, const std::string&) {
        EXPECT_TRUE(link->is_asked());
        return "1;+OK\r\n";
    });
    execute();
    EXPECT_TRUE(link->is_asked());
    response();
    EXPECT_FALSE(link->is_asked());
    instrument.answer_with({});
    link->write("A", true);
    execute();
    EXPECT_FALSE(link->is_asked());
}

TEST_F(Vxi11LinkTest, AMessageOf3145727BytesIsExecutedAndALongerOneDropped)
{
    const std::string longest = std::string(kLongest - 1, 'x') + "?";
    for (size_t at = 0; at < longest.size(); at += 1 << 20) {
        link->write(longest.substr(at, 1 << 20), false);
    }
    link->write("\n", true); // does not count
    execute();
    ASSERT_EQ(instrument.texts().size(), 1u);
    EXPECT_EQ(instrument.texts()[0].size(), kLongest);
    link->clear();
    EXPECT_EQ(errors(), std::vector<int>());

    link->write(longest, false);
    link->write("x", false);
    link->write(longest, false); // its rest, too, with one error
    link->write("y\nB?", true);
    EXPECT_EQ(errors(), std::vector<int>{-363});
    execute();
    EXPECT_EQ(instrument.texts().size(), 2u);
    EXPECT_EQ(response(), "B?\n");
    EXPECT_EQ(errors(), std::vector<int>());
}

TEST_F(Vxi11LinkTest, HasRoomForSixteenMessagesOrAMegabyte)
{
    for (int i = 0; i < 16; ++i) {
        EXPECT_TRUE(link->has_room(1, kMemory));
        link->write("A", true);
    }
    EXPECT_FALSE(link->has_room(1, kMemory));
    link->execute();
    EXPECT_TRUE(link->has_room(1, kMemory));
    execute();
    link->write(std::string(1 << 20, 'x'), true);
    EXPECT_FALSE(link->has_room(1, kMemory));
    link->clear();
    EXPECT_TRUE(link->has_room(1, kMemory));
}

TEST_F(Vxi11LinkTest, SharesItsMemoryWithOtherLinks)
{
    Vxi11Link other(instrument, shared, counters, Client{Protocol::kVxi11, {}});
    link->write(std::string(600, 'x'), false);
    EXPECT_TRUE(other.has_room(400, 1000));
    EXPECT_FALSE(other.has_room(401, 1000));
    EXPECT_FALSE(link->has_room(401, 1000));
    other.write("A\nB", true);
    EXPECT_GT(shared->memory, 600u + 3);
    // All is returned, whatever becomes of the messages.
    link->write("", true);
    execute();
    other.clear();
    EXPECT_EQ(shared->memory, 0u);
    for (int i = 0; i < 4; ++i) {
        link->write(std::string(kLongest / 2 + 1, 'x'), false);
    }
    EXPECT_EQ(shared->memory, 0u); // dropped
    link->write("\nB", false);
    EXPECT_EQ(shared->memory, 1u);
    link->close();
    EXPECT_EQ(shared->memory, 0u);
    other.write("A", true);
    link.reset();
    EXPECT_EQ(shared->links, 1u);
    EXPECT_GT(shared->memory, 0u);
}

TEST_F(Vxi11LinkTest, ClearDropsInputMessagesAndResponse)
{
    link->write("A?", true);
    execute();
    link->clear();
    EXPECT_FALSE(message_available());
    EXPECT_FALSE(link->read(100, {}));
    link->write("B #19x", false);
    link->clear();
    link->write("C", true);
    link->write("D", true);
    link->clear();
    EXPECT_EQ(link->next(false), Wait::kInput);
    link->write("E?\n", true);
    execute();
    EXPECT_EQ(response(), "E?\n");
    EXPECT_EQ(errors(), std::vector<int>());
    EXPECT_EQ(instrument.texts(), (Messages{"A?", "E?"}));
}

TEST_F(Vxi11LinkTest, ClearDropsWhatARunningMessageHasNotYetDone)
{
    instrument.answer_with([&](int&, const std::string& message) {
        if (message == "A?") {
            link->clear();
            link->write("B?", true);
        }
        return message + ";+OK\r\n";
    });
    // *ESE is the session's, so "C" is another part of the message.
    link->write("A?;*ESE 4;C", true);
    execute();
    EXPECT_EQ(response(), "B?\n");
    EXPECT_EQ(link->status().event_enable(), 0);
    EXPECT_EQ(errors(), std::vector<int>());
    EXPECT_EQ(instrument.texts(), (Messages{"A?", "B?"}));
}

TEST_F(Vxi11LinkTest, AClosedLinkExecutesWhatItHasTaken)
{
    link->write("A", true);
    link->write("B?", true);
    link->write("C", false);
    link->close();
    execute();
    EXPECT_EQ(instrument.texts(), (Messages{"A", "B?"}));
    EXPECT_EQ(link->next(false), Wait::kOver);
    EXPECT_FALSE(message_available());
}

TEST_F(Vxi11LinkTest, TriggerIsAMessage)
{
    link->trigger();
    execute();
    EXPECT_EQ(instrument.texts(), Messages{"*TRG"});
    link->write("A", false);
    link->trigger();
    EXPECT_EQ(errors(), std::vector<int>{-105});
    link->write("?", true);
    execute();
    EXPECT_EQ(response(), "A?\n");
}

TEST_F(Vxi11LinkTest, SignalsItsExecutorAndTheServer)
{
    pollfd events[] = {{link->descriptor(), POLLIN, 0}, {shared->wake_descriptor(), POLLIN, 0}};
    EXPECT_EQ(::poll(events, 2, 0), 0);
    link->write("A", false);
    EXPECT_EQ(::poll(events, 2, 0), 0);
    link->write("?", true);
    EXPECT_EQ(::poll(events, 1, 0), 1);
    EXPECT_EQ(link->next(true), Wait::kTurn);
    EXPECT_EQ(::poll(events, 2, 0), 0);
    link->execute();
    EXPECT_EQ(::poll(events + 1, 1, 0), 1);
    link->close();
    EXPECT_EQ(::poll(events, 1, 0), 1);
}

TEST_F(Vxi11LinkTest, ReportsARequestForServiceOnce)
{
    link->write("*SRE 16", true);
    execute();
    EXPECT_FALSE(link->take_service_request());
    link->write("A?", true);
    execute();
    EXPECT_TRUE(link->take_service_request());
    EXPECT_FALSE(link->take_service_request());
    EXPECT_EQ(link->status().serial_poll(), kStatusRequest | kStatusMessageAvailable);
    EXPECT_EQ(link->status().serial_poll(), kStatusMessageAvailable);
}

TEST_F(Vxi11LinkTest, AnExceptionBecomesAnErrorOfTheDevice)
{
    LogCapture log;
    instrument.answer_with(
        [](int&, const std::string&) -> std::string { throw std::runtime_error("no socket"); });
    link->write("A?", true);
    execute();
    EXPECT_EQ(log.count(LOG_ERR, "VXI-11: no socket"), 1u);
    EXPECT_EQ(errors(), std::vector<int>{-310});
    EXPECT_FALSE(link->is_asked());
}
