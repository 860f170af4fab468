#ifndef ORVAN_SIM_BOARD_EEPROM_CAT25_H
#define ORVAN_SIM_BOARD_EEPROM_CAT25_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "board/clock.h"
#include "board/image_file.h"
#include "board/spi_device.h"

namespace sim_board {

/** One member of the CAT25 family of SPI EEPROMs. */
struct Cat25Type {
    std::string_view name;
    size_t capacity; // bytes, a power of two
    size_t page;     // bytes, a power of two
    unsigned address_bytes;
    bool a8_in_opcode; // bit 3 of READ and WRITE is address bit 8
    bool small;        // no WPEN bit: status bits 7 to 4 read 1, WP guards the whole chip
    uint32_t hertz;    // fastest clock at 5 V
};

inline constexpr std::array<Cat25Type, 13> kCat25Types{{
    {"CAT25M01", 0x20000, 256, 3, false, false, 10'000'000},
    {"CAT25512", 0x10000, 128, 2, false, false, 20'000'000},
    {"CAT25256", 0x08000, 64, 2, false, false, 20'000'000},
    {"CAT25128", 0x04000, 64, 2, false, false, 20'000'000},
    {"CAT25640", 0x02000, 64, 2, false, false, 20'000'000},
    {"CAT25320", 0x01000, 32, 2, false, false, 20'000'000},
    {"CAT25160", 0x00800, 32, 2, false, false, 20'000'000},
    {"CAV25160", 0x00800, 32, 2, false, false, 10'000'000},
    {"CAT25080", 0x00400, 32, 2, false, false, 20'000'000},
    {"CAV25080", 0x00400, 32, 2, false, false, 10'000'000},
    {"CAT25040", 0x00200, 16, 1, true, true, 20'000'000},
    {"CAT25020", 0x00100, 16, 1, false, true, 20'000'000},
    {"CAT25010", 0x00080, 16, 1, false, true, 20'000'000},
}};

/** The row of that name; throws std::out_of_range for an unknown one. */
const Cat25Type& cat25_type(std::string_view name);

/**
 * A CAT25 chip: WREN, WRDI, RDSR, WRSR, READ, WRITE; the status register with RDY, WEL, BP0, BP1 and WPEN;
 * page writes that wrap within their page; a write cycle of 5 ms on the board's clock, during which only RDSR
 * is accepted. The identification page (IPL, LIP) is not modelled: these bits read 0.
 *
 * Clocks after the opcode of WREN and WRDI are ignored; these take effect when chip select rises.
 *
 * The image file holds the cells and then one byte, the non-volatile bits of the status register. A new chip
 * is erased: all cells 0xFF, status 0. The functions for tests are thread-safe.
 */
class Cat25Eeprom : public SpiDevice {
public:
    enum Opcode : uint8_t {
        kWrsr = 0x01,
        kWrite = 0x02,
        kRead = 0x03,
        kWrdi = 0x04,
        kRdsr = 0x05,
        kWren = 0x06,
        kA8 = 0x08, // set in READ and WRITE
    };
    enum Status : uint8_t {
        kRdy = 0x01, // 1 while a write cycle runs
        kWel = 0x02,
        kBp0 = 0x04,
        kBp1 = 0x08,
        kWpen = 0x80,
    };
    static constexpr uint64_t kWriteCycleUs = 5000;

    /** image: path of the image file, empty for none. Throws std::system_error if the file can't be used. */
    Cat25Eeprom(const Cat25Type& type, std::shared_ptr<const Clock> clock, const std::string& image = {});

    const Cat25Type& type() const { return m_type; }
    std::vector<uint8_t> contents() const;
    uint8_t status() const;
    /** Write cycles begun, of pages and of the status register. */
    size_t write_cycles() const;
    /** Programs cells directly, without a write cycle. */
    void program(size_t address, std::span<const uint8_t> bytes);
    /** The level of the WP input; active low, initially high. */
    void set_write_protect_pin(int level);

    bool follows(uint8_t mode, uint32_t hertz) const override;
    void select() override;
    uint8_t exchange(uint8_t sent) override;
    void deselect() override;
    void power_on() override;

private:
    uint8_t decode(uint8_t sent) const;
    void end_finished_cycle() const;
    uint8_t status_register() const;
    uint8_t status_bits_written() const { return m_type.small ? kBp0 | kBp1 : kWpen | kBp0 | kBp1; }
    bool status_locked() const;
    bool cell_locked(size_t address) const;
    void write_page();
    void write_status();
    void begin_cycle();
    void store(size_t offset, std::span<const uint8_t> bytes);

    const Cat25Type m_type;
    const std::shared_ptr<const Clock> m_clock;
    mutable std::mutex m_mutex;
    ImageFile m_image;
    std::vector<uint8_t> m_cells;
    uint8_t m_kept_status = 0; // WPEN, BP1, BP0
    int m_wp_level = 1;
    size_t m_write_cycles = 0;

    mutable bool m_write_enabled = false;
    mutable bool m_cycle_runs = false;
    uint64_t m_cycle_end_us = 0;

    // The instruction in progress, while chip select is low.
    uint8_t m_opcode = 0; // 0: none, or one that is not accepted
    size_t m_received = 0;
    size_t m_address = 0;
    std::vector<uint8_t> m_data;
};

} // namespace sim_board

#endif
