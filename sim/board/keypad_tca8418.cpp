#include "board/keypad_tca8418.h"

#include <algorithm>

namespace sim_board {
namespace {

constexpr uint8_t kPressed = 0x80;
constexpr uint8_t kInterrupts = 0x1f;
constexpr uint8_t kLockEnable = 0x40; // of KEY_LCK_EC, its only writable bit
constexpr int kCtrlAltDel[] = {1, 11, 21};

// Every third register is for COL8 and COL9 only.
constexpr bool is_third_of_lines(uint8_t address)
{
    return address >= Tca8418::kGpioIntStat1 && (address - Tca8418::kGpioIntStat1) % 3 == 2;
}

constexpr bool exists(int row, int column)
{
    return row >= 0 && row < Tca8418::kRows && column >= 0 && column < Tca8418::kColumns;
}

constexpr int key_number(int row, int column)
{
    return row * Tca8418::kColumns + column + 1;
}

constexpr bool is_read_only(uint8_t address)
{
    return address == 0 || (address >= Tca8418::kKeyEventA && address <= Tca8418::kKeyEventJ) ||
           (address >= Tca8418::kGpioIntStat1 && address < Tca8418::kGpioDatOut1) ||
           address >= Tca8418::kRegisters;
}

} // namespace

bool Tca8418::in_matrix(int row, int column) const
{
    const int columns = m_registers[kKpGpio1 + 1] | m_registers[kKpGpio1 + 2] << 8;
    return (m_registers[kKpGpio1] >> row & 1) != 0 && (columns >> column & 1) != 0;
}

bool Tca8418::is_held(int row, int column) const
{
    if (!exists(row, column)) {
        return false;
    }
    std::lock_guard lock(m_mutex);
    return is_down(key_number(row, column));
}

bool Tca8418::move(int row, int column, bool pressed)
{
    if (!exists(row, column)) {
        return false;
    }
    const int key = key_number(row, column);
    std::lock_guard lock(m_mutex);
    if (is_down(key) == pressed) {
        return false;
    }
    m_down[static_cast<size_t>(key)] = pressed;
    if (!in_reset() && in_matrix(row, column)) {
        add_event(static_cast<uint8_t>(key | (pressed ? kPressed : 0)));
        if (std::all_of(std::begin(kCtrlAltDel), std::end(kCtrlAltDel), [&](int k) { return is_down(k); })) {
            m_registers[kIntStat] |= kCadInt;
        }
        report_outputs();
    }
    return true;
}

void Tca8418::add_event(uint8_t event)
{
    if (m_fifo.size() < kFifoSize) {
        m_fifo.push_back(event);
    } else {
        m_registers[kIntStat] |= kOvrFlowInt;
        if ((m_registers[kCfg] & kOvrFlowM) != 0) {
            m_fifo.pop_front();
            m_fifo.push_back(event);
        }
    }
    if ((m_registers[kCfg] & kKeIen) != 0) {
        m_registers[kIntStat] |= kKInt;
    }
}

// K_INT stays set while events are left; the output is asserted again only with INT_CFG set.
void Tca8418::clear_interrupts(uint8_t bits)
{
    const bool key_events_left = (m_registers[kIntStat] & kKInt) != 0 && !m_fifo.empty();
    m_registers[kIntStat] = static_cast<uint8_t>(m_registers[kIntStat] & ~bits);
    if (key_events_left && (bits & kKInt) != 0) {
        m_registers[kIntStat] |= kKInt;
        if ((m_registers[kCfg] & kIntCfg) != 0) {
            report(1);
        }
    }
}

uint8_t Tca8418::reg(uint8_t address) const
{
    std::lock_guard lock(m_mutex);
    return value_of(address);
}

int Tca8418::interrupt_level() const
{
    std::lock_guard lock(m_mutex);
    return output_level();
}

void Tca8418::on_interrupt(std::function<void(int)> listener)
{
    std::lock_guard lock(m_mutex);
    m_listener = std::move(listener);
    if (m_listener) {
        m_listener(m_reported);
    }
}

void Tca8418::reset_registers()
{
    m_registers.fill(0);
    m_fifo.clear();
}

uint8_t Tca8418::read_register(uint8_t address)
{
    const uint8_t value = value_of(address);
    if (address == kKeyEventA && !m_fifo.empty()) {
        m_fifo.pop_front();
    }
    return value;
}

uint8_t Tca8418::value_of(uint8_t address) const
{
    if (address >= kRegisters) {
        return 0;
    }
    if (address == kKeyLckEc) {
        return static_cast<uint8_t>(m_registers[kKeyLckEc] | m_fifo.size());
    }
    if (address >= kKeyEventA && address <= kKeyEventJ) {
        const size_t place = address - size_t{kKeyEventA};
        return place < m_fifo.size() ? m_fifo[place] : 0;
    }
    return m_registers[address];
}

void Tca8418::write_register(uint8_t address, uint8_t value)
{
    if (is_read_only(address)) {
        return;
    }
    if (address == kIntStat) {
        clear_interrupts(value & kInterrupts);
    } else if (address == kKeyLckEc) {
        m_registers[address] = value & kLockEnable;
    } else {
        m_registers[address] = is_third_of_lines(address) ? value & 0x03 : value;
    }
}

uint8_t Tca8418::following(uint8_t address) const
{
    return (m_registers[kCfg] & kAi) != 0 ? static_cast<uint8_t>(address + 1) : address;
}

int Tca8418::output_level() const
{
    const bool overflow =
        (m_registers[kIntStat] & kOvrFlowInt) != 0 && (m_registers[kCfg] & kOvrFlowIen) != 0;
    return overflow || (m_registers[kIntStat] & (kKInt | kCadInt)) != 0 ? 0 : 1;
}

void Tca8418::report_outputs()
{
    report(output_level());
}

void Tca8418::report(int level)
{
    if (level == m_reported) {
        return;
    }
    m_reported = level;
    if (m_listener) {
        m_listener(level);
    }
}

} // namespace sim_board
