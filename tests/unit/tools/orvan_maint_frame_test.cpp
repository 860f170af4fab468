// The frames orvan-maint sends and reads, and what it accepts.
#include <cstring>

#include <gtest/gtest.h>

#include "instrument_model.h"
#include "orvan-maint/blocks.h"
#include "orvan-maint/checks.h"
#include "orvan-maint/failure.h"
#include "orvan-maint/models.h"
#include "orvan-maint/option_word.h"
#include "orvan-maint/progress.h"
#include "orvan-maint/round_trip.h"
#include "orvan-maint/rows.h"

using namespace HaldeElec::Orvan;
using namespace orvan_maint;
using orvan_test::Bytes;
using orvan_test::bytes_of;
using orvan_test::InstrumentModel;

namespace {

HALDE_PACKET frame_of(const Bytes& bytes)
{
    HALDE_PACKET frame{};
    std::memcpy(&frame, bytes.data(), std::min(bytes.size(), sizeof frame));
    return frame;
}

constexpr hwaddr_t kMac{{0x02, 0x00, 0x0A, 0x0B, 0x0C, 0xFF}};

} // namespace

TEST(MaintFrame, AnIdentificationIsAHeader)
{
    EXPECT_EQ(
        bytes_of(wire_bytes(make_frame(kOpcodeIdentify, eth_brdcast_addr), 0)),
        (Bytes{'H', 'E', 'I', 'D', 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(MaintFrame, NumbersAreInWireOrder)
{
    HALDE_PACKET frame = make_frame(kOpcodeSoftware, kMac);
    put_block(frame, 0x0102);
    put_size(frame, 0x0304);
    put_info(frame, 0x05060708);
    EXPECT_EQ(bytes_of(wire_bytes(frame, 1)), (Bytes{'H',  'E',  'S', 'U', 1, 2, 3, 4, 0x02, 0x00, 0x0A, 0x0B,
                                                     0x0C, 0xFF, 0,   0,   8, 7, 6, 5, 0,    0,    0}));
    EXPECT_EQ(block_of(frame), 0x0102);
    EXPECT_EQ(size_of(frame), 0x0304);
    EXPECT_EQ(info_of(frame), 0x05060708U);
    EXPECT_TRUE(has_opcode(frame, "HESU"));
    EXPECT_FALSE(has_opcode(frame, "HESX"));
    EXPECT_FALSE(has_opcode(frame, "HES"));
    EXPECT_EQ(wire_bytes(frame, 5000).size(), 1046U);
}

TEST(MaintFrame, AHardwareAddressIsParsedAndFormatted)
{
    EXPECT_EQ(mac_text(kMac), "02:00:0a:0b:0c:ff");
    for (const char* const text : {"02:00:0a:0b:0c:ff", "02-00-0A-0B-0C-FF"}) {
        EXPECT_EQ(std::memcmp(parse_mac(text).value_or(hwaddr_t{}).b, kMac.b, 6), 0) << text;
    }
    for (const char* const text :
         {"", "02:00:0a:0b:0c", "02:00:0a:0b:0c:f", "02:00:0a:0b:0c:fff", "02:00:0a-0b:0c:ff", "02000a0b0cff",
          "0g:00:0a:0b:0c:ff", "+2:00:0a:0b:0c:ff", "02 00 0a 0b 0c ff"}) {
        EXPECT_FALSE(parse_mac(text)) << text;
    }
}

TEST(MaintFrame, ControlCharactersAreEscaped)
{
    EXPECT_EQ(printable("bench-4 ~"), "bench-4 ~");
    EXPECT_EQ(printable("a\x1b[2J\n\x7f\xc3"), "a\\x1B[2J\\x0A\\x7F\\xC3");
}

TEST(MaintRows, ARequestHoldsAllRowsAndNoOldData)
{
    HALDE_PACKET frame = make_frame(kOpcodeNetwork, kMac);
    std::memset(frame.data, 'x', sizeof frame.data);
    put_rows(frame, {{'A', "10.0.0.9"}, {'H', std::string(31, 'h')}});
    Bytes expected(544);
    expected[0] = 'A';
    std::memcpy(&expected[1], "10.0.0.9", 8);
    expected[32] = 'H';
    std::memset(&expected[33], 'h', 31);
    EXPECT_EQ(size_of(frame), 544);
    const Bytes sent = bytes_of(wire_bytes(frame, kRequestRowsSize));
    EXPECT_EQ(Bytes(sent.begin() + FRMHEADERLEN, sent.end()), expected);
}

TEST(MaintRows, AShortReplyIsReadToItsEnd)
{
    HALDE_PACKET frame{};
    put_size(frame, 96);
    std::memset(frame.data, 0, sizeof frame.data);
    std::memcpy(frame.data, "Ibench\x1b", 8);
    std::memset(frame.data + 32, 'S', 32); // no terminator
    std::memcpy(frame.data + 64, "Hname", 6);
    const Rows all = read_rows(frame, FRMHEADERLEN + 96);
    EXPECT_EQ(text_of(all, 'I'), "bench\\x1B");
    EXPECT_EQ(text_of(all, 'S'), std::string(31, 'S'));
    EXPECT_EQ(text_of(all, 'H'), "name");
    EXPECT_EQ(text_of(all, 'W'), "");
    EXPECT_EQ(read_rows(frame, FRMHEADERLEN + 95).size(), 2U);
    EXPECT_TRUE(read_rows(frame, FRMHEADERLEN).empty());
    EXPECT_TRUE(read_rows(frame, 0).empty());
    put_size(frame, EOD);
    EXPECT_EQ(read_rows(frame, 5000).size(), 3U);
    put_size(frame, 64);
    EXPECT_EQ(read_rows(frame, FRMHEADERLEN + 96).size(), 2U);
}

// ---- the options

namespace {

// As an instrument decodes them.
uint16_t options_at_instrument(const std::string& sent)
{
    const unsigned v = static_cast<uint8_t>(sent[0]) | static_cast<unsigned>(static_cast<uint8_t>(sent[1]))
                                                           << 8;
    const unsigned swapped = (v << 8 | v >> 8) & 0xFFFF;
    unsigned mirrored = 0;
    for (int bit = 0; bit < 16; ++bit) {
        mirrored |= (swapped >> bit & 1U) << (15 - bit);
    }
    return static_cast<uint16_t>((mirrored & 0xFFF0) | (v >> 4 & 0x0F));
}

std::vector<OptionRow> options_of(const InstrumentModel& model)
{
    InstrumentModel asked = model;
    const Bytes reply = asked.serve(wire_bytes(make_frame(kOpcodeOptions, kMac), 0)).at(0);
    return read_options(frame_of(reply), reply.size());
}

} // namespace

TEST(MaintOptions, EveryWordReachesTheInstrumentUnchanged)
{
    EXPECT_EQ(wire_options(0x0008), (std::string{'\x80', '\0'}));
    EXPECT_EQ(wire_options(0x001E), (std::string{'\xE8', '\0'}));
    EXPECT_EQ(wire_options(0x8100), (std::string{'\0', '\x81'}));
    for (unsigned word = 0; word <= 0xFFFF; ++word) {
        ASSERT_EQ(options_at_instrument(wire_options(static_cast<uint16_t>(word))), word);
    }
}

TEST(MaintOptions, ATableHoldsTheRowsBackedByAnOption)
{
    const auto rows = options_of(InstrumentModel());
    ASSERT_EQ(rows.size(), 6U);
    EXPECT_EQ(rows[0].symbol, "");
    EXPECT_EQ(rows[0].value, 14);
    EXPECT_EQ(rows[5].symbol, "ULNX");
    EXPECT_EQ(option_word(rows), 0x009E);
}

TEST(MaintOptions, WordsAreSetAndCleared)
{
    const auto rows = options_of(InstrumentModel());
    EXPECT_EQ(option_word(changed_options(rows, {"pls", "ULNX"}, {"MOD"})), 0x10AE);
    EXPECT_EQ(option_word(changed_options(rows, {"MOD"}, {})), 0x009E);
    EXPECT_EQ(option_word(changed_options(rows, {}, {})), 0x009E);
}

TEST(MaintOptions, UnknownAndFixedOptionsAreRefused)
{
    const auto rows = options_of(InstrumentModel());
    const auto complaint = [&rows](const std::vector<std::string>& set,
                                   const std::vector<std::string>& clear) {
        try {
            changed_options(rows, set, clear);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code, kExitBadOptions);
            return std::string(failure.what());
        }
        return std::string();
    };
    EXPECT_EQ(complaint({"BAT"}, {}), "the instrument has no option BAT; there are: MOD PLS LP ULNX");
    EXPECT_EQ(complaint({""}, {}), "the instrument has no option ; there are: MOD PLS LP ULNX");
    EXPECT_EQ(complaint({}, {"fix"}), "option FIX cannot be changed; there are: MOD PLS LP ULNX");
    EXPECT_EQ(complaint({"MOD"}, {"mod"}), "option MOD is to be set and to be cleared");
}

TEST(MaintOptions, AnInconsistentTableIsRefused)
{
    InstrumentModel model;
    const Bytes reply = model.serve(wire_bytes(make_frame(kOpcodeOptions, kMac), 0)).at(0);
    EXPECT_EQ(reply.size(), 150U);
    EXPECT_THROW(read_options(frame_of(reply), reply.size() - 1), Failure);
    for (const int size : {0, 127, 1025, 0xFFFF}) {
        HALDE_PACKET frame = frame_of(reply);
        put_size(frame, static_cast<uint16_t>(size));
        EXPECT_THROW(read_options(frame, 2000), Failure) << size;
    }
    model.options[3] = {15, 2, 1, 0, "TOO"};
    EXPECT_THROW(options_of(model), Failure);
    model.options[3] = {5, 1, 1, 2, "BIG"};
    EXPECT_THROW(options_of(model), Failure);
}

// ---- values

namespace {

struct Values {
    const char* name;
    std::string (*check)(const std::string&);
    std::vector<std::string> good;
    std::vector<std::string> bad;
};

class MaintValues : public testing::TestWithParam<Values> {};

const Values kValues[] = {
    {"Address",
     check_host_address,
     {"10.0.0.9", "192.168.6.1", "192.168.11.1", "1.0.0.1", "223.255.255.254"},
     {"", "10.0.0", "10.0.0.256", "10.0.0.9 ", "010.0.0.1", "0x0a.0.0.1", "::1", "bench", "0.0.0.0",
      "127.0.0.1", "224.0.0.1", "255.255.255.255", "192.168.7.2", "192.168.10.255", "10.0.0.9;reboot"}},
    {"Mask",
     check_mask,
     {"255.255.255.0", "255.255.255.252", "255.0.0.0", "128.0.0.0"},
     {"", "0.0.0.0", "255.255.255.254", "255.255.255.255", "255.0.255.0", "0.0.0.255", "/24", "24"}},
    {"Gateway", check_gateway, {"10.0.0.1", "0.0.0.0"}, {"", "0.0.0.1", "127.0.0.1", "none", "192.168.8.1"}},
    {"HardwareAddress",
     check_hardware_address,
     {"02:00:5e:10:00:01", "B8-27-EB-4F-3B-7D"},
     {"", "00:00:00:00:00:00", "01:00:5e:00:00:01", "ff:ff:ff:ff:ff:ff", "02:00:5e:10:00", "x"}},
    {"HostName",
     check_host_name,
     {"bench-4", "4", "OVX3651B-230000", std::string(30, 'a')},
     {"", "-a", "a-", "a b", "a.b", "a_b", "a;b", "$(reboot)", "a\n", "\xc3\xa4", std::string(31, 'a')}},
    {"OnOff", check_on_off, {"on", "off"}, {"", "ON", "y", "1"}},
    {"Port",
     check_port,
     {"1", "5025", "65535"},
     {"", "0", "65536", "-1", "+5", "05025", "5025 ", "x", "1e3"}},
    {"Text",
     check_text,
     {"241107", "a b", std::string(30, 'a')},
     {"", " a", "a ", "a\tb", "\x1b[2J", "\xc3\xa4", std::string(31, 'a')}},
};

} // namespace

TEST_P(MaintValues, PassOrAreRefusedWithAReason)
{
    for (const std::string& text : GetParam().good) {
        EXPECT_EQ(GetParam().check(text), "");
    }
    for (const std::string& text : GetParam().bad) {
        EXPECT_NE(GetParam().check(text), "") << text;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, MaintValues, testing::ValuesIn(kValues),
                         [](const auto& values) { return values.param.name; });

TEST(MaintNetwork, AddressMaskAndGatewayMustMatch)
{
    EXPECT_EQ(check_network("10.0.0.9", "255.255.255.0", "10.0.0.1"), "");
    EXPECT_EQ(check_network("10.0.0.9", "255.255.255.0", "0.0.0.0"), "");
    EXPECT_EQ(check_network("10.0.0.9", "", "10.9.9.9"), "");
    EXPECT_EQ(check_network("", "", ""), "");
    EXPECT_NE(check_network("10.0.0.0", "255.255.255.0", ""), "");
    EXPECT_NE(check_network("10.0.0.255", "255.255.255.0", ""), "");
    EXPECT_NE(check_network("10.0.0.9", "255.255.255.0", "10.0.1.1"), "");
    EXPECT_NE(check_network("10.0.0.9", "", "10.0.0.9"), "");
}

TEST(MaintModels, AModelImpliesPlatformAndChannels)
{
    const auto name = [](const std::string& model) {
        const Platform* const platform = platform_of_model(model);
        return std::string(platform != nullptr ? platform->name : "none") + " " +
               std::to_string(channels_of_model(model));
    };
    EXPECT_EQ(name("OVX2751P"), "portable 1");
    EXPECT_EQ(name("OVX3654B"), "benchtop 4");
    EXPECT_EQ(name("OVX6132R"), "benchtop 2");
    EXPECT_EQ(name("KSR-8053"), "ksr7000 1");
    EXPECT_EQ(name("OVX3658B"), "benchtop 0");
    for (const char* const model : {"", "OVX3654", "OVX3654X", "XVO3654B", "OVX36x4B", "OVX36544B"}) {
        EXPECT_EQ(name(model).substr(0, 4), "none") << model;
    }
}

// ---- a download

TEST(MaintBlocks, CountFromOneToOnePastTheLast)
{
    const auto end = [](size_t bytes) { return Blocks(std::string(bytes, 'x')).end(); };
    EXPECT_EQ(end(1), 2U);
    EXPECT_EQ(end(1024), 2U);
    EXPECT_EQ(end(1025), 3U);
    EXPECT_EQ(end(kLargestDownload), 65535U);
}

TEST(MaintBlocks, TheLastIsShortAndTheNextIsTheEnd)
{
    const std::string bytes(1030, 'x');
    const Blocks blocks(bytes);
    HALDE_PACKET frame{};
    EXPECT_EQ(blocks.put(1, frame), 1024U);
    EXPECT_EQ(size_of(frame), 1024);
    EXPECT_EQ(blocks.put(2, frame), 6U);
    EXPECT_EQ(block_of(frame), 2);
    EXPECT_EQ(size_of(frame), 6);
    EXPECT_EQ(frame.data[5], 'x');
    EXPECT_EQ(frame.data[6], 0);
    EXPECT_EQ(blocks.put(3, frame), 0U);
    EXPECT_EQ(block_of(frame), 3);
    EXPECT_EQ(size_of(frame), EOD);
    EXPECT_EQ(frame.data[0], 0);
}

TEST(MaintProgress, ReportsPartRateAndRemainder)
{
    using std::chrono::seconds;
    EXPECT_EQ(progress_line(2'500'000, 10'000'000, seconds(2)),
              "[#####---------------]   25 %  2.50 of 10.00 MB  1.2 MB/s  0:06 left");
    EXPECT_EQ(progress_line(0, 10'000'000, seconds(0)),
              "[--------------------]    0 %  0.00 of 10.00 MB  0.0 MB/s");
    EXPECT_EQ(progress_line(20, 10, seconds(1)).substr(0, 29), "[####################]  100 %");
    EXPECT_EQ(progress_line(0, 0, seconds(1)).substr(0, 29), "[####################]  100 %");
    EXPECT_NE(progress_line(1, 64'000'000, seconds(3000)).find("5999:59 left"), std::string::npos);
}

TEST(MaintRoundTrip, WaitsAreThoseOfTheAcknowledgementsWithinTheirLimits)
{
    using namespace std::chrono_literals;
    RoundTrip round_trip({500ms, 10ms, 1000ms, 1s});
    EXPECT_EQ(round_trip.wait(), 500ms);
    round_trip.missed();
    EXPECT_EQ(round_trip.wait(), 1000ms);
    round_trip.missed();
    EXPECT_EQ(round_trip.wait(), 1000ms);
    round_trip.measured(100ms);
    EXPECT_EQ(round_trip.wait(), 300ms); // 100 + 4 * 50
    for (int i = 0; i < 100; ++i) {
        round_trip.measured(1ms);
    }
    EXPECT_EQ(round_trip.wait(), 10ms);
    round_trip.measured(20s);
    EXPECT_EQ(round_trip.wait(), 1000ms);
}
