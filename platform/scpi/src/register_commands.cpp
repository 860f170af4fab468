#include "register_commands.h"

#include "scpi/error.h"
#include "scpi/ieee488.h"
#include "scpi/parameter.h"
#include "scpi/result.h"

scpi_result_t scpi::set_register(scpi_t* context, scpi_reg_name_t name, int32_t max)
{
    int32_t value = 0;
    if (!SCPI_ParamInt32(context, &value, true)) {
        return SCPI_RES_ERR;
    }
    if (value < 0 || value > max) {
        SCPI_ErrorPush(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
        return SCPI_RES_ERR;
    }
    SCPI_RegSet(context, name, static_cast<scpi_reg_val_t>(value));
    return SCPI_RES_OK;
}

scpi_result_t scpi::query_register(scpi_t* context, scpi_reg_name_t name)
{
    return SCPI_ResultUInt16(context, SCPI_RegGet(context, name)) == 0 ? SCPI_RES_ERR : SCPI_RES_OK;
}

scpi_result_t scpi::query_event_register(scpi_t* context, scpi_reg_name_t name)
{
    const scpi_result_t result = query_register(context, name);
    SCPI_RegSet(context, name, 0);
    return result;
}
