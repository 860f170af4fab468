/** Parameters and results of the module's commands. */
#ifndef ORVAN_SIM_MODULE_PARAMETERS_H
#define ORVAN_SIM_MODULE_PARAMETERS_H

#include <cstddef>
#include <string>

#include "scpi/types.h"
#include "settings_table.h"

namespace sim_module {

/**
 * Reads the next parameter as a quantity in the range's unit.
 *
 * MINimum, MAXimum and DEFault mean the limits and `initial`. Radians and degrees are converted. An error is
 * queued when the result is false: -131 for a suffix of another unit, -222 outside the range, -224 for
 * another mnemonic, or as by SCPI_ParamNumber.
 */
bool read_quantity(scpi_t* context, const Range& range, double initial, double& value);

/**
 * The shortest decimal text that keeps 15 digits: "1000000000", "0.005", "1.0E-06" (NR1, NR2 and NR3 of
 * IEEE 488.2 8.7.2 to 8.7.4).
 */
std::string quantity_text(double value);

/** Reads the next parameter as a name or text of at most `max_length` characters, quoted or not. */
bool read_text(scpi_t* context, std::string& text, size_t max_length);

/** Writes the quantity as a result. */
void result_quantity(scpi_t* context, double value);

/**
 * True when the command has no parameters left; otherwise -108 is queued. A handler calls it before its first
 * change, since the parser itself would notice too late.
 */
bool end_of_parameters(scpi_t* context);

/** A handler without parameters: `action()` is called if there are none. */
template <typename Action>
scpi_result_t without_parameters(scpi_t* context, Action action)
{
    if (!end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    action();
    return SCPI_RES_OK;
}

} // namespace sim_module

#endif
