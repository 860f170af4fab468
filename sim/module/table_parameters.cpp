#include "table_parameters.h"

namespace sim_module {

namespace {

bool at_end(scpi_t* context)
{
    const lex_state_t& lex = context->param_list.lex_state;
    const char* pos = lex.pos;
    while (pos != lex.buffer + lex.len && static_cast<unsigned char>(*pos) <= ' ') {
        ++pos;
    }
    return pos == lex.buffer + lex.len;
}

} // namespace

bool read_row(scpi_t* context, TableKind kind, DataStore::Table& rows)
{
    const Settings& settings = instrument_of(context).settings();
    for (const Range& column : table_shape(kind).columns) {
        const Range range = settings.resolve(column);
        double value;
        if (!read_quantity(context, range, range.minimum, value)) {
            return false;
        }
        rows.push_back(value);
    }
    return true;
}

bool read_rows(scpi_t* context, TableKind kind, DataStore::Table& rows)
{
    const TableShape& shape = table_shape(kind);
    do {
        if (rows.size() == shape.max_rows * shape.columns.size()) {
            SCPI_ErrorPush(context, SCPI_ERROR_TOO_MUCH_DATA);
            return false;
        }
        if (!read_row(context, kind, rows)) {
            return false;
        }
    } while (!at_end(context));
    return true;
}

} // namespace sim_module
