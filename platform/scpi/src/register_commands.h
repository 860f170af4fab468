/**
 * Helpers shared by the register commands.
 */
#ifndef SCPI_SRC_REGISTER_COMMANDS_H
#define SCPI_SRC_REGISTER_COMMANDS_H

#include "scpi/types.h"

namespace scpi {

/** Sets the register from the next parameter, 0 to `max`. */
scpi_result_t set_register(scpi_t* context, scpi_reg_name_t name, int32_t max);

scpi_result_t query_register(scpi_t* context, scpi_reg_name_t name);

/** Reading an event register clears it. */
scpi_result_t query_event_register(scpi_t* context, scpi_reg_name_t name);

} // namespace scpi

#endif
