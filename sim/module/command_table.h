/** The module's SCPI language: the settings of the settings table and the commands that act. */
#ifndef ORVAN_SIM_MODULE_COMMAND_TABLE_H
#define ORVAN_SIM_MODULE_COMMAND_TABLE_H

#include "scpi/types.h"

namespace sim_module {

/** Ends with a row whose pattern is null. The same table on every call. */
const scpi_command_t* command_table();

} // namespace sim_module

#endif
