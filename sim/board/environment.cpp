#include "board/environment.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace sim_board {
namespace {

constexpr unsigned kFastestClock = 10000;

const BoardWiring* wiring_of(const char* name)
{
    if (const BoardWiring* const wiring = find_wiring(name)) {
        return wiring;
    }
    std::fprintf(stderr, "sim_board: ORVAN_BOARD=%s is none of benchtop, portable, ksr7000\n", name);
    return &kPortableWiring;
}

unsigned clock_rate_of(const char* text)
{
    unsigned rate = 0;
    const char* const end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, rate);
    if (error == std::errc() && stop == end && rate >= 1 && rate <= kFastestClock) {
        return rate;
    }
    std::fprintf(stderr, "sim_board: ORVAN_BOARD_CLOCK_RATE=%s is no number from 1 to %u\n", text,
                 kFastestClock);
    return 1;
}

} // namespace

BoardEnvironment board_environment()
{
    BoardEnvironment result;
    if (const char* const name = std::getenv("ORVAN_BOARD"); name != nullptr) {
        result.wiring = wiring_of(name);
    }
    if (const char* const image = std::getenv("ORVAN_BOARD_EEPROM"); image != nullptr) {
        result.eeprom_image = image;
    }
    if (const char* const rate = std::getenv("ORVAN_BOARD_CLOCK_RATE"); rate != nullptr) {
        result.clock_rate = clock_rate_of(rate);
    }
    result.start_up = std::getenv("ORVAN_BOARD_START_UP") != nullptr;
    if (const char* const verbs = std::getenv("ORVAN_BOARD_AT_POWER_ON"); verbs != nullptr) {
        result.at_power_on = verbs;
    }
    if (const char* const path = std::getenv("ORVAN_BOARD_CONTROL"); path != nullptr) {
        result.control_path = path;
    }
    if (const char* const path = std::getenv("ORVAN_BOARD_MODULE_POWER"); path != nullptr) {
        result.module_power_path = path;
    }
    return result;
}

} // namespace sim_board
