/** Helpers for the handlers of tabular data. */
#ifndef ORVAN_SIM_MODULE_TABLE_PARAMETERS_H
#define ORVAN_SIM_MODULE_TABLE_PARAMETERS_H

#include <string>

#include "data_store.h"
#include "instrument.h"
#include "parameters.h"
#include "scpi/scpi.h"

namespace sim_module {

/** The command's tag as a TableKind. */
inline TableKind table_kind(scpi_t* context)
{
    return static_cast<TableKind>(SCPI_CmdTag(context));
}

/**
 * Reads the next parameters as one row of the kind's columns, which is appended to `rows`. An error is queued
 * when the result is false: as by read_quantity, or -109 for an incomplete row, whose beginning stays in
 * `rows`.
 */
bool read_row(scpi_t* context, TableKind kind, DataStore::Table& rows);

/**
 * Reads all parameters as rows of the kind's columns. An error is queued when the result is false: as by
 * read_row, or -223 for more rows than the kind may have.
 */
bool read_rows(scpi_t* context, TableKind kind, DataStore::Table& rows);

/** Ends a handler with the result of a store operation; an error is queued. */
inline scpi_result_t finish(scpi_t* context, int error)
{
    if (error == 0) {
        return SCPI_RES_OK;
    }
    SCPI_ErrorPush(context, error);
    return SCPI_RES_ERR;
}

/** A handler whose one parameter is a name: `operation(store, kind, name)` returns 0 or an error. */
template <typename Operation>
scpi_result_t with_name(scpi_t* context, Operation operation)
{
    std::string name;
    if (!read_text(context, name, DataStore::kMaxName) || !end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    return finish(context, operation(instrument_of(context).store(), table_kind(context), name));
}

} // namespace sim_module

#endif
