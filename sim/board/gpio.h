#ifndef ORVAN_SIM_BOARD_GPIO_H
#define ORVAN_SIM_BOARD_GPIO_H

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "board/interrupt_thread.h"
#include "board/trace.h"

namespace sim_board {

/**
 * The pins 0 to 31 by wiringPi's numbers. At power-on all are inputs. Accesses before setup() have no effect,
 * as on the instrument; the trace shows them with "-> before setup". Thread-safe.
 */
class Gpio {
public:
    static constexpr int kPins = 32;

    explicit Gpio(Trace& trace) : m_trace(trace) {}

    /**
     * @name As wiringPi
     * @{
     */
    int setup();
    void pin_mode(int pin, int mode);
    void write(int pin, int value);
    int read(int pin);
    /** -1 with errno for a pin or edge that does not exist, before setup, or while refused. */
    int isr(int pin, int edge, void (*handler)());
    /** @} */

    /**
     * @name For tests and wiring
     * @{
     * Sets the level that an input reads. An edge calls the pin's handler on its thread.
     */
    void drive(int pin, int level);
    /** The present level of the pin, driven from outside or by the output. */
    int level(int pin) const;
    /**
     * Calls `watcher` with every new level of the pin, on the thread that changes it. For wiring; call it
     * before use.
     */
    void watch(int pin, std::function<void(int level)> watcher);
    /** While true, isr() fails with EIO. */
    void refuse_isr(bool refuse);
    /** Waits until every handler called so far has returned. */
    bool wait_for_handlers(std::chrono::milliseconds bound = std::chrono::milliseconds(10000));
    /** Ends the interrupt threads; edges are ignored from then on. Not from a handler. */
    void stop();
    /** @} */

private:
    struct Pin {
        bool output = false;
        int latch = 0;
        int driven = 0;
        int edge = 0;
        std::shared_ptr<InterruptThread> interrupt{};
        std::function<void(int)> watcher{};
        int level() const { return output ? latch : driven; }
    };

    static bool exists(int pin) { return pin >= 0 && pin < kPins; }
    bool usable(int pin) const { return m_set_up && exists(pin); }
    const char* obstacle(int pin) const;
    void change(int pin, const std::function<void(Pin&)>& apply);

    Trace& m_trace;
    mutable std::mutex m_mutex;
    std::array<Pin, kPins> m_pins{};
    bool m_set_up = false;
    bool m_refuse_isr = false;
    bool m_stopped = false;
};

} // namespace sim_board

#endif
