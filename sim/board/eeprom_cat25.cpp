#include "board/eeprom_cat25.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace sim_board {

const Cat25Type& cat25_type(std::string_view name)
{
    const auto found = std::find_if(kCat25Types.begin(), kCat25Types.end(),
                                    [&](const Cat25Type& type) { return type.name == name; });
    if (found == kCat25Types.end()) {
        throw std::out_of_range("no CAT25 type " + std::string(name));
    }
    return *found;
}

Cat25Eeprom::Cat25Eeprom(const Cat25Type& type, std::shared_ptr<const Clock> clock, const std::string& image)
    : m_type(type), m_clock(std::move(clock)), m_image(image), m_cells(m_image.load(type.capacity + 1, 0xff))
{
    // A new image, or one of the cells alone, has no status byte; 0xFF is not a valid one.
    const uint8_t kept = m_cells.back();
    m_kept_status = kept == 0xff ? 0 : kept & status_bits_written();
    m_cells.pop_back();
    // A complete image is not touched, so that its modification time is that of the last chip write.
    if (kept != m_kept_status) {
        m_image.store(0, m_cells);
        m_image.store(m_type.capacity, {&m_kept_status, 1});
    }
}

std::vector<uint8_t> Cat25Eeprom::contents() const
{
    std::lock_guard lock(m_mutex);
    return m_cells;
}

uint8_t Cat25Eeprom::status() const
{
    std::lock_guard lock(m_mutex);
    return status_register();
}

size_t Cat25Eeprom::write_cycles() const
{
    std::lock_guard lock(m_mutex);
    return m_write_cycles;
}

void Cat25Eeprom::program(size_t address, std::span<const uint8_t> bytes)
{
    std::lock_guard lock(m_mutex);
    if (address > m_cells.size() || bytes.size() > m_cells.size() - address) {
        throw std::out_of_range("beyond the end of the chip");
    }
    std::copy(bytes.begin(), bytes.end(), m_cells.begin() + static_cast<std::ptrdiff_t>(address));
    store(address, bytes);
}

void Cat25Eeprom::set_write_protect_pin(int level)
{
    std::lock_guard lock(m_mutex);
    m_wp_level = level;
}

bool Cat25Eeprom::follows(uint8_t mode, uint32_t hertz) const
{
    return (mode == 0 || mode == 3) && hertz <= m_type.hertz;
}

void Cat25Eeprom::select()
{
    std::lock_guard lock(m_mutex);
    m_opcode = 0;
    m_received = 0;
    m_address = 0;
    m_data.clear();
}

// In the small types bit 3 of READ and WRITE is A8 or does not matter; in all others it must be 0. While a
// write cycle runs only RDSR is an instruction.
uint8_t Cat25Eeprom::decode(uint8_t sent) const
{
    uint8_t opcode = sent;
    if (m_type.small && (sent == (kRead | kA8) || sent == (kWrite | kA8))) {
        opcode = static_cast<uint8_t>(sent & ~kA8);
    }
    const bool known = opcode >= kWrsr && opcode <= kWren;
    return known && (!m_cycle_runs || opcode == kRdsr) ? opcode : 0;
}

uint8_t Cat25Eeprom::exchange(uint8_t sent)
{
    std::lock_guard lock(m_mutex);
    end_finished_cycle();
    const size_t position = m_received++;
    if (position == 0) {
        m_opcode = decode(sent);
        if (m_type.a8_in_opcode && (sent & kA8) != 0) {
            m_address = 1;
        }
        return kFloatingByte;
    }
    switch (m_opcode) {
    case kRdsr:
        return status_register();
    case kWrsr:
        m_data.push_back(sent);
        return kFloatingByte;
    case kRead:
    case kWrite:
        if (position <= m_type.address_bytes) {
            m_address = (m_address << 8U | sent) & (m_type.capacity - 1);
            return kFloatingByte;
        }
        if (m_opcode == kWrite) {
            m_data.push_back(sent);
            return kFloatingByte;
        }
        return m_cells[m_address++ % m_type.capacity];
    default:
        return kFloatingByte;
    }
}

void Cat25Eeprom::deselect()
{
    std::lock_guard lock(m_mutex);
    switch (m_opcode) {
    case kWren:
        m_write_enabled = true;
        break;
    case kWrdi:
        m_write_enabled = false;
        break;
    case kWrsr:
        write_status();
        break;
    case kWrite:
        write_page();
        break;
    default:
        break;
    }
    m_opcode = 0;
}

void Cat25Eeprom::power_on()
{
    std::lock_guard lock(m_mutex);
    m_write_enabled = false;
    m_cycle_runs = false;
    m_opcode = 0;
}

void Cat25Eeprom::end_finished_cycle() const
{
    if (m_cycle_runs && m_clock->now_us() >= m_cycle_end_us) {
        m_cycle_runs = false;
        m_write_enabled = false;
    }
}

uint8_t Cat25Eeprom::status_register() const
{
    end_finished_cycle();
    return static_cast<uint8_t>((m_type.small ? 0xf0 : 0) | m_kept_status | (m_write_enabled ? kWel : 0) |
                                (m_cycle_runs ? kRdy : 0));
}

bool Cat25Eeprom::status_locked() const
{
    return m_wp_level == 0 && (m_type.small || (m_kept_status & kWpen) != 0);
}

// BP1 BP0: 00 nothing, 01 the upper quarter, 10 the upper half, 11 everything.
bool Cat25Eeprom::cell_locked(size_t address) const
{
    if (m_type.small && m_wp_level == 0) {
        return true;
    }
    const size_t quarter = m_type.capacity / 4;
    const std::array<size_t, 4> first_locked{4 * quarter, 3 * quarter, 2 * quarter, 0};
    return address >= first_locked[(m_kept_status & (kBp1 | kBp0)) / kBp0];
}

// Data beyond a page wraps to its first cell and overwrites what came before. A refused write leaves the
// write enable latch unchanged.
void Cat25Eeprom::write_page()
{
    if (!m_write_enabled || m_data.empty() || cell_locked(m_address)) {
        return;
    }
    const size_t page = m_address & ~(m_type.page - 1);
    size_t in_page = m_address - page;
    for (const uint8_t byte : m_data) {
        m_cells[page + in_page] = byte;
        in_page = (in_page + 1) % m_type.page;
    }
    store(page, {m_cells.data() + page, m_type.page});
    begin_cycle();
}

void Cat25Eeprom::write_status()
{
    if (!m_write_enabled || m_data.empty() || status_locked()) {
        return;
    }
    m_kept_status = m_data.front() & status_bits_written();
    store(m_type.capacity, {&m_kept_status, 1});
    begin_cycle();
}

void Cat25Eeprom::begin_cycle()
{
    m_cycle_runs = true;
    m_cycle_end_us = m_clock->now_us() + kWriteCycleUs;
    ++m_write_cycles;
}

// Bus accesses arrive through C functions, which must not throw.
void Cat25Eeprom::store(size_t offset, std::span<const uint8_t> bytes)
{
    try {
        m_image.store(offset, bytes);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "board: EEPROM image not written: %s\n", error.what());
    }
}

} // namespace sim_board
