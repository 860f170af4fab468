// The download of module firmware by orvan-maint.
#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "orvan-maint/module_stream.h"
#include "orvan_maint_transfer_bench.h"

using namespace HaldeElec::Orvan;
using namespace orvan_maint;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

constexpr StreamTiming kQuickStream{{1ms, 1ms, 1ms, 200ms}, 50ms, 20ms};

struct Stream {
    explicit Stream(size_t size) : image(random_bytes(size)) {}

    int run(size_t channels = 4, const StreamTiming& timing = kQuickStream)
    {
        ModuleStream stream(
            link, model.mac, image, channels, timing, [](size_t) {},
            [this](size_t channel, std::optional<uint32_t> ended) {
                if (ended) {
                    news += std::to_string(channel) + (*ended == 0 ? "+" : "-");
                }
            });
        int code = kExitDone;
        try {
            result = stream.run();
        } catch (const Failure& failure) {
            code = failure.code;
            complaint = failure.what();
        }
        resent = stream.resent();
        return code;
    }

    std::string image;
    InstrumentModel model;
    DirectLink link{model};
    StreamResult result;
    std::string news;
    std::string complaint;
    size_t resent = 0;
};

} // namespace

TEST(MaintTransfer, ArrivesIntactAtBlockBoundaries)
{
    for (const size_t size : {1U, 1024U, 1025U}) {
        Transfer transfer(size);
        EXPECT_EQ(transfer.run(), kExitDone) << size;
        transfer.expect_whole();
        Stream stream(size);
        EXPECT_EQ(stream.run(), kExitDone) << size;
        EXPECT_TRUE(stream.model.image == stream.image) << size;
    }
}

TEST(MaintStream, WaitsLongerThanTheInstrumentDoes)
{
    for (const size_t channels : {1U, 2U, 4U}) {
        const StreamTiming timing = stream_timing(channels);
        EXPECT_GT(timing.block.least_wait, std::chrono::seconds(2 * channels));
        EXPECT_GT(timing.end_wait, std::chrono::seconds(10 * channels));
        EXPECT_GT(timing.burn_silence, std::chrono::seconds(10));
        // Ten thousand blocks over a link that loses a tenth each way all arrive.
        EXPECT_GE(timing.block.give_up, 20 * timing.block.longest_wait);
    }
}

TEST(MaintStream, ADuplicateFinalFrameDoesNotHideAModuleThatRefuses)
{
    Stream stream(1000);
    stream.model.module_ends = {0, 0, 0, IF_ERROR_INV_BIN_HEADER_FORMAT};
    stream.link.replies = [first = true](const HALDE_PACKET& frame, size_t) mutable {
        return frame.size == 0xFFFF && std::exchange(first, false) ? 2 : 1;
    };
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_EQ(std::count(stream.result.modules.begin(), stream.result.modules.end(),
                         IF_ERROR_INV_BIN_HEADER_FORMAT),
              1);
}

TEST(MaintStream, SendsTheImageAndReportsEachModule)
{
    Stream stream(3000);
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_TRUE(stream.model.image == stream.image);
    EXPECT_TRUE(stream.result.confirmed);
    EXPECT_EQ(stream.news, "1+2+3+4+");
    ASSERT_EQ(stream.link.sent.size(), 4U);
    for (const Bytes& sent : stream.link.sent) {
        EXPECT_EQ(sent.size(), 1046U);
        EXPECT_EQ(std::string(sent.begin(), sent.begin() + 4), "HEPD");
    }
    EXPECT_EQ(Bytes(stream.link.sent[3].begin() + 4, stream.link.sent[3].begin() + 8),
              (Bytes{0, 4, 0xFF, 0xFF}));
}

TEST(MaintStream, OneModuleIsEnough)
{
    Stream stream(100);
    stream.model.module_ends = {0};
    EXPECT_EQ(stream.run(1), kExitDone);
    EXPECT_TRUE(stream.result.confirmed);
    EXPECT_EQ(stream.result.modules, (std::vector<uint32_t>{0}));
}

TEST(MaintStream, AcceptsAcknowledgementsHoweverModulesNumberThem)
{
    for (const int above : {0, 1, 7}) {
        Stream stream(5000);
        stream.model.acknowledged_above = static_cast<uint16_t>(above);
        EXPECT_EQ(stream.run(), kExitDone) << above;
        EXPECT_TRUE(stream.model.image == stream.image);
        EXPECT_TRUE(stream.result.confirmed);
    }
}

TEST(MaintStream, ResendsLostBlocks)
{
    for (size_t lost = 0; lost < 4; ++lost) {
        for (const bool request : {true, false}) {
            Stream stream(3000);
            auto loses = [lost](const HALDE_PACKET&, size_t nth) { return nth == lost ? 0 : 1; };
            (request ? stream.link.requests : stream.link.replies) = loses;
            EXPECT_EQ(stream.run(), kExitDone) << lost << request;
            EXPECT_TRUE(stream.model.image == stream.image);
            EXPECT_TRUE(stream.result.confirmed) << lost << request;
        }
    }
}

TEST(MaintStream, DuplicateAcknowledgementsAreNotMistakenForOthers)
{
    Stream stream(10'000);
    stream.link.replies = [](const HALDE_PACKET& frame, size_t) { return frame.size == 0 ? 2 : 1; };
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_TRUE(stream.model.image == stream.image);
    EXPECT_TRUE(stream.result.confirmed);
    EXPECT_EQ(stream.resent, 0U);
}

TEST(MaintStream, ADuplicateAcknowledgementDoesNotHideALostBlock)
{
    Stream stream(10'000);
    stream.link.replies = [](const HALDE_PACKET& frame, size_t) { return frame.size == 0 ? 2 : 1; };
    stream.link.requests = [](const HALDE_PACKET&, size_t nth) { return nth == 3 ? 0 : 1; };
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_TRUE(stream.model.image == stream.image);
    EXPECT_EQ(stream.resent, 1U);
}

TEST(MaintStream, AModuleThatIsSilentInTheStreamEndsIt)
{
    Stream stream(10'000);
    stream.model.module_silent_from = 4;
    EXPECT_EQ(stream.run(), kExitRefused);
    EXPECT_EQ(stream.complaint,
              "the instrument abandoned the stream at block 4: a module did not answer in time "
              "(0x8000010A)");
    EXPECT_EQ(stream.link.sent.size(), 4U);
    Stream at_end(1000);
    at_end.model.module_silent_from = 2;
    EXPECT_EQ(at_end.run(), kExitRefused);
}

TEST(MaintStream, AModuleSilentWhileBurningLeavesTheOthersTheirResults)
{
    Stream stream(1000);
    stream.model.module_ends = {0, LXI_ERROR_TIMEOUT, 0, 0};
    // There is nothing to wait for after the last module.
    StreamTiming timing = kQuickStream;
    timing.burn_silence = 10min;
    EXPECT_EQ(stream.run(4, timing), kExitDone);
    EXPECT_EQ(stream.news, "1+2-3+4+");
    EXPECT_FALSE(stream.result.confirmed);
    EXPECT_EQ(stream.result.modules, (std::vector<uint32_t>{0, LXI_ERROR_TIMEOUT, 0, 0}));
}

TEST(MaintStream, AModuleThatRefusesIsReportedEvenIfTheInstrumentSucceeds)
{
    Stream stream(1000);
    stream.model.module_ends = {0, 0, 0, IF_ERROR_INV_BIN_HEADER_FORMAT};
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_EQ(stream.news, "1+2+3+4-");
    EXPECT_TRUE(stream.result.confirmed);
}

TEST(MaintStream, AModulesFinalFrameIsNotThatOfTheWholeStream)
{
    Stream stream(1000);
    stream.model.confirms = false;
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_EQ(stream.result.modules.size(), 4U);
    EXPECT_FALSE(stream.result.confirmed);
    Stream cut(1000);
    cut.model.module_ends = {0, 0};
    EXPECT_EQ(cut.run(), kExitDone);
    EXPECT_EQ(cut.result.modules.size(), 3U); // two, and the final frame of the stream, taken for the third
    EXPECT_FALSE(cut.result.confirmed);
}

TEST(MaintStream, FailsEventually)
{
    Stream stream(1000);
    stream.model.is_silent = true;
    EXPECT_EQ(stream.run(), kExitNoAnswer);
    EXPECT_EQ(stream.complaint, "the instrument has stopped answering at block 1 (problem)");
    Stream end(1000);
    end.link.replies = [](const HALDE_PACKET&, size_t nth) { return nth < 1 ? 1 : 0; };
    EXPECT_EQ(end.run(), kExitUnconfirmed);
}

TEST(MaintStream, ErrorsHaveTexts)
{
    EXPECT_EQ(error_text(IF_ERROR_INV_LENGTH), "wrong length, or blocks are missing (0x80000020)");
    EXPECT_EQ(error_text(7), "unknown error (0x00000007)");
}
