#ifndef ORVAN_SIM_BOARD_ENVIRONMENT_H
#define ORVAN_SIM_BOARD_ENVIRONMENT_H

#include <string>

#include "board/wiring.h"

namespace sim_board {

/**
 * Environment variables for a process's first board; set by a virtual instrument's launcher.
 *
 * - ORVAN_BOARD: benchtop, portable or ksr7000; default portable
 * - ORVAN_BOARD_EEPROM: image file of its EEPROM; an erased chip when not set
 * - ORVAN_BOARD_CLOCK_RATE: 1 to 10000, how many times faster than real time its clock runs; default 1
 * - ORVAN_BOARD_START_UP: when set, waits of ten seconds and more are shortened only after the verb
 * "serving", see Clock::start_up_begins
 * - ORVAN_BOARD_AT_POWER_ON: verbs of board_verbs.h, joined by ";", for a board that has faults from the
 * start
 * - ORVAN_BOARD_CONTROL: path of the control socket; none when not set
 * - ORVAN_BOARD_MODULE_POWER: path of a pipe to which module power is reported, see module_power.h; none when
 * not set
 *
 * Any other value is reported on standard error and ignored.
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
