#include "scpi/minimal.h"

#include "register_commands.h"
#include "scpi/error.h"
#include "scpi/extensions.h"
#include "scpi/ieee488.h"
#include "scpi/result.h"

namespace {

/** Bit 15 may be sent and is dropped. */
constexpr int32_t kMaxEnable = 0xFFFF;

scpi_result_t written(size_t bytes)
{
    return bytes == 0 ? SCPI_RES_ERR : SCPI_RES_OK;
}

} // namespace

scpi_result_t SCPI_SystemVersionQ(scpi_t* context)
{
    return written(SCPI_ResultMnemonic(context, "1999.0"));
}

scpi_result_t SCPI_SystemErrorNextQ(scpi_t* context)
{
    scpi_error_t error;
    SCPI_ErrorPop(context, &error);
    const scpi_result_t result = written(SCPI_ResultError(context, &error));
    SCPI_ErrorFree(&error);
    return result;
}

scpi_result_t SCPI_SystemErrorCountQ(scpi_t* context)
{
    return written(SCPI_ResultInt32(context, SCPI_ErrorCount(context)));
}

scpi_result_t SCPI_StatusQuestionableEventQ(scpi_t* context)
{
    return scpi::query_event_register(context, SCPI_REG_QUES);
}

scpi_result_t SCPI_StatusQuestionableConditionQ(scpi_t* context)
{
    return scpi::query_register(context, SCPI_REG_QUESC);
}

scpi_result_t SCPI_StatusQuestionableEnableQ(scpi_t* context)
{
    return scpi::query_register(context, SCPI_REG_QUESE);
}

scpi_result_t SCPI_StatusQuestionableEnable(scpi_t* context)
{
    return scpi::set_register(context, SCPI_REG_QUESE, kMaxEnable);
}

scpi_result_t SCPI_StatusOperationEventQ(scpi_t* context)
{
    return scpi::query_event_register(context, SCPI_REG_OPER);
}

scpi_result_t SCPI_StatusOperationConditionQ(scpi_t* context)
{
    return scpi::query_register(context, SCPI_REG_OPERC);
}

scpi_result_t SCPI_StatusOperationEnableQ(scpi_t* context)
{
    return scpi::query_register(context, SCPI_REG_OPERE);
}

scpi_result_t SCPI_StatusOperationEnable(scpi_t* context)
{
    return scpi::set_register(context, SCPI_REG_OPERE, kMaxEnable);
}

scpi_result_t SCPI_StatusPreset(scpi_t* context)
{
    SCPI_RegSet(context, SCPI_REG_OPERE, 0);
    SCPI_RegSet(context, SCPI_REG_QUESE, 0);
    return SCPI_RES_OK;
}
