// Requests of orvan-maint and their replies.
#include <chrono>

#include <gtest/gtest.h>

#include "direct_link.h"
#include "orvan-maint/exchange.h"

using namespace HaldeElec::Orvan;
using namespace orvan_maint;
using namespace orvan_test;
using namespace std::chrono_literals;

TEST(MaintExchange, AcceptsOnlyTheReplyToItsOwnRequest)
{
    InstrumentModel model;
    DirectLink link(model);
    const HALDE_PACKET request = make_frame(kOpcodeIdentify, eth_brdcast_addr);
    const HALDE_PACKET other = make_frame(kOpcodeOptions, eth_brdcast_addr);
    ASSERT_TRUE(ask(link, request, 0, 60ms));
    // Late replies: to an earlier request, and with another opcode.
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

TEST(MaintExchange, SendsThreeTimesAtMost)
{
    InstrumentModel model;
    model.is_silent = true;
    DirectLink link(model);
    EXPECT_FALSE(ask(link, make_frame(kOpcodeIdentify, eth_brdcast_addr), 0, 30ms));
    ASSERT_EQ(link.sent.size(), 3U);
    EXPECT_EQ(link.sent[0], link.sent[2]);
}
