// The functions of hw.h and wiringPi, on the current board.

#include <array>
#include <memory>
#include <mutex>

#include <wiringPi.h>
#include <wiringPiI2C.h>

#include "board/board_control.h"
#include "board/current_board.h"
#include "hw/hw.h"
#include "orvan_sandbox/guard.h"

using sim_board::Clock;
using sim_board::current_board;
using sim_board::Trace;

namespace {

// The locks belong to the process, not to a board: they stay held when the board changes.
std::mutex* numbered_lock(int key)
{
    static auto* const locks = new std::array<std::mutex, 4>;
    return key >= 0 && key < 4 ? &(*locks)[static_cast<size_t>(key)] : nullptr;
}

// A thread that repeats a short wait without accessing the board in between polls something else, thousands
// of times a second for hours.
class PollingThread {
public:
    bool polls(uint64_t us) const
    {
        return us < Clock::kShortUs && us == m_us && Trace::added_by_this_thread() == m_lines;
    }
    /** After the wait is in the trace. */
    void waits(uint64_t us)
    {
        m_us = us;
        m_lines = Trace::added_by_this_thread();
    }

private:
    uint64_t m_us = 0;
    uint64_t m_lines = 0;
};
thread_local PollingThread t_thread;

std::unique_ptr<sim_board::BoardControl> g_control;

} // namespace

int hw_spi_open(const char* path, int flags)
{
    return current_board()->spi().open(path, flags);
}

int hw_spi_ioctl(int fd, unsigned long request, void* arg)
{
    return current_board()->spi().ioctl(fd, request, arg);
}

int hw_spi_close(int fd)
{
    return current_board()->spi().close(fd);
}

void hw_delay_us(uint64_t us)
{
    const auto board = current_board();
    if (board->clock().mode() == Clock::Mode::kRealTime && t_thread.polls(us)) {
        board->clock().poll_us(us);
        return;
    }
    board->trace().add(
        [us] { return sim_board::formatted("delay %llu", static_cast<unsigned long long>(us)); });
    t_thread.waits(us);
    board->clock().sleep_us(us);
}

bool hw_may_reach_modules(void)
{
    return orvan_sandbox::in_sandbox();
}

void hw_control_open(void)
{
    g_control = sim_board::board_control_of_environment();
}

void hw_control_close(void)
{
    g_control.reset();
}

int wiringPiSetup(void)
{
    return current_board()->gpio().setup();
}

void pinMode(int pin, int mode)
{
    current_board()->gpio().pin_mode(pin, mode);
}

void digitalWrite(int pin, int value)
{
    current_board()->gpio().write(pin, value);
}

int digitalRead(int pin)
{
    return current_board()->gpio().read(pin);
}

int wiringPiISR(int pin, int mode, void (*function)(void))
{
    return current_board()->gpio().isr(pin, mode, function);
}

void piLock(int key)
{
    if (std::mutex* lock = numbered_lock(key)) {
        lock->lock();
        current_board()->trace().add("lock %d", key);
    }
}

void piUnlock(int key)
{
    if (std::mutex* lock = numbered_lock(key)) {
        current_board()->trace().add("unlock %d", key);
        lock->unlock();
    }
}

int wiringPiI2CSetup(int devId)
{
    return current_board()->i2c().open(devId);
}

int wiringPiI2CRead(int fd)
{
    return current_board()->i2c().read(fd);
}

int wiringPiI2CWrite(int fd, int data)
{
    return current_board()->i2c().write(fd, data);
}

int wiringPiI2CReadReg8(int fd, int reg)
{
    return current_board()->i2c().read_register8(fd, reg);
}

int wiringPiI2CReadReg16(int fd, int reg)
{
    return current_board()->i2c().read_register16(fd, reg);
}

int wiringPiI2CWriteReg8(int fd, int reg, int data)
{
    return current_board()->i2c().write_register8(fd, reg, data);
}

int wiringPiI2CWriteReg16(int fd, int reg, int data)
{
    return current_board()->i2c().write_register16(fd, reg, data);
}
