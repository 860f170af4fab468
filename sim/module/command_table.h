/** The module's SCPI language: the settings of the settings table and the commands that act. */
#pragma once

#include "scpi/types.h"

namespace sim_module {

/** Ends with a row whose pattern is null. The same table on every call. */
const scpi_command_t* command_table();

} // namespace sim_module
