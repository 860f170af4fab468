/**
 * Handlers of the commands that every SCPI instrument has (SCPI-99 4.2.1).
 */
#ifndef SCPI_MINIMAL_H
#define SCPI_MINIMAL_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** ":SYSTem:VERSion?": "1999.0" (SCPI-99 21.21). */
scpi_result_t SCPI_SystemVersionQ(scpi_t* context);

/** ":SYSTem:ERRor[:NEXT]?": takes the oldest error of the queue; 0,"No error" if there is none. */
scpi_result_t SCPI_SystemErrorNextQ(scpi_t* context);

/** ":SYSTem:ERRor:COUNt?" */
scpi_result_t SCPI_SystemErrorCountQ(scpi_t* context);

/* ":STATus" (SCPI-99 20). Reading an event register clears it. The enables take 0 to 65535, -222 past it,
 * and drop bit 15. */

scpi_result_t SCPI_StatusQuestionableEventQ(scpi_t* context);
scpi_result_t SCPI_StatusQuestionableConditionQ(scpi_t* context);
scpi_result_t SCPI_StatusQuestionableEnableQ(scpi_t* context);
scpi_result_t SCPI_StatusQuestionableEnable(scpi_t* context);
scpi_result_t SCPI_StatusOperationEventQ(scpi_t* context);
scpi_result_t SCPI_StatusOperationConditionQ(scpi_t* context);
scpi_result_t SCPI_StatusOperationEnableQ(scpi_t* context);
scpi_result_t SCPI_StatusOperationEnable(scpi_t* context);

/** ":STATus:PRESet": both enables become 0; events and conditions stay (SCPI-99 20.7). */
scpi_result_t SCPI_StatusPreset(scpi_t* context);

#ifdef __cplusplus
}
#endif

#endif
