#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "handlers.h"
#include "instrument.h"
#include "parameters.h"
#include "scpi/scpi.h"
#include "table_parameters.h"

namespace sim_module {

scpi_result_t define_table(scpi_t* context)
{
    return with_name(context, [](DataStore& store, TableKind kind, const std::string& name) {
        return store.define(kind, name);
    });
}

scpi_result_t query_defined_table(scpi_t* context)
{
    SCPI_ResultText(context, instrument_of(context).store().selected(table_kind(context)).c_str());
    return SCPI_RES_OK;
}

scpi_result_t set_table_data(scpi_t* context)
{
    const TableKind kind = table_kind(context);
    DataStore::Table rows;
    if (!read_rows(context, kind, rows)) {
        return SCPI_RES_ERR;
    }
    instrument_of(context).store().table(kind) = std::move(rows);
    return SCPI_RES_OK;
}

scpi_result_t delete_table(scpi_t* context)
{
    return with_name(context, [](DataStore& store, TableKind kind, const std::string& name) {
        return store.erase(kind, name);
    });
}

scpi_result_t delete_all_tables(scpi_t* context)
{
    return without_parameters(context,
                              [context] { instrument_of(context).store().erase_all(table_kind(context)); });
}

scpi_result_t reverse_list(scpi_t* context)
{
    if (!end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    DataStore::Table& rows = instrument_of(context).store().table(TableKind::kList);
    const size_t columns = table_shape(TableKind::kList).columns.size();
    // Reversing the values reverses the rows and their columns; the second step restores the columns.
    std::reverse(rows.begin(), rows.end());
    for (auto row = rows.begin(); row != rows.end(); row += static_cast<std::ptrdiff_t>(columns)) {
        std::reverse(row, row + static_cast<std::ptrdiff_t>(columns));
    }
    return SCPI_RES_OK;
}

} // namespace sim_module
