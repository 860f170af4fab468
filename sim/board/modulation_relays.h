#ifndef ORVAN_SIM_BOARD_MODULATION_RELAYS_H
#define ORVAN_SIM_BOARD_MODULATION_RELAYS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "board/expander_mcp23017.h"

namespace sim_board {

/**
 * The latching relays that connect the external modulation inputs to the four slots of the benchtop's board.
 *
 * Each slot has two. The path relay is at 0, for the external pulse input and for FM, or at 1, for the slot's
 * own modulator and for AM. The input relay, when set, connects the external analog input to that path;
 * switching the path relay releases it. So each of the four combinations is a different routing.
 *
 * The coils are on two decoders of eight outputs. A decoder is addressed by three port lines, and when its
 * strobe line rises it throws the coil at the address that the lines had before:
 *
 *     decoder  strobe  address, high to low     coils 0 to 3                  coils 4 to 6
 *     one      B 0x80  A 0x20, B 0x20, A 0x40   path of slots 1 to 4 to 0     path of slots 1 to 3 to 1
 *     two      B 0x08  A 0x08, B 0x02, A 0x10   input of slots 1 to 4 set     4: path of slot 4 to 1
 *
 * The lines follow the output latches, even where a pin is an input: the controller drives the relays
 * through pins that it has made inputs for the power button. A relay keeps its position when its lines change
 * and when the expander is reset. Thread-safe.
 */
class ModulationRelays {
public:
    static constexpr size_t kSlots = 4;

    enum class Routing { kNone, kPulse, kFm, kAm };

    struct Slot {
        int path = 1;
        bool input = false;
        bool operator==(const Slot&) const = default;
        Routing routing() const;
    };

    /** An expander's output latch has been written, or cleared by a reset. */
    void latch(Mcp23017::Port port, uint8_t levels);

    /** slot: from 1. */
    Slot slot(size_t number) const;
    /** Coils energised so far; a strobe at an address without a coil does not count. */
    size_t throws() const;

private:
    void throw_coil(size_t decoder, unsigned address);

    mutable std::mutex m_mutex;
    std::array<uint8_t, 2> m_latch{};
    std::array<Slot, kSlots> m_slots{};
    size_t m_throws = 0;
};

} // namespace sim_board

#endif
