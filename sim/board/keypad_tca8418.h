#ifndef ORVAN_SIM_BOARD_KEYPAD_TCA8418_H
#define ORVAN_SIM_BOARD_KEYPAD_TCA8418_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

#include "board/register_device.h"

namespace sim_board {

/**
 * The keypad controller TCA8418: key matrix, FIFO of ten events, interrupt status (write 1 to clear) and its
 * output, overflow in both modes, Ctrl-Alt-Del on keys 1, 11 and 21, address auto-increment. Not modelled:
 * keypad lock, debouncing, and lines used as GPIO; their registers only keep their value. The 50 us for which
 * INT_CFG deasserts the output take no time here. Keys held stay held during a reset.
 *
 * Thread-safe.
 */
class Tca8418 : public RegisterDevice {
public:
    static constexpr int kRows = 8;
    static constexpr int kColumns = 10;
    static constexpr size_t kFifoSize = 10;

    enum Register : uint8_t {
        kCfg = 0x01,
        kIntStat = 0x02,      // write 1 to clear
        kKeyLckEc = 0x03,     // bits 0 to 3: events in the FIFO
        kKeyEventA = 0x04,    // reading removes the oldest event: 0x80 press, bits 0 to 6 the key; 0 for none
        kKeyEventJ = 0x0d,    // B to J: the newer ones, which reading does not remove
        kKpLckTimer = 0x0e,   // to UNLOCK2
        kGpioIntStat1 = 0x11, // to GPIO_INT_STAT3; read only
        kGpioDatStat1 = 0x14, // to GPIO_DAT_STAT3; read only
        kGpioDatOut1 = 0x17,  // from here in groups of three: ROW0 to 7, COL0 to 7, COL8 and 9
        kKpGpio1 = 0x1d,      // 1: the line belongs to the matrix
        kGpioPull3 = 0x2e,
        kRegisters = 0x2f,
    };
    enum Cfg : uint8_t {
        kKeIen = 0x01,      // a key event sets K_INT and asserts the output
        kOvrFlowIen = 0x08, // an overflow asserts the output
        kIntCfg = 0x10,     // 1: clearing deasserts the output briefly although events are left
        kOvrFlowM = 0x20,   // on overflow 0: the new event is lost, 1: the oldest
        kAi = 0x80,         // the register address increments
    };
    enum IntStat : uint8_t { kKInt = 0x01, kOvrFlowInt = 0x08, kCadInt = 0x10 };

    /**
     * @name For tests
     * @{
     * Presses or releases a key. False if there is no such key or its state does not change. Keys on lines
     * outside the matrix cause no event.
     */
    bool press(int row, int column) { return move(row, column, true); }
    bool release(int row, int column) { return move(row, column, false); }
    bool is_held(int row, int column) const;
    /** A register's value; reading it here removes no event. */
    uint8_t reg(uint8_t address) const;
    /** The level of the INT output: open drain, active low, pulled up. */
    int interrupt_level() const;
    /**
     * Calls `listener` with each new level of INT, on the thread that changed it and with the chip locked,
     * so it must not call the chip. An empty one removes the listener.
     */
    void on_interrupt(std::function<void(int level)> listener);
    /** @} */

private:
    uint8_t read_register(uint8_t address) override;
    void write_register(uint8_t address, uint8_t value) override;
    uint8_t following(uint8_t address) const override;
    void reset_registers() override;
    void report_outputs() override;

    bool move(int row, int column, bool pressed);
    bool in_matrix(int row, int column) const;
    bool is_down(int key) const { return m_down[static_cast<size_t>(key)]; }
    void add_event(uint8_t event);
    void clear_interrupts(uint8_t bits);
    uint8_t value_of(uint8_t address) const;
    int output_level() const;
    void report(int level);

    std::array<uint8_t, kRegisters> m_registers{};
    std::array<bool, kRows * kColumns + 1> m_down{}; // by key number, from 1
    std::deque<uint8_t> m_fifo;
    int m_reported = 1;
    std::function<void(int)> m_listener;
};

} // namespace sim_board

#endif
