#include <cstddef>

#include "handlers.h"
#include "instrument.h"
#include "parameters.h"
#include "scpi/scpi.h"

namespace sim_module {

scpi_result_t take_image(scpi_t* context)
{
    const char* data = nullptr;
    size_t size = 0;
    if (!SCPI_ParamArbitraryBlock(context, &data, &size, true) || !end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    if (size == 0) {
        SCPI_ErrorPush(context, SCPI_ERROR_INVALID_BLOCK_DATA);
        return SCPI_RES_ERR;
    }
    const auto kind = static_cast<ImageKind>(SCPI_CmdTag(context));
    if (!instrument_of(context).take_image(kind, {data, size})) {
        SCPI_ErrorPush(context, SCPI_ERROR_MASS_STORAGE);
        return SCPI_RES_ERR;
    }
    return SCPI_RES_OK;
}

scpi_result_t restart(scpi_t* context)
{
    return without_parameters(context, [context] { instrument_of(context).restart(); });
}

} // namespace sim_module
