#include "board/modulation_relays.h"

namespace sim_board {
namespace {

struct Line {
    Mcp23017::Port port;
    uint8_t bit;
};

struct Decoder {
    uint8_t strobe;  // in port B
    Line address[3]; // lowest first
};
constexpr Decoder kDecoders[] = {
    {0x80, {{Mcp23017::kA, 0x40}, {Mcp23017::kB, 0x20}, {Mcp23017::kA, 0x20}}},
    {0x08, {{Mcp23017::kA, 0x10}, {Mcp23017::kB, 0x02}, {Mcp23017::kA, 0x08}}},
};

enum class Coil { kNone, kPath0, kPath1, kInput };
struct Output {
    Coil coil;
    size_t slot; // from 0
};
constexpr Output kNothing{Coil::kNone, 0};
constexpr Output kOutputs[][8] = {
    {{Coil::kPath0, 0},
     {Coil::kPath0, 1},
     {Coil::kPath0, 2},
     {Coil::kPath0, 3},
     {Coil::kPath1, 0},
     {Coil::kPath1, 1},
     {Coil::kPath1, 2},
     kNothing},
    {{Coil::kInput, 0},
     {Coil::kInput, 1},
     {Coil::kInput, 2},
     {Coil::kInput, 3},
     {Coil::kPath1, 3},
     kNothing,
     kNothing,
     kNothing},
};

} // namespace

ModulationRelays::Routing ModulationRelays::Slot::routing() const
{
    if (path == 0) {
        return input ? Routing::kFm : Routing::kPulse;
    }
    return input ? Routing::kAm : Routing::kNone;
}

void ModulationRelays::latch(Mcp23017::Port port, uint8_t levels)
{
    std::lock_guard lock(m_mutex);
    const std::array<uint8_t, 2> before = m_latch;
    m_latch[port] = levels;
    for (size_t decoder = 0; decoder < std::size(kDecoders); ++decoder) {
        const Decoder& wiring = kDecoders[decoder];
        if ((m_latch[Mcp23017::kB] & ~before[Mcp23017::kB] & wiring.strobe) == 0) {
            continue;
        }
        unsigned address = 0;
        for (unsigned line = 0; line < std::size(wiring.address); ++line) {
            if ((before[wiring.address[line].port] & wiring.address[line].bit) != 0) {
                address |= 1U << line;
            }
        }
        throw_coil(decoder, address);
    }
}

void ModulationRelays::throw_coil(size_t decoder, unsigned address)
{
    const Output& output = kOutputs[decoder][address];
    if (output.coil == Coil::kNone) {
        return;
    }
    ++m_throws;
    Slot& slot = m_slots[output.slot];
    if (output.coil == Coil::kInput) {
        slot.input = true;
    } else {
        slot = {output.coil == Coil::kPath0 ? 0 : 1, false};
    }
}

ModulationRelays::Slot ModulationRelays::slot(size_t number) const
{
    std::lock_guard lock(m_mutex);
    return m_slots.at(number - 1);
}

size_t ModulationRelays::throws() const
{
    std::lock_guard lock(m_mutex);
    return m_throws;
}

} // namespace sim_board
