/**
 * The row handlers of the command table. Each runs inside SCPI_Input and returns SCPI_RES_OK or
 * SCPI_RES_ERR; an error is queued before SCPI_RES_ERR is returned.
 */
#ifndef ORVAN_SDK_SCPI_CMD_ORVANX_H
#define ORVAN_SDK_SCPI_CMD_ORVANX_H

#include <scpi/types.h>

/**
 * Handler of every forwarded row: adds the sub-command to the open run, and sends the run to the selected
 * channel's module when the next sub-command of the line is not forwarded.
 *
 * The module's reply becomes a result, also when it holds "-ERR": a module that fails or refuses is no
 * failure of this handler. Errors of its own:
 *  - -230 no module service in the user record
 *  - -310 no memory for the run
 *  - -223 the run does not fit, has more than 64 sub-commands, or its result was not taken
 * All but the last lose the run: none of its sub-commands reaches the module.
 */
scpi_result_t OrvanX_cmdBypass(scpi_t* context);

#endif
