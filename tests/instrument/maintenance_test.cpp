// The maintenance protocol as seen from a host on the instrument's LAN.
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "instrument.h"
#include "maintenance_frame.h"
#include "support/hex.h"
#include "support/maintenance_client.h"

using namespace orvan_test;
using HaldeElec::Orvan::FRMHEADERLEN;

namespace {

const std::string kBroadcast = "10.0.0.255";
const std::string kController = "10.0.0.2";
const std::string kBroadcastMac(6, '\xff');

struct Reply {
    std::string from;
    std::string frame;

    std::string mac() const { return frame.substr(8, 6); }
    uint16_t block() const
    {
        return static_cast<uint16_t>(static_cast<uint8_t>(frame[4]) << 8 | static_cast<uint8_t>(frame[5]));
    }
    /** Text of a row, empty when there is no such row. */
    std::string row(char letter) const
    {
        for (size_t at = FRMHEADERLEN; at < frame.size(); at += 32) {
            if (frame[at] == letter) {
                return frame.c_str() + at + 1;
            }
        }
        return {};
    }
};

/** Sends from the LAN and returns this many replies. */
std::vector<Reply> ask(const Instrument& instrument, const std::string& address,
                       const std::vector<std::string>& frames, size_t count)
{
    std::vector<std::string> command = {program("orvan-datagram"), address, "7502", std::to_string(count)};
    for (const std::string& frame : frames) {
        command.push_back(hex_of(frame));
    }
    const Outcome outcome = instrument.exec("lan", command);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    std::vector<Reply> replies;
    std::istringstream lines(outcome.output);
    for (std::string from, hex; lines >> from >> hex;) {
        replies.push_back({from, from_hex(hex)});
    }
    return replies;
}

/** Hardware address of the controller's interface. */
std::string controller_mac(const Instrument& instrument)
{
    const std::string link = instrument.exec("controller", {"ip", "-o", "link", "show", "eth0"}).output;
    const size_t at = link.find("link/ether ");
    std::string hex = at == std::string::npos ? "" : link.substr(at + 11, 17);
    std::erase(hex, ':');
    return from_hex(hex);
}

TEST(Maintenance, AToolOnTheLanFindsTheInstrumentByBroadcastAndReadsItsIdentity)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3652B"});
    const std::string own_mac = controller_mac(instrument);
    ASSERT_EQ(own_mac.size(), 6u);

    const auto found = ask(instrument, kBroadcast, {FrameHeader{"HEID", 7, 0, kBroadcastMac}.bytes()}, 1);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].from, "10.0.0.2:7502") << "the reply itself is no broadcast";
    ASSERT_EQ(found[0].frame.size(), 534u);
    EXPECT_EQ(found[0].block(), 7);
    EXPECT_EQ(found[0].mac(), own_mac);
    EXPECT_EQ(found[0].row('A'), "10.0.0.2");
    EXPECT_EQ(found[0].row('N'), "255.255.255.0");
    EXPECT_EQ(found[0].row('G'), "10.0.0.1");
    EXPECT_EQ(found[0].row('I'), "OVX3652B");
    EXPECT_EQ(found[0].row('F'), "1.19.145");
    Client client = instrument.client();
    EXPECT_EQ(client.ask("*IDN?"), found[0].row('D') + "," + found[0].row('I') + "," + found[0].row('S') +
                                       "," + found[0].row('F') + ";+OK\r\n")
        << "as the client receives it";
}

TEST(Maintenance, AFrameForAnotherInstrumentIsNotAnswered)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3651P"});
    const std::string own_mac = controller_mac(instrument);
    std::string other_mac = own_mac;
    other_mac.back() = static_cast<char>(other_mac.back() ^ 1);
    const auto replies =
        ask(instrument, kController,
            {FrameHeader{"HEID", 1, 0, other_mac}.bytes(), FrameHeader{"HEXX", 2, 0, own_mac}.bytes(),
             FrameHeader{"HECT", 3, 0, own_mac}.bytes()},
            1);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_EQ(replies[0].block(), 3);
    EXPECT_EQ(replies[0].frame.size(), 150u) << "16 options";
}

} // namespace
