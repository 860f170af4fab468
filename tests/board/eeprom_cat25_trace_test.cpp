#include <cstddef>
#include <ostream>

#include "eeprom_bench.h"

using namespace board_test;
using sim_board::expect_trace;

namespace {

/** Address bytes of the last page of a chip and of two bytes before it, as sent. */
struct AddressRow {
    Bytes before_last_page, last_page;
};

// Indexed as kTypes.
const AddressRow kAddresses[] = {
    {{0x01, 0xfe, 0xfe}, {0x01, 0xff, 0x00}}, // CAT25M01
    {{0xff, 0x7e}, {0xff, 0x80}},             // CAT25512
    {{0x7f, 0xbe}, {0x7f, 0xc0}},             // CAT25256
    {{0x3f, 0xbe}, {0x3f, 0xc0}},             // CAT25128
    {{0x1f, 0xbe}, {0x1f, 0xc0}},             // CAT25640
    {{0x0f, 0xde}, {0x0f, 0xe0}},             // CAT25320
    {{0x07, 0xde}, {0x07, 0xe0}},             // CAT25160
    {{0x07, 0xde}, {0x07, 0xe0}},             // CAV25160
    {{0x03, 0xde}, {0x03, 0xe0}},             // CAT25080
    {{0x03, 0xde}, {0x03, 0xe0}},             // CAV25080
    {{0xee}, {0xf0}},                         // CAT25040: of 0x1EE and 0x1F0
    {{0xee}, {0xf0}},                         // CAT25020
    {{0x6e}, {0x70}},                         // CAT25010
};

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/** One message, from the multiplexer's address lines to its release. */
std::string message(const Bytes& sent, const Bytes& received)
{
    return "pin 7 = 1\npin 21 = 0\npin 6 = 1\npin 11 = 0\ndelay 10\n"
           "spi eeprom: " +
           sim_board::hex_bytes(sent.data(), sent.size()) + " -> " +
           sim_board::hex_bytes(received.data(), received.size()) + "\npin 11 = 1\n";
}

class EepromTrace : public EveryEeprom {
protected:
    const AddressRow& addresses() const { return kAddresses[type.number]; }
    /** The upper bits of the status register read 1 in the types without WPEN. */
    uint8_t idle() const { return type.address_bytes == 1 ? 0xf0 : 0x00; }

    std::string ready() const { return message({0x05, 0x00}, {0xff, idle()}); }
    /** A write cycle of 5 ms, ended by the sixth poll. */
    std::string ready_after_a_write() const
    {
        std::string text;
        for (int poll = 0; poll < 5; ++poll) {
            text += message({0x05, 0x00}, {0xff, static_cast<uint8_t>(idle() | 0x03)}) + "delay 1000\n";
        }
        return text + ready();
    }
    static std::string page_write(const Bytes& address, const Bytes& data)
    {
        const Bytes sent = Bytes{0x02} + address + data;
        return message({0x06, 0x00}, {0xff, 0xff}) + message(sent, Bytes(sent.size(), 0xff));
    }
    static std::string block_read(const Bytes& address, const Bytes& data)
    {
        const Bytes prefix = Bytes{0x03} + address;
        return message(prefix + Bytes(data.size(), 0x00), Bytes(prefix.size(), 0xff) + data);
    }
    size_t last_page() const { return type.capacity - type.page; }
};

INSTANTIATE_TEST_SUITE_P(Types, EepromTrace, testing::ValuesIn(kTypes),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(EepromTrace, ABlockAcrossAPageBorderAccessByAccess)
{
    EXPECT_EQ(write(last_page() - 2, {1, 2, 3, 4, 5, 6}), 6u);
    EXPECT_TRUE(expect_trace(trace(), ready() + page_write(addresses().before_last_page, {1, 2}) +
                                          ready_after_a_write() +
                                          page_write(addresses().last_page, {3, 4, 5, 6})));
    EXPECT_EQ(read(last_page() - 2, 6), counting(6));
    EXPECT_TRUE(
        expect_trace(trace(), ready_after_a_write() + block_read(addresses().before_last_page, counting(6))));
}

TEST_P(EepromTrace, AWholePageAccessByAccess)
{
    const Bytes data = counting(type.page, 0x40);
    EXPECT_EQ(write(last_page(), data), type.page);
    EXPECT_TRUE(expect_trace(trace(), ready() + page_write(addresses().last_page, data)))
        << "the refused empty write after it sends nothing";
    EXPECT_EQ(read(last_page(), type.page), data);
    EXPECT_TRUE(expect_trace(trace(), ready_after_a_write() + block_read(addresses().last_page, data)));
}

TEST_P(EepromTrace, RefusedRangesSendNothing)
{
    EXPECT_EQ(read(last_page(), type.page + 1), Bytes{});
    EXPECT_EQ(read(0, 0), Bytes{});
    EXPECT_EQ(write(last_page(), counting(type.page + 1)), 0u);
    EXPECT_EQ(write(0, {}), 0u);
    EXPECT_EQ(write_page(last_page() - 1, counting(2)), 0u);
    EXPECT_TRUE(trace().empty());
    EXPECT_EQ(chip->contents(), Bytes(type.capacity, 0xff));
}

} // namespace
