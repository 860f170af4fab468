#include "board/wiring.h"

namespace sim_board {
namespace {

constexpr std::string_view kNode = "/dev/spidev0.1";
constexpr std::string_view kNodes[] = {"/dev/spidev0.0", "/dev/spidev0.1"};

constexpr int kExpanderReset = 26;

// Pin 11 enables the multiplexer, pins 7, 21 and 6 are its address lines.
constexpr PinLevel kMultiplexer4[] = {{11, 0}, {7, 0}, {21, 0}, {6, 1}};
constexpr PinLevel kMultiplexer5[] = {{11, 0}, {7, 1}, {21, 0}, {6, 1}};
constexpr SpiTargetWiring kMultiplexed[] = {
    {"fan", 4, kNode, kMultiplexer4},
    {"eeprom", 5, kNode, kMultiplexer5},
};

// Without a multiplexer pin 16 is the chip's own select, and pin 27 enables the bus.
constexpr PinLevel kPortableEeprom[] = {{27, 1}, {16, 0}};
constexpr SpiTargetWiring kPortableTargets[] = {
    {"eeprom", 5, kNode, kPortableEeprom},
};

// The benchtop's interrupt is armed on port B 0x20 against a compare value of 1, so that line rests high.
constexpr ExpanderWiring kBenchtopExpanders[] = {
    {0x20, 0x00, 0x20},
    {0x24, 0x00, 0x00},
};
constexpr ExpanderWiring kKsr7000Expanders[] = {
    {0x20, 0x00, 0x00},
    {0x24, 0x00, 0x00},
};
constexpr ExpanderWiring kPortableExpanders[] = {
    {0x20, 0x00, 0x00},
};

// INTB is active low, and the power button is awaited as a rising edge of pin 2.
constexpr InterruptWiring kPowerButton[] = {
    {0x20, Mcp23017::kB, 2, true},
};

constexpr int kKeypadInterrupt[] = {15, kExpanderReset};
constexpr int kPortableIdleHigh[] = {22, kExpanderReset};

} // namespace

constinit const BoardWiring kBenchtopWiring{
    "benchtop", kNodes, kMultiplexed, kBenchtopExpanders, kPowerButton, kKeypadInterrupt, kExpanderReset,
};

constinit const BoardWiring kPortableWiring{
    "portable", kNodes, kPortableTargets, kPortableExpanders, {}, kPortableIdleHigh, kExpanderReset,
};

constinit const BoardWiring kKsr7000Wiring{
    "ksr7000", kNodes, kMultiplexed, kKsr7000Expanders, kPowerButton, kKeypadInterrupt, kExpanderReset,
};

} // namespace sim_board
