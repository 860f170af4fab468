// The download of a package by orvan-maint.
#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "orvan-maint/exchange.h"
#include "orvan_maint_transfer_bench.h"

using namespace HaldeElec::Orvan;
using namespace orvan_maint;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

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

TEST(MaintTransfer, ConsistsOfAHeaderBlocksAndAnEnd)
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
            // With more than eight it must start over after half of the time limit.
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

TEST(MaintTransfer, SurvivesTheDuplicationOfAnyFrame)
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

TEST(MaintTransfer, SurvivesBeingSetBackByAnotherClientsSearch)
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

TEST(MaintTransfer, EndsWhenItIsSetBackAgainAndAgain)
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

TEST(MaintTransfer, AnAbortedTransferIsRestarted)
{
    Transfer transfer(3000);
    transfer.model.wait_for_block(500);
    EXPECT_EQ(transfer.run(), kExitDone);
    EXPECT_TRUE(transfer.model.file == transfer.package);
    EXPECT_EQ(transfer.model.ended, 1);
}

TEST(MaintTransfer, ARepeatedEndStartsNoOtherTransfer)
{
    Transfer transfer(1000);
    transfer.link.replies = lose_first([](const HALDE_PACKET& frame) { return number(frame) == 3; });
    EXPECT_EQ(transfer.run(), kExitDone);
    EXPECT_EQ(transfer.sent(),
              "HESU0 HEID1 HEID2 HEID2 HEID1"); // and the second was answered as an identification
    transfer.expect_whole();
}

TEST(MaintTransfer, LateAcknowledgementsAreNotMistakenForOthers)
{
    Transfer transfer(10'000);
    // Each arrives again after the next block is sent.
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

TEST(MaintTransfer, AcknowledgementsOfAnotherTransferAreNotMistakenForItsOwn)
{
    // As many as it would take to end it.
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

TEST(MaintTransfer, StopsWhenTheInstrumentLeavesIt)
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

TEST(MaintTransfer, FailsEventually)
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

TEST(MaintTransfer, IsBoundedEvenIfTheInstrumentSendsNonsense)
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

TEST(MaintTransfer, AnAbortedTransferIsEndedWithAPackageThatDoesNotUnpack)
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
