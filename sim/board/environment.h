#ifndef ORVAN_SIM_BOARD_ENVIRONMENT_H
#define ORVAN_SIM_BOARD_ENVIRONMENT_H

#include <string>

#include "board/wiring.h"

namespace sim_board {

/**
 * What the environment tells of a process's first board; a virtual instrument's launcher sets it.
 *
 * - ORVAN_BOARD: benchtop, portable or ksr7000; portable when not set
 * - ORVAN_BOARD_EEPROM: image file of its EEPROM, which outlives the process; an erased chip when not set
 * - ORVAN_BOARD_CLOCK_RATE: 1 to 10000, how many times faster than the world's its clock runs; 1 when not
 * set
 * - ORVAN_BOARD_START_UP: when set, waits of ten seconds and more are shortened only after the verb
 * "serving", see Clock::start_up_begins
 * - ORVAN_BOARD_AT_POWER_ON: verbs of board_verbs.h, joined by ";", for a board that has faults from the
 * start
 * - ORVAN_BOARD_CONTROL: path of the control socket; none when not set
 * - ORVAN_BOARD_MODULE_POWER: path of a pipe that is told of the module power, see module_power.h; none when
 * not set
 *
 * A value that is none of these is told on standard error, and counts as not set.
 */
struct BoardEnvironment {
    const BoardWiring* wiring = &kPortableWiring;
    std::string eeprom_image;
    unsigned clock_rate = 1;
    bool start_up = false;
    std::string control_path;
    std::string module_power_path;
    std::string at_power_on;
};

BoardEnvironment board_environment();

} // namespace sim_board

#endif
