#include <algorithm>
#include <cerrno>
#include <ostream>

#include "eeprom_bench.h"

using namespace board_test;
using sim_board::expect_trace;

namespace {

INSTANTIATE_TEST_SUITE_P(Types, EveryEeprom, testing::ValuesIn(kTypes),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(EveryEeprom, SizesAreThoseOfTheType)
{
    EXPECT_EQ(type.device, type.number);
    EXPECT_EQ(type.capacity, type.capacity_name);
    EXPECT_EQ(type.page, type.page_name);
    EXPECT_EQ(type.capacity, chip->type().capacity);
    EXPECT_EQ(type.page, chip->type().page);
}

TEST_P(EveryEeprom, SendsItsNumberOfAddressBytesMostSignificantFirst)
{
    const size_t address = type.capacity - 2;
    driver->readBlock(static_cast<uint32_t>(address), 1, Bytes(1).data());
    const auto lines = messages();
    ASSERT_EQ(lines.size(), 2u);
    std::string expected = "spi eeprom: 03";
    for (size_t byte = type.address_bytes; byte-- > 0;) {
        char text[8];
        std::snprintf(text, sizeof text, " %02x", static_cast<unsigned>(address >> 8 * byte & 0xff));
        expected += text;
    }
    EXPECT_TRUE(lines[1].starts_with(expected + " 00 -> ")) << lines[1];
}

TEST_P(EveryEeprom, WritesAndReadsBackWhatOneMessageHolds)
{
    // The range of the address bytes: on the CAT25040, half the chip.
    const size_t length = std::min({type.capacity, size_t{1024}, size_t{1} << 8 * type.address_bytes});
    const Bytes data = counting(length, 7);
    EXPECT_EQ(write(0, data), length);
    EXPECT_EQ(cells(0, length), data);
    EXPECT_EQ(read(0, length), data);
}

TEST_P(EveryEeprom, APageWriteChangesThatPageAlone)
{
    const size_t page = type.page;
    EXPECT_EQ(write(page, counting(page)), page);
    EXPECT_EQ(cells(page, page), counting(page));
    EXPECT_EQ(cells(0, page), Bytes(page, 0xff));
    EXPECT_EQ(cells(2 * page, page), Bytes(page, 0xff));
    EXPECT_EQ(chip->write_cycles(), 1u);
}

TEST_P(EveryEeprom, AnUnalignedBlockIsCutAtThePages)
{
    const size_t page = type.page;
    const size_t length = 2 * page;
    EXPECT_EQ(write(page - 3, counting(length)), length);
    EXPECT_EQ(cells(page - 3, length), counting(length));
    EXPECT_EQ(chip->write_cycles(), 3u);
    EXPECT_EQ(out.text(), page_line(page - 3) + page_line(page) + page_line(2 * page));
}

TEST_P(EveryEeprom, AReadUpToTheEndSucceedsAndOneByteMoreIsRefusedWithoutTraffic)
{
    EXPECT_EQ(read(type.capacity - 4, 4).size(), 4u);
    EXPECT_FALSE(messages().empty());
    EXPECT_EQ(read(type.capacity - 4, 5), Bytes{});
    EXPECT_EQ(read(type.capacity, 1), Bytes{});
    EXPECT_EQ(read(0xffffffff, 2), Bytes{});
    EXPECT_TRUE(messages().empty());
}

TEST_P(EveryEeprom, AWriteUpToTheEndSucceedsAndOneByteMoreIsRefused)
{
    const size_t last = type.capacity - type.page;
    EXPECT_EQ(write(last, counting(type.page)), type.page);
    EXPECT_EQ(read(last, type.page), counting(type.page));
    messages();
    EXPECT_EQ(write(last, counting(type.page + 1)), 0u);
    EXPECT_EQ(write(type.capacity, counting(1)), 0u);
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(out.text(), page_line(last) + page_line(type.capacity) + "Trying to write to invalid address " +
                              hex(last) + "\n" + "Trying to write to invalid address " + hex(type.capacity) +
                              "\n");
    EXPECT_EQ(chip->write_cycles(), 1u);
}

TEST_P(EveryEeprom, EveryAddressLineReachesItsCell)
{
    const size_t reach = std::min(type.capacity, size_t{1} << 8 * type.address_bytes);
    uint8_t value = 1;
    for (size_t address = 1; address < reach; address *= 2) {
        EXPECT_EQ(write(address, {value++}), 1u);
    }
    value = 1;
    for (size_t address = 1; address < reach; address *= 2) {
        EXPECT_EQ(cells(address, 1), Bytes{value}) << hex(address);
        EXPECT_EQ(read(address, 1), Bytes{value++}) << hex(address);
    }
}

TEST_P(EveryEeprom, AnErasedChipReadsOnes)
{
    EXPECT_EQ(read(0, 16), Bytes(16, 0xff));
}

class Cat25640Driver : public EepromBench {
protected:
    void SetUp() override { use(kTypes[4]); }
};

TEST_F(Cat25640Driver, CommandsAreThoseOfTheFamily)
{
    EXPECT_EQ(EEPROM_CAT25_COMMAND_WRSR, 0x01);
    EXPECT_EQ(EEPROM_CAT25_COMMAND_WRITE, 0x02);
    EXPECT_EQ(EEPROM_CAT25_COMMAND_READ, 0x03);
    EXPECT_EQ(EEPROM_CAT25_COMMAND_WRDI, 0x04);
    EXPECT_EQ(EEPROM_CAT25_COMMAND_RDSR, 0x05);
    EXPECT_EQ(EEPROM_CAT25_COMMAND_WREN, 0x06);
    EXPECT_EQ(EEPROM_CAT25_COMMAND_READ_A8_HIGH, 0x0b);
    EXPECT_EQ(EEPROM_CAT25_COMMAND_WRITE_A8_HIGH, 0x0a);
    EXPECT_EQ(EEPROM_CAT25_DUMMY_BYTE, 0x00);
    EXPECT_EQ(EEPROM_CAT25_MAX_WRITE_TIME_MS, 5u);
}

TEST_F(Cat25640Driver, AShortWriteIsEnabledFirstAndNotWaitedFor)
{
    EXPECT_EQ(write(60, counting(4)), 4u);
    EXPECT_TRUE(expect_trace(messages(), R"(
        spi eeprom: 05 00 -> ff 00
        spi eeprom: 06 00 -> ff ff
        spi eeprom: 02 00 3c 01 02 03 04 -> ff ff ff ff ff ff ff
    )"));
    EXPECT_EQ(chip->status() & 1, 1);
}

TEST_F(Cat25640Driver, TheNextAccessPollsEachMillisecondUntilTheCycleIsOver)
{
    write(0, counting(1));
    messages();
    EXPECT_EQ(read(0, 1), counting(1));
    EXPECT_TRUE(expect_trace(messages(), R"(
        spi eeprom: 05 00 -> ff 03
        delay 1000
        spi eeprom: 05 00 -> ff 03
        delay 1000
        spi eeprom: 05 00 -> ff 03
        delay 1000
        spi eeprom: 05 00 -> ff 03
        delay 1000
        spi eeprom: 05 00 -> ff 03
        delay 1000
        spi eeprom: 05 00 -> ff 00
        spi eeprom: 03 00 00 00 -> ff ff ff 01
    )"));
}

TEST_F(Cat25640Driver, TenBytesFrom60AreFourAndSix)
{
    EXPECT_EQ(write(60, counting(10)), 10u);
    EXPECT_EQ(out.text(), page_line(60) + page_line(64));
    EXPECT_EQ(cells(60, 10), counting(10));
    std::vector<std::string> pages;
    for (const std::string& line : messages()) {
        if (line.starts_with("spi eeprom: 02")) {
            pages.push_back(line.substr(0, line.find(" ->")));
        }
    }
    EXPECT_EQ(pages, (std::vector<std::string>{"spi eeprom: 02 00 3c 01 02 03 04",
                                               "spi eeprom: 02 00 40 05 06 07 08 09 0a"}));
}

TEST_F(Cat25640Driver, ExactlyOnePageIsOneWriteAndARefusedOneOfNothing)
{
    EXPECT_EQ(write(128, counting(64)), 64u);
    EXPECT_EQ(out.text(), page_line(128) + page_line(192));
    EXPECT_EQ(chip->write_cycles(), 1u);
    const auto lines = messages();
    EXPECT_EQ(lines.size(), 3u) << "the refused write sends nothing";
}

TEST_F(Cat25640Driver, LastWholePageIsWrittenAndOneByteMoreIsRefused)
{
    EXPECT_EQ(write(128, counting(192)), 192u);
    EXPECT_EQ(out.text(), page_line(128) + page_line(192) + page_line(256));
}

TEST_F(Cat25640Driver, ABlobIs16PageWritesAndIsReadInOneMessage)
{
    const Bytes data = counting(1024);
    EXPECT_EQ(write(0, data), 1024u);
    EXPECT_EQ(chip->write_cycles(), 16u);
    board->clock().advance(sim_board::Cat25Eeprom::kWriteCycleUs);
    messages();
    EXPECT_EQ(read(0, 1024), data);
    const auto lines = messages();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[1].find("1027 bytes"), std::string::npos) << lines[1];
}

TEST_F(Cat25640Driver, AMessageHolds1040BytesWithCommandAndAddress)
{
    EXPECT_EQ(read(0, 1037).size(), 1037u);
    messages();
    EXPECT_EQ(read(0, 1038), Bytes{});
    EXPECT_EQ(messages().size(), 1u) << "the poll alone";
}

TEST_F(Cat25640Driver, ALongerReadIsNotSent)
{
    struct Counting : MuxHandler {
        int DataTransfer(const uint8_t*, uint8_t* received, size_t length) override
        {
            longest = std::max(longest, length);
            received[1] = 0; // ready
            return 0;
        }
        size_t longest = 0;
    } bus;
    EEPROM_CAT25 eeprom(&bus, CAT25640);
    Bytes data(1038);
    EXPECT_EQ(eeprom.readBlock(0, 1037, data.data()), 1037u);
    EXPECT_EQ(bus.longest, 1040u);
    EXPECT_EQ(eeprom.readBlock(0, 1038, data.data()), 0u);
    EXPECT_EQ(bus.longest, 1040u);
}

TEST_F(Cat25640Driver, AReadOfNoBytesIsRefusedWithoutTraffic)
{
    EXPECT_EQ(read(0, 0), Bytes{});
    EXPECT_TRUE(messages().empty());
}

TEST_F(Cat25640Driver, AWriteOfNoBytesIsAnInvalidAddress)
{
    EXPECT_EQ(write(16, {}), 0u);
    EXPECT_EQ(out.text(), "Trying to write to invalid address 0x10\n");
    EXPECT_TRUE(messages().empty());
}

TEST_F(Cat25640Driver, APageWriteBeyondItsPageSendsNothingNotEvenWriteEnable)
{
    EXPECT_EQ(write_page(60, counting(5)), 0u);
    EXPECT_EQ(write_page(0, counting(65)), 0u);
    EXPECT_EQ(write_page(0, {}), 0u);
    EXPECT_EQ(write_page(0x2000, counting(1)), 0u);
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(out.text(), page_line(60) + page_line(0) + page_line(0) + page_line(0x2000))
        << "each call is logged";
    EXPECT_EQ(chip->status(), 0);
}

TEST_F(Cat25640Driver, APageWriteOfTheRoomLeftSucceeds)
{
    EXPECT_EQ(write_page(60, counting(4)), 4u);
    EXPECT_EQ(write_page(64, counting(64)), 64u);
}

TEST_F(Cat25640Driver, TheStatusRegisterIsTheSecondByte)
{
    EXPECT_EQ(driver->getStatusRegister(), 0x00);
    write(0, counting(1));
    EXPECT_EQ(driver->getStatusRegister(), 0x03);
}

TEST_F(Cat25640Driver, AFailedStatusReadIsAllOnes)
{
    insert_fault(board->spi(), "eeprom")->refuse_after(0);
    EXPECT_EQ(driver->getStatusRegister(), 0xff);
}

TEST_F(Cat25640Driver, AStuckBusyBitEndsAfter100Polls)
{
    const auto fault = insert_fault(board->spi(), "eeprom");
    fault->stuck_busy(true);
    const uint64_t before = board->clock().now_us();
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(driver->isReady());
    EXPECT_EQ(err.text(), "[EEPROM] Busy timeout waiting for RDY\n");
    const auto lines = messages();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "spi eeprom: 05 00 -> ff 01"), 100);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "delay 1000"), 100);
    EXPECT_EQ(board->clock().now_us() - before, 101'000u) << "1 ms and the multiplexer's 10 us, 100 times";
    EXPECT_EQ(read(0, 4), Bytes{});
    EXPECT_EQ(write_page(0, counting(4)), 0u);
    EXPECT_EQ(chip->write_cycles(), 0u);
}

TEST_F(Cat25640Driver, ADeadBusCountsAsBusy)
{
    insert_fault(board->spi(), "eeprom")->refuse_after(0);
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(driver->isReady());
    EXPECT_EQ(err.text(), "[EEPROM] Busy timeout waiting for RDY\n");
    const auto lines = messages();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "delay 1000"), 100);
}

TEST_F(Cat25640Driver, AnAbsentChipReadsBusy)
{
    insert_fault(board->spi(), "eeprom")->absent(true);
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(read(0, 4), Bytes{});
    EXPECT_EQ(err.text(), "[EEPROM] Busy timeout waiting for RDY\n");
}

TEST_F(Cat25640Driver, AFailedReadMessageReturnsNothing)
{
    insert_fault(board->spi(), "eeprom")->refuse_after(1); // the poll is sent
    EXPECT_EQ(read(0, 4), Bytes{});
}

TEST_F(Cat25640Driver, AFailedWriteEnableEndsThePageWrite)
{
    insert_fault(board->spi(), "eeprom")->refuse_after(1);
    EXPECT_EQ(write_page(0, counting(4)), 0u);
    EXPECT_EQ(messages().size(), 2u) << "the poll and the refused write enable";
    EXPECT_EQ(chip->write_cycles(), 0u);
}

TEST_F(Cat25640Driver, AFailedWriteMessageReturnsNothing)
{
    insert_fault(board->spi(), "eeprom")->refuse_after(2);
    EXPECT_EQ(write_page(0, counting(4)), 0u);
    EXPECT_EQ(chip->write_cycles(), 0u);
}

TEST_F(Cat25640Driver, ABlockWriteThatFailsInAPageStillReturnsItsLength)
{
    insert_fault(board->spi(), "eeprom")->refuse_after(2);
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(write(0, counting(128)), 128u);
    EXPECT_EQ(chip->write_cycles(), 0u);
}

TEST_F(Cat25640Driver, AWriteProtectedChipIsNotNoticed)
{
    // WREN, then WRSR with both block protection bits
    const uint8_t enable[] = {0x06};
    const uint8_t protect[] = {0x01, 0x0c};
    uint8_t received[2];
    handler.DataTransfer(enable, received, 1);
    handler.DataTransfer(protect, received, 2);
    EXPECT_EQ(write(0, counting(64)), 64u);
    EXPECT_EQ(cells(0, 64), Bytes(64, 0xff));
}

TEST_F(Cat25640Driver, APowerCutInAPageWritesTheFirstBytesOfItAndNothingAfter)
{
    const auto fault = insert_fault(board->spi(), "eeprom");
    fault->cut_power_in(EEPROM_CAT25_COMMAND_WRITE, 3 + 10);
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(write(0, counting(128)), 128u);
    EXPECT_TRUE(fault->dead());
    EXPECT_EQ(cells(0, 10), counting(10));
    EXPECT_EQ(cells(10, 246), Bytes(246, 0xff));

    fault->power_on();
    EXPECT_EQ(write(0, counting(128)), 128u);
    EXPECT_EQ(read(0, 128), counting(128)) << "it heals";
}

TEST_F(Cat25640Driver, ABitFlippedOnTheBusIsReadAsReceived)
{
    const Bytes data = counting(64);
    write(0, data);
    insert_fault(board->spi(), "eeprom")->flip_reply_bits(EEPROM_CAT25_COMMAND_READ, 3 + 5, 0x10);
    Bytes expected = data;
    expected[5] ^= 0x10;
    EXPECT_EQ(read(0, 64), expected);
}

TEST_F(Cat25640Driver, WithoutABusEverythingIsRefused)
{
    EEPROM_CAT25 none(nullptr, CAT25640);
    uint8_t data[4] = {};
    EXPECT_EQ(none.getStatusRegister(), 0xff);
    EXPECT_EQ(none.readBlock(0, 4, data), 0u);
    EXPECT_EQ(none.writeBlock(0, 4, data), 0u);
    EXPECT_EQ(none.writeBlock(0, 0, data), 0u);
    EXPECT_EQ(out.text(), "") << "silently";
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(none.writePage(0, 4, data), 0u);
    EXPECT_EQ(err.text(), "[EEPROM] Busy timeout waiting for RDY\n");
    EXPECT_TRUE(messages() == std::vector<std::string>(100, "delay 1000"));
}

TEST_F(Cat25640Driver, TheCallerSelectsTheChannel)
{
    uint32_t channel = 4;
    handler.SetCommChannel(channel);
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(read(0, 4), Bytes{});
    EXPECT_EQ(chip->write_cycles(), 0u);
}

class Cat25040Driver : public EepromBench {
protected:
    void SetUp() override { use(kTypes[10]); }
};

TEST_F(Cat25040Driver, AddressesFrom0x100UpReachTheLowerHalf)
{
    EXPECT_EQ(write(0x110, counting(8)), 8u);
    EXPECT_EQ(cells(0x010, 8), counting(8));
    EXPECT_EQ(cells(0x110, 8), Bytes(8, 0xff));
    EXPECT_EQ(read(0x110, 8), counting(8));
}

} // namespace
