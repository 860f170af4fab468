#include "board/gpio.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include <wiringPi.h>

namespace sim_board {

int Gpio::setup()
{
    std::lock_guard lock(m_mutex);
    m_set_up = true;
    m_trace.add("pins setup");
    return 0;
}

const char* Gpio::obstacle(int pin) const
{
    if (usable(pin)) {
        return "";
    }
    return m_set_up ? " -> no such pin" : " -> before setup";
}

// The watcher runs outside the lock: it may access a chip, and chips access pins.
void Gpio::change(int pin, const std::function<void(Pin&)>& apply)
{
    std::function<void(int)> watcher;
    int level = 0;
    {
        std::lock_guard lock(m_mutex);
        Pin nowhere;
        Pin& changed = exists(pin) ? m_pins[static_cast<size_t>(pin)] : nowhere;
        const int before = changed.level();
        apply(changed);
        level = changed.level();
        if (level == before) {
            return;
        }
        watcher = changed.watcher;
        const int edge = level == 0 ? INT_EDGE_FALLING : INT_EDGE_RISING;
        if (changed.interrupt && changed.edge == edge) {
            changed.interrupt->notify();
        }
    }
    if (watcher) {
        watcher(level);
    }
}

void Gpio::pin_mode(int pin, int mode)
{
    change(pin, [&](Pin& changed) {
        m_trace.add("pin %d %s%s", pin, mode == OUTPUT ? "output" : "input", obstacle(pin));
        if (usable(pin)) {
            changed.output = mode == OUTPUT;
        }
    });
}

void Gpio::write(int pin, int value)
{
    change(pin, [&](Pin& changed) {
        m_trace.add(
            [pin, value, note = obstacle(pin)] { return formatted("pin %d = %d%s", pin, value, note); });
        if (usable(pin)) {
            changed.latch = value == 0 ? 0 : 1;
        }
    });
}

int Gpio::read(int pin)
{
    std::lock_guard lock(m_mutex);
    const int level = usable(pin) ? m_pins[static_cast<size_t>(pin)].level() : 0;
    m_trace.add([pin, level, note = obstacle(pin)] { return formatted("pin %d -> %d%s", pin, level, note); });
    return level;
}

int Gpio::isr(int pin, int edge, void (*handler)())
{
    std::lock_guard lock(m_mutex);
    const bool known_edge = edge == INT_EDGE_FALLING || edge == INT_EDGE_RISING;
    const int error = !usable(pin) || !known_edge || handler == nullptr || m_stopped ? EINVAL
                      : m_refuse_isr                                                 ? EIO
                                                                                     : 0;
    const char* edge_name = edge == INT_EDGE_FALLING  ? "falling"
                            : edge == INT_EDGE_RISING ? "rising"
                                                      : "unknown";
    if (error != 0) {
        m_trace.add("pin %d isr %s -> %s", pin, edge_name, ::strerrorname_np(error));
        errno = error;
        return -1;
    }
    m_trace.add("pin %d isr %s", pin, edge_name);
    Pin& armed = m_pins[static_cast<size_t>(pin)];
    armed.edge = edge;
    if (armed.interrupt) {
        armed.interrupt->set_handler(handler);
    } else {
        armed.interrupt = std::make_shared<InterruptThread>(handler);
    }
    return 0;
}

void Gpio::drive(int pin, int level)
{
    change(pin, [&](Pin& changed) { changed.driven = level == 0 ? 0 : 1; });
}

int Gpio::level(int pin) const
{
    std::lock_guard lock(m_mutex);
    return exists(pin) ? m_pins[static_cast<size_t>(pin)].level() : 0;
}

void Gpio::watch(int pin, std::function<void(int level)> watcher)
{
    std::lock_guard lock(m_mutex);
    m_pins.at(static_cast<size_t>(pin)).watcher = std::move(watcher);
}

void Gpio::refuse_isr(bool refuse)
{
    std::lock_guard lock(m_mutex);
    m_refuse_isr = refuse;
}

bool Gpio::wait_for_handlers(std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    std::vector<std::shared_ptr<InterruptThread>> interrupts;
    {
        std::lock_guard lock(m_mutex);
        for (const Pin& pin : m_pins) {
            if (pin.interrupt) {
                interrupts.push_back(pin.interrupt);
            }
        }
    }
    for (const auto& interrupt : interrupts) {
        if (!interrupt->wait_idle(deadline)) {
            return false;
        }
    }
    return true;
}

void Gpio::stop()
{
    std::vector<std::shared_ptr<InterruptThread>> interrupts;
    {
        std::lock_guard lock(m_mutex);
        m_stopped = true;
        for (Pin& pin : m_pins) {
            interrupts.push_back(std::move(pin.interrupt));
        }
    }
    interrupts.clear(); // joined outside the lock, which a handler may want
}

} // namespace sim_board
