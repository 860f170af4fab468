#include "scpi/ieee488.h"

#include "register_commands.h"
#include "scpi/error.h"
#include "scpi/result.h"

scpi_result_t SCPI_CoreCls(scpi_t* context)
{
    SCPI_RegSet(context, SCPI_REG_ESR, 0);
    SCPI_RegSet(context, SCPI_REG_OPER, 0);
    SCPI_RegSet(context, SCPI_REG_QUES, 0);
    SCPI_ErrorClear(context);
    return SCPI_RES_OK;
}

scpi_result_t SCPI_CoreEse(scpi_t* context)
{
    return scpi::set_register(context, SCPI_REG_ESE, 255);
}

scpi_result_t SCPI_CoreEseQ(scpi_t* context)
{
    return scpi::query_register(context, SCPI_REG_ESE);
}

scpi_result_t SCPI_CoreEsrQ(scpi_t* context)
{
    return scpi::query_event_register(context, SCPI_REG_ESR);
}

scpi_result_t SCPI_CoreIdnQ(scpi_t* context)
{
    for (const char* text : context->idn) {
        const bool absent = text == nullptr || text[0] == '\0';
        if (SCPI_ResultMnemonic(context, absent ? "0" : text) == 0) {
            return SCPI_RES_ERR;
        }
    }
    return SCPI_RES_OK;
}

scpi_result_t SCPI_CoreOpc(scpi_t* context)
{
    SCPI_RegSetBits(context, SCPI_REG_ESR, ESR_OPC);
    return SCPI_RES_OK;
}

scpi_result_t SCPI_CoreOpcQ(scpi_t* context)
{
    return SCPI_ResultUInt8(context, 1) == 0 ? SCPI_RES_ERR : SCPI_RES_OK;
}

scpi_result_t SCPI_CoreWai(scpi_t*)
{
    return SCPI_RES_OK;
}

scpi_result_t SCPI_CoreRst(scpi_t* context)
{
    if (context->interface == nullptr || context->interface->reset == nullptr) {
        return SCPI_RES_OK;
    }
    return context->interface->reset(context);
}

scpi_result_t SCPI_CoreSre(scpi_t* context)
{
    return scpi::set_register(context, SCPI_REG_SRE, 255);
}

scpi_result_t SCPI_CoreSreQ(scpi_t* context)
{
    return scpi::query_register(context, SCPI_REG_SRE);
}

scpi_result_t SCPI_CoreStbQ(scpi_t* context)
{
    return scpi::query_register(context, SCPI_REG_STB);
}

scpi_result_t SCPI_CoreTstQ(scpi_t* context)
{
    return SCPI_ResultUInt8(context, 0) == 0 ? SCPI_RES_ERR : SCPI_RES_OK;
}
