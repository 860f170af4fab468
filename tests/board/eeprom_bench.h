/**
 * A driver on a chip of each type of the family.
 */
#ifndef ORVAN_TESTS_EEPROM_BENCH_H
#define ORVAN_TESTS_EEPROM_BENCH_H

#include <cstdio>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include <unistd.h>

#include "board_bench.h"
#include "orvan_sdk/eeprom/eeprom_cat25.h"
#include "support/output_capture.h"

namespace board_test {

using namespace HaldeElec::Orvan;
using orvan_test::OutputCapture;

struct TypeRow {
    EEPROM_CAT25_Device device;
    int number;
    std::string_view name;
    size_t capacity, capacity_name;
    size_t page, page_name;
    size_t address_bytes;
};

#define TYPE(name, number, capacity, page, address_bytes)                                                    \
    {                                                                                                        \
        name, number, #name, capacity, EEPROM_CAPACITY_##name, page, EEPROM_PAGE_SIZE_##name, address_bytes  \
    }
constexpr TypeRow kTypes[] = {
    TYPE(CAT25M01, 0, 0x20000, 256, 3), TYPE(CAT25512, 1, 0x10000, 128, 2), TYPE(CAT25256, 2, 0x8000, 64, 2),
    TYPE(CAT25128, 3, 0x4000, 64, 2),   TYPE(CAT25640, 4, 0x2000, 64, 2),   TYPE(CAT25320, 5, 0x1000, 32, 2),
    TYPE(CAT25160, 6, 0x800, 32, 2),    TYPE(CAV25160, 7, 0x800, 32, 2),    TYPE(CAT25080, 8, 0x400, 32, 2),
    TYPE(CAV25080, 9, 0x400, 32, 2),    TYPE(CAT25040, 10, 0x200, 16, 1),   TYPE(CAT25020, 11, 0x100, 16, 1),
    TYPE(CAT25010, 12, 0x80, 16, 1),
};
#undef TYPE

inline void PrintTo(const TypeRow& row, std::ostream* out)
{
    *out << row.name;
}

inline std::string hex(size_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%zX", value);
    return text;
}

inline std::string page_line(size_t address)
{
    return "write Page (EEPROM_CAT25): Writing page at address " + hex(address) + "\n";
}

class EepromBench : public BoardTest {
protected:
    void use(const TypeRow& row)
    {
        connect();
        chip =
            std::make_shared<sim_board::Cat25Eeprom>(sim_board::cat25_type(row.name), board->shared_clock());
        board->spi().attach("eeprom", chip);
        driver.emplace(&handler, row.device);
    }
    size_t write(size_t address, Bytes data)
    {
        return driver->writeBlock(static_cast<uint32_t>(address), data.size(), data.data());
    }
    size_t write_page(size_t address, Bytes data)
    {
        return driver->writePage(static_cast<uint32_t>(address), data.size(), data.data());
    }
    /** Reads this many bytes; empty if refused. */
    Bytes read(size_t address, size_t length)
    {
        Bytes data(length);
        const size_t count = driver->readBlock(static_cast<uint32_t>(address), length, data.data());
        EXPECT_TRUE(count == 0 || count == length);
        return count == 0 ? Bytes{} : data;
    }
    Bytes cells(size_t address, size_t length) const
    {
        const Bytes all = chip->contents();
        const auto from = all.begin() + static_cast<std::ptrdiff_t>(address);
        return {from, from + static_cast<std::ptrdiff_t>(length)};
    }

    std::shared_ptr<sim_board::Cat25Eeprom> chip;
    std::optional<EEPROM_CAT25> driver;
    OutputCapture out{STDOUT_FILENO};
};

/** Runs each case for every type. */
class EveryEeprom : public EepromBench, public testing::WithParamInterface<TypeRow> {
protected:
    void SetUp() override { use(GetParam()); }
    const TypeRow& type = GetParam();
};

} // namespace board_test

#endif
