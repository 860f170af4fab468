// The two downloads of orvan-maint against an instrument's model, on a link that loses, doubles and delays.
#include <algorithm>
#include <random>
#include <utility>

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "direct_link.h"
#include "orvan-maint/exchange.h"
#include "orvan-maint/module_stream.h"
#include "orvan-maint/software_transfer.h"

using namespace HaldeElec::Orvan;
using namespace orvan_maint;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

constexpr Timing kQuick{1ms, 200us, 2ms, 300ms};
constexpr StreamTiming kQuickStream{{1ms, 1ms, 1ms, 200ms}, 50ms, 20ms};

std::string random_bytes(size_t size)
{
    std::mt19937 random(size);
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(random());
    }
    return bytes;
}

/** A transfer to a model. */
struct Transfer {
    explicit Transfer(size_t size) : Transfer(random_bytes(size)) {}
    explicit Transfer(std::string bytes) : package(std::move(bytes)) {}

    /** Its result. */
    int run(const Timing& timing = kQuick)
    {
        SoftwareTransfer transfer(link, model.mac, package, timing,
                                  [this](size_t done) { progress.push_back(done); });
        int code = kExitDone;
        try {
            transfer.run();
        } catch (const Failure& failure) {
            code = failure.code;
            complaint = failure.what();
        }
        resent = transfer.resent();
        end_sent = transfer.end_sent();
        damaged = transfer.damaged();
        return code;
    }

    /** Opcode and block of each frame sent: "HESU0 HEID1". */
    std::string sent() const
    {
        std::string text;
        for (const Bytes& bytes : link.sent) {
            text += (text.empty() ? "" : " ") + std::string(bytes.begin(), bytes.begin() + 4) +
                    std::to_string(bytes[4] << 8 | bytes[5]);
        }
        return text;
    }

    void expect_whole()
    {
        EXPECT_EQ(complaint, "");
        EXPECT_TRUE(model.file == package);
        EXPECT_EQ(model.ended, 1);
        EXPECT_EQ(model.transfers, 1);
        EXPECT_FALSE(model.in_transfer());
        EXPECT_FALSE(damaged);
    }

    std::string package;
    InstrumentModel model;
    DirectLink link{model};
    std::vector<size_t> progress;
    size_t resent = 0;
    bool end_sent = false;
    bool damaged = false;
    std::string complaint;
};

uint16_t number(const HALDE_PACKET& frame)
{
    return ntohs(frame.block);
}

// Loses the first matching frame.
auto lose_first(std::function<bool(const HALDE_PACKET&)> meant)
{
    return [meant = std::move(meant), lost = false](const HALDE_PACKET& frame, size_t) mutable {
        if (lost || !meant(frame)) {
            return 1;
        }
        lost = true;
        return 0;
    };
}

} // namespace

// ---- requests

TEST(MaintExchange, TakesTheReplyToItsOwnRequest)
{
    InstrumentModel model;
    DirectLink link(model);
    const HALDE_PACKET request = make_frame(kOpcodeIdentify, eth_brdcast_addr);
    const HALDE_PACKET other = make_frame(kOpcodeOptions, eth_brdcast_addr);
    ASSERT_TRUE(ask(link, request, 0, 60ms));
    // The reply to an earlier request, and one of another opcode, come late.
    Bytes late = model.serve(link.sent[0]).at(0);
    late[FRMHEADERLEN + 1] = 'x';
    link.waiting.push_back(late);
    Bytes of_another = model.serve(wire_bytes(other, 0)).at(0);
    of_another[16] = static_cast<uint8_t>(late[16] + 1); // what the next request will have
    link.waiting.push_back(of_another);
    const auto reply = ask(link, request, 0, 60ms);
    ASSERT_TRUE(reply);
    EXPECT_TRUE(has_opcode(reply->frame, kOpcodeIdentify));
    EXPECT_EQ(reply->frame.data[1], '1');
    EXPECT_TRUE(link.waiting.empty());
}

TEST(MaintExchange, SendsThreeTimesAndNoMore)
{
    InstrumentModel model;
    model.is_silent = true;
    DirectLink link(model);
    EXPECT_FALSE(ask(link, make_frame(kOpcodeIdentify, eth_brdcast_addr), 0, 30ms));
    ASSERT_EQ(link.sent.size(), 3U);
    EXPECT_EQ(link.sent[0], link.sent[2]);
}

// ---- packages

TEST(MaintTransfer, IsAHeaderBlocksAndAnEnd)
{
    Transfer transfer(2050);
    EXPECT_EQ(transfer.run(), kExitDone);
    transfer.expect_whole();
    EXPECT_EQ(transfer.sent(), "HESU0 HEID1 HEID2 HEID3 HEID4");
    const auto& sent = transfer.link.sent;
    EXPECT_EQ(sent[0].size(), 22U);
    EXPECT_EQ(sent[1].size(), 1046U);
    EXPECT_EQ(sent[3].size(), 24U);
    EXPECT_EQ(sent[4],
              (Bytes{'H', 'E', 'I', 'D', 0, 4, 0xFF, 0xFF, 2, 0, 10, 0, 0, 2, 0, 0, 4, 0, 0, 0, 0, 0}));
    EXPECT_EQ(transfer.progress, (std::vector<size_t>{0, 1024, 2048, 2050}));
    EXPECT_EQ(transfer.resent, 0U);
}

TEST(MaintTransfer, SurvivesTheLossOfAnySingleFrame)
{
    for (size_t lost = 0; lost < 6; ++lost) {
        for (const bool request : {true, false}) {
            Transfer transfer(4000);
            auto loses = [lost](const HALDE_PACKET&, size_t nth) { return nth == lost ? 0 : 1; };
            (request ? transfer.link.requests : transfer.link.replies) = loses;
            EXPECT_EQ(transfer.run(), kExitDone) << lost << request;
            transfer.expect_whole();
        }
    }
}

TEST(MaintTransfer, SurvivesTheLossOfManyAcknowledgementsInARow)
{
    for (const size_t lost : {2U, 5U, 8U, 9U, 13U}) {
        for (const size_t size : {4'000U, 40'000U}) {
            // With more than eight it has to start over, when half of the time limit has passed.
            const bool goes_on = lost <= 8;
            Transfer transfer(size);
            transfer.link.replies = [lost](const HALDE_PACKET&, size_t nth) {
                return nth >= 3 && nth < 3 + lost ? 0 : 1;
            };
            EXPECT_EQ(transfer.run({1ms, 200us, 1ms, goes_on ? 10s : 300ms}), kExitDone) << lost;
            transfer.expect_whole();
            if (goes_on) {
                EXPECT_TRUE(std::is_sorted(transfer.progress.begin(), transfer.progress.end())) << lost;
            }
        }
    }
}

TEST(MaintTransfer, SurvivesTheDoublingOfAnyFrame)
{
    for (const bool request : {true, false}) {
        Transfer transfer(4000);
        (request ? transfer.link.requests : transfer.link.replies) = [](const HALDE_PACKET&, size_t) {
            return 2;
        };
        EXPECT_EQ(transfer.run(), kExitDone);
        transfer.expect_whole();
    }
}

TEST(MaintTransfer, ALostHeaderIsDistinguishedFromItsLostAcknowledgement)
{
    Transfer header(1000);
    header.link.requests = lose_first([](const HALDE_PACKET& frame) { return frame.opcode[2] == 'S'; });
    EXPECT_EQ(header.run(), kExitDone);
    EXPECT_EQ(header.sent(), "HESU0 HEID1 HESU0 HEID1 HEID2"); // block 1 was answered as an identification
    Transfer acknowledgement(1000);
    acknowledgement.link.replies = lose_first([](const HALDE_PACKET&) { return true; });
    EXPECT_EQ(acknowledgement.run(), kExitDone);
    EXPECT_EQ(acknowledgement.sent(), "HESU0 HEID1 HEID2");
}

TEST(MaintTransfer, AnotherClientsSearchSetsItBackAndItStillArrivesWhole)
{
    Transfer transfer(20'000);
    transfer.link.meanwhile = [&transfer](size_t number) {
        if (number == 12) {
            transfer.model.serve(wire_bytes(make_frame(kOpcodeIdentify, eth_brdcast_addr), 0));
        }
    };
    EXPECT_EQ(transfer.run(), kExitDone);
    transfer.expect_whole();
    EXPECT_NE(transfer.sent().find("HEID12 HEID12 HEID13 HEID12 HEID1 HEID2 HEID3"), std::string::npos)
        << transfer.sent();
}

TEST(MaintTransfer, EndsWhenItIsTakenBackAgainAndAgain)
{
    Transfer transfer(20'000);
    transfer.link.meanwhile = [&transfer](size_t number) {
        if (number % 13 == 12) {
            transfer.model.serve(wire_bytes(make_frame(kOpcodeIdentify, eth_brdcast_addr), 0));
        }
    };
    EXPECT_EQ(transfer.run({1ms, 200us, 2ms, 10s}), kExitNoAnswer);
    EXPECT_NE(transfer.complaint.find("repeatedly"), std::string::npos) << transfer.complaint;
    EXPECT_LT(transfer.link.sent.size(), 1000U);
}

TEST(MaintTransfer, AnOutageIsWaitedOutAndTheTransferContinues)
{
    Transfer transfer(5000);
    transfer.link.requests = [](const HALDE_PACKET&, size_t nth) { return nth >= 4 && nth < 20 ? 0 : 1; };
    EXPECT_EQ(transfer.run(), kExitDone);
    transfer.expect_whole();
    EXPECT_TRUE(std::is_sorted(transfer.progress.begin(), transfer.progress.end()));
}

TEST(MaintTransfer, AnAbortedTransferIsStartedAgain)
{
    Transfer transfer(3000);
    transfer.model.wait_for_block(500);
    EXPECT_EQ(transfer.run(), kExitDone);
    EXPECT_TRUE(transfer.model.file == transfer.package);
    EXPECT_EQ(transfer.model.ended, 1);
}

TEST(MaintTransfer, AnEndThatIsSentOnceTooOftenBeginsNoOther)
{
    Transfer transfer(1000);
    transfer.link.replies = lose_first([](const HALDE_PACKET& frame) { return number(frame) == 3; });
    EXPECT_EQ(transfer.run(), kExitDone);
    EXPECT_EQ(transfer.sent(),
              "HESU0 HEID1 HEID2 HEID2 HEID1"); // and the second was answered as an identification
    transfer.expect_whole();
}

TEST(MaintTransfer, LateAcknowledgementsAreNotTakenForOthers)
{
    Transfer transfer(10'000);
    // Each comes again when the next block was sent.
    std::deque<Bytes> late;
    transfer.link.meanwhile = [&](size_t) {
        transfer.link.waiting.insert(transfer.link.waiting.end(), late.begin(), late.end());
        late.clear();
    };
    transfer.link.replies = [&](const HALDE_PACKET& frame, size_t) {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&frame);
        late.emplace_back(bytes, bytes + FRMHEADERLEN);
        return 1;
    };
    EXPECT_EQ(transfer.run(), kExitDone);
    transfer.expect_whole();
}

TEST(MaintTransfer, AnotherClientsBlockAcknowledgedHereIsDamage)
{
    for (const uint32_t info : {0U, 4U, 1'000U, UINT32_MAX}) {
        Transfer transfer(10'000);
        transfer.model.stolen_block = 5;
        transfer.model.stolen_info = info;
        EXPECT_EQ(transfer.run(), kExitDone) << info;
        EXPECT_FALSE(transfer.model.file == transfer.package) << info;
        EXPECT_TRUE(transfer.damaged) << info;
    }
}

TEST(MaintTransfer, AcknowledgementsOfAnotherTransferAreNotTakenForItsOwn)
{
    // As many as would end it.
    Transfer transfer(3000);
    transfer.link.requests = [](const HALDE_PACKET& frame, size_t) { return number(frame) < 2 ? 1 : 0; };
    transfer.link.meanwhile = [&transfer](size_t) {
        for (const uint8_t block : Bytes{3, 4, 5}) {
            transfer.link.waiting.push_back(
                {'H', 'E', 'I', 'D', 0, block, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x77, 0, 0, 0, 0, 0});
        }
    };
    EXPECT_EQ(transfer.run(), kExitNoAnswer);
    EXPECT_TRUE(transfer.damaged);
    EXPECT_EQ(transfer.model.ended, 0);
}

TEST(MaintTransfer, AnInstrumentThatLeavesItIsNotFedOn)
{
    Transfer transfer(10'000);
    transfer.model.leaves_at = 5;
    EXPECT_EQ(transfer.run(), kExitRefused);
    EXPECT_EQ(transfer.complaint,
              "the instrument has left the transfer at block 5; it may have been restarted; start again");
    EXPECT_FALSE(transfer.end_sent);
    Transfer near_end(10'000);
    near_end.model.leaves_at = 10;
    EXPECT_EQ(near_end.run(), kExitRefused);
}

TEST(MaintTransfer, GivesUpEventually)
{
    Transfer silent(1000);
    silent.model.is_silent = true;
    EXPECT_EQ(silent.run(), kExitNoAnswer);
    EXPECT_EQ(silent.complaint,
              "the instrument has stopped answering (problem); start again; the package is sent "
              "from the beginning");
    Transfer middle(40'000);
    middle.link.requests = [](const HALDE_PACKET&, size_t nth) { return nth < 5 ? 1 : 0; };
    EXPECT_EQ(middle.run(), kExitNoAnswer);
    Transfer end(1000);
    end.link.replies = [](const HALDE_PACKET&, size_t nth) { return nth < 2 ? 1 : 0; };
    EXPECT_EQ(end.run(), kExitUnconfirmed);
    EXPECT_EQ(end.complaint, "the whole package was sent, but its end was not acknowledged (problem)");
    EXPECT_TRUE(end.end_sent);
}

TEST(MaintTransfer, IsBoundedAlsoAgainstOneThatTalksNonsense)
{
    Transfer transfer(3000);
    transfer.link.requests = [](const HALDE_PACKET&, size_t) { return 0; };
    transfer.link.meanwhile = [&transfer](size_t) {
        for (const uint8_t size : Bytes{0, 2}) {
            transfer.link.waiting.push_back(
                {'H', 'E', 'I', 'D', 0x77, 0x77, size, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        }
    };
    EXPECT_EQ(transfer.run(), kExitNoAnswer);
}

TEST(MaintTransfer, TheLargestPackageHasAnEndWithTheHighestNumber)
{
    Transfer transfer(std::string(kLargestDownload, 'x'));
    EXPECT_EQ(transfer.run(), kExitDone);
    transfer.expect_whole();
    EXPECT_EQ(transfer.link.sent.size(), 65536U);
    EXPECT_EQ(transfer.link.sent.back()[4], 0xFF); // and its acknowledgement names block 0
    EXPECT_EQ(transfer.link.sent.back()[5], 0xFF);
}

TEST(MaintTransfer, AnAbortedOneIsEndedWithAPackageThatDoesNotUnpack)
{
    InstrumentModel model;
    model.wait_for_block(7);
    DirectLink link(model);
    EXPECT_TRUE(end_broken_transfer(link, model.mac, 100ms));
    EXPECT_FALSE(model.in_transfer());
    EXPECT_EQ(model.file, std::string(1024, '\xA5'));
}

TEST(MaintTransfer, EndingWithoutATransferOnlyIdentifies)
{
    InstrumentModel model;
    DirectLink link(model);
    EXPECT_TRUE(end_broken_transfer(link, model.mac, 100ms));
    EXPECT_EQ(model.transfers, 0);
    EXPECT_TRUE(model.written.empty());
    model.is_silent = true;
    EXPECT_FALSE(end_broken_transfer(link, model.mac, 20ms));
}

// ---- modules

namespace {

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

TEST(MaintTransfer, ArrivesWholeAtTheEdgesOfABlock)
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

TEST(MaintStream, ItsWaitsAreLongerThanTheInstrumentsOwn)
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

TEST(MaintStream, ADoubledFinalFrameDoesNotHideAModuleThatRefuses)
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

TEST(MaintStream, TakesAcknowledgementsByWhateverRuleModulesNumberThem)
{
    for (const int above : {0, 1, 7}) {
        Stream stream(5000);
        stream.model.acknowledged_above = static_cast<uint16_t>(above);
        EXPECT_EQ(stream.run(), kExitDone) << above;
        EXPECT_TRUE(stream.model.image == stream.image);
        EXPECT_TRUE(stream.result.confirmed);
    }
}

TEST(MaintStream, SendsAgainWhatIsLost)
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

TEST(MaintStream, DoubledAcknowledgementsAreNotTakenForOthers)
{
    Stream stream(10'000);
    stream.link.replies = [](const HALDE_PACKET& frame, size_t) { return frame.size == 0 ? 2 : 1; };
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_TRUE(stream.model.image == stream.image);
    EXPECT_TRUE(stream.result.confirmed);
    EXPECT_EQ(stream.resent, 0U);
}

TEST(MaintStream, ADoubledAcknowledgementDoesNotCoverALostBlock)
{
    Stream stream(10'000);
    stream.link.replies = [](const HALDE_PACKET& frame, size_t) { return frame.size == 0 ? 2 : 1; };
    stream.link.requests = [](const HALDE_PACKET&, size_t nth) { return nth == 3 ? 0 : 1; };
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_TRUE(stream.model.image == stream.image);
    EXPECT_EQ(stream.resent, 1U);
}

TEST(MaintStream, AModuleThatIsSilentInItEndsIt)
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

TEST(MaintStream, AModuleThatIsSilentInBurningLeavesTheOthersTheirWord)
{
    Stream stream(1000);
    stream.model.module_ends = {0, LXI_ERROR_TIMEOUT, 0, 0};
    // After the last module there is nothing left to wait for.
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

TEST(MaintStream, AModulesOwnFinalFrameIsNotTheWholesFinalFrame)
{
    Stream stream(1000);
    stream.model.confirms = false;
    EXPECT_EQ(stream.run(), kExitDone);
    EXPECT_EQ(stream.result.modules.size(), 4U);
    EXPECT_FALSE(stream.result.confirmed);
    Stream cut(1000);
    cut.model.module_ends = {0, 0};
    EXPECT_EQ(cut.run(), kExitDone);
    EXPECT_EQ(cut.result.modules.size(), 3U); // two, and the whole's that is taken for the third
    EXPECT_FALSE(cut.result.confirmed);
}

TEST(MaintStream, GivesUpEventually)
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
