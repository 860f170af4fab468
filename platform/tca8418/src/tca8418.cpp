#include "tca8418.h"

#include <cstdint>

#include <wiringPiI2C.h>

#include <hw/hw.h>

namespace {

enum Register {
    kCfg = 0x01,
    kIntStat = 0x02,
    kKeyEventA = 0x04,
    kKpGpio1 = 0x1d, // ROW7..ROW0, 1: part of the matrix
    kKpGpio2 = 0x1e, // COL7..COL0
    kKpGpio3 = 0x1f, // COL9..COL8
};

constexpr int kKeIen = 0x01;
// Without it the output stays low while events wait, and there would be no edge for the next one.
constexpr int kIntCfg = 0x10;

constexpr int kAllInterrupts = 0x1f;

constexpr unsigned kMostRows = 8;
constexpr unsigned kMostColumns = 10;

// In total longer than 35 ms, the SMBus timeout after which a device releases a stuck bus.
constexpr int kTries = 10;
constexpr uint64_t kPauseUs = 5000;

constexpr int kPressed = 0x80;
constexpr int kKeyNumber = 0x7f;

constexpr int mask(unsigned lines)
{
    return static_cast<int>((1U << lines) - 1);
}

// The first non-negative result of `access`, or its last one.
template <class Access>
int retried(Access access)
{
    int result = access();
    for (int tries = 1; result < 0 && tries < kTries; ++tries) {
        hw_delay_us(kPauseUs);
        result = access();
    }
    return result;
}

} // namespace

int tca8418_configure(int fd, unsigned rows, unsigned cols)
{
    if (rows < 1 || rows > kMostRows || cols < 1 || cols > kMostColumns) {
        return -1;
    }
    const struct {
        int reg;
        int value;
    } settings[] = {
        {kKpGpio1, mask(rows)},
        {kKpGpio2, mask(cols) & 0xff},
        {kKpGpio3, mask(cols) >> 8},
        {kCfg, kIntCfg | kKeIen},
    };
    for (const auto& setting : settings) {
        if (wiringPiI2CWriteReg8(fd, setting.reg, setting.value) < 0) {
            return -1;
        }
    }
    return 0;
}

int tca8418_irq_handler(int fd, int, int* row, int* col, int* state)
{
    if (fd < 0) {
        return -1;
    }
    const int event = retried([fd] { return wiringPiI2CReadReg8(fd, kKeyEventA); });
    // All causes: a remaining one would keep the output low, with no further edge to trigger a call.
    const int cleared = retried([fd] { return wiringPiI2CWriteReg8(fd, kIntStat, kAllInterrupts); });
    if (event < 0 || cleared < 0) {
        return -1;
    }
    const int key = (event & kKeyNumber) - 1; // the data sheet numbers keys from 1, ten per row
    if (key < 0 || key >= static_cast<int>(kMostRows * kMostColumns)) {
        return -1;
    }
    *row = key / static_cast<int>(kMostColumns);
    *col = key % static_cast<int>(kMostColumns);
    *state = event & kPressed;
    return 0;
}
