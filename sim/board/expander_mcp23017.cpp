#include "board/expander_mcp23017.h"

#include <utility>

namespace sim_board {
namespace {

constexpr uint8_t kLastOfPort = Mcp23017::kOlat;
constexpr uint8_t kPortBOfBank1 = 0x10;
constexpr uint8_t kLastOfBank0 = 2 * Mcp23017::kOlat + 1;
constexpr uint8_t kLastOfBank1 = kPortBOfBank1 + kLastOfPort;

constexpr uint8_t byte(int value)
{
    return static_cast<uint8_t>(value);
}

} // namespace

Mcp23017::Mcp23017()
{
    power_on_values();
}

void Mcp23017::power_on_values()
{
    for (auto& pair : m_registers) {
        pair.fill(0);
    }
    m_registers[kIodir].fill(0xff);
    for (const Port port : {kA, kB}) {
        m_compared[port] = pin_levels(port);
    }
}

uint8_t Mcp23017::reg(Register which, Port port) const
{
    std::lock_guard lock(m_mutex);
    return which == kGpio ? gpio(port) : at(which, port);
}

uint8_t Mcp23017::pins(Port port) const
{
    std::lock_guard lock(m_mutex);
    return pin_levels(port);
}

void Mcp23017::drive(Port port, uint8_t mask, uint8_t levels)
{
    std::lock_guard lock(m_mutex);
    m_driven[port] = byte(m_driven[port] | mask);
    m_levels[port] = byte((m_levels[port] & ~mask) | (levels & mask));
    check_interrupt(port);
    report_outputs();
}

void Mcp23017::release(Port port, uint8_t mask)
{
    std::lock_guard lock(m_mutex);
    m_driven[port] = byte(m_driven[port] & ~mask);
    check_interrupt(port);
    report_outputs();
}

int Mcp23017::interrupt_level(Port output) const
{
    std::lock_guard lock(m_mutex);
    return output_level(output);
}

void Mcp23017::on_interrupt(std::function<void(Port, int)> listener)
{
    std::lock_guard lock(m_mutex);
    m_listener = std::move(listener);
    if (m_listener) {
        for (const Port output : {kA, kB}) {
            m_listener(output, m_reported[output]);
        }
    }
}

void Mcp23017::reset_registers()
{
    power_on_values();
    report_latch(kA);
    report_latch(kB);
}

Mcp23017::Location Mcp23017::locate(uint8_t address) const
{
    if ((at(kIocon, kA) & kBank) == 0) {
        return {static_cast<Register>(address / 2 % kRegisters), static_cast<Port>(address % 2),
                address <= kLastOfBank0};
    }
    const uint8_t in_port = address % kPortBOfBank1;
    return {static_cast<Register>(in_port % kRegisters), address < kPortBOfBank1 ? kA : kB,
            in_port <= kLastOfPort && address <= kLastOfBank1};
}

// In byte mode the pointer stays; with BANK = 0 it toggles between the two registers of the pair.
uint8_t Mcp23017::following(uint8_t address) const
{
    const uint8_t iocon = at(kIocon, kA);
    const bool bank1 = (iocon & kBank) != 0;
    if ((iocon & kSeqop) != 0) {
        return bank1 ? address : byte(address ^ 1);
    }
    if (address >= (bank1 ? kLastOfBank1 : kLastOfBank0)) {
        return 0;
    }
    return bank1 && address == kLastOfPort ? kPortBOfBank1 : byte(address + 1);
}

uint8_t Mcp23017::pin_levels(Port port) const
{
    const int outside = (m_levels[port] & m_driven[port]) | (at(kGppu, port) & ~m_driven[port]);
    return byte((outside & at(kIodir, port)) | (at(kOlat, port) & ~at(kIodir, port)));
}

uint8_t Mcp23017::gpio(Port port) const
{
    return pin_levels(port) ^ at(kIpol, port);
}

uint8_t Mcp23017::read_register(uint8_t address)
{
    const Location location = locate(address);
    if (!location.exists) {
        return 0;
    }
    const uint8_t value = location.which == kGpio ? gpio(location.port) : at(location.which, location.port);
    if (location.which == kGpio || location.which == kIntcap) {
        end_interrupt(location.port);
    }
    return value;
}

void Mcp23017::write_register(uint8_t address, uint8_t value)
{
    const Location location = locate(address);
    if (!location.exists || location.which == kIntf || location.which == kIntcap) {
        return;
    }
    if (location.which == kIocon) {
        m_registers[kIocon].fill(value & 0xfe); // bit 0 has no cell in the chip and reads 0
    } else {
        const Register written = location.which == kGpio ? kOlat : location.which;
        at(written, location.port) = value;
        if (written == kOlat) {
            report_latch(location.port);
        }
    }
    check_interrupt(location.port);
}

void Mcp23017::end_interrupt(Port port)
{
    if (at(kIntf, port) == 0) {
        return;
    }
    at(kIntf, port) = 0;
    m_compared[port] = pin_levels(port);
    report_outputs(); // the output goes idle briefly even if the cause persists
    check_interrupt(port);
}

// The first cause is kept until GPIO or INTCAP is read; until then further changes have no effect.
void Mcp23017::check_interrupt(Port port)
{
    if (at(kIntf, port) != 0) {
        return;
    }
    const uint8_t now = pin_levels(port);
    const int changed = (now ^ m_compared[port]) & ~at(kIntcon, port);
    const int differing = (now ^ at(kDefval, port)) & at(kIntcon, port);
    const uint8_t causes = byte((changed | differing) & at(kGpinten, port) & at(kIodir, port));
    m_compared[port] = now;
    if (causes == 0) {
        return;
    }
    at(kIntf, port) = causes;
    at(kIntcap, port) = gpio(port);
}

int Mcp23017::output_level(Port output) const
{
    const uint8_t iocon = at(kIocon, kA);
    const bool mirrored = (iocon & kMirror) != 0;
    const bool asserted = at(kIntf, output) != 0 || (mirrored && at(kIntf, output == kA ? kB : kA) != 0);
    const bool active_high = (iocon & kIntpol) != 0 && (iocon & kOdr) == 0;
    return asserted == active_high ? 1 : 0;
}

void Mcp23017::on_pins(std::function<void(Port, uint8_t)> listener)
{
    std::lock_guard lock(m_mutex);
    m_pin_listener = std::move(listener);
    m_reported_pins = {};
    report_pins();
}

void Mcp23017::on_latch(std::function<void(Port, uint8_t)> listener)
{
    std::lock_guard lock(m_mutex);
    m_latch_listener = std::move(listener);
}

void Mcp23017::report_latch(Port port)
{
    if (m_latch_listener) {
        m_latch_listener(port, at(kOlat, port));
    }
}

void Mcp23017::report_pins()
{
    if (!m_pin_listener) {
        return;
    }
    for (const Port port : {kA, kB}) {
        const uint8_t levels = pin_levels(port);
        if (std::exchange(m_reported_pins[port], levels) != levels) {
            m_pin_listener(port, levels);
        }
    }
}

void Mcp23017::report_outputs()
{
    report_pins();
    for (const Port output : {kA, kB}) {
        const int level = output_level(output);
        if (level != m_reported[output]) {
            m_reported[output] = level;
            if (m_listener) {
                m_listener(output, level);
            }
        }
    }
}

} // namespace sim_board
