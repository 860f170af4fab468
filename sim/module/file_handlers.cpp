#include <cstddef>
#include <cstdint>
#include <string>

#include "handlers.h"
#include "scpi/scpi.h"
#include "table_parameters.h"

namespace sim_module {

scpi_result_t catalog_files(scpi_t* context)
{
    const auto names = instrument_of(context).store().catalog(table_kind(context));
    for (const std::string& name : names) {
        SCPI_ResultText(context, name.c_str());
    }
    if (names.empty()) {
        SCPI_ResultText(context, "");
    }
    return SCPI_RES_OK;
}

scpi_result_t store_file(scpi_t* context)
{
    return with_name(context, [](DataStore& store, TableKind kind, const std::string& name) {
        return store.store(kind, name);
    });
}

scpi_result_t load_file(scpi_t* context)
{
    return with_name(context, [](DataStore& store, TableKind kind, const std::string& name) {
        return store.load(kind, name);
    });
}

scpi_result_t delete_file(scpi_t* context)
{
    return with_name(context, [](DataStore& store, TableKind kind, const std::string& name) {
        return store.remove_file(kind, name);
    });
}

scpi_result_t delete_file_of_any_kind(scpi_t* context)
{
    return with_name(context, [](DataStore& store, TableKind, const std::string& name) {
        return store.remove_files(name);
    });
}

scpi_result_t delete_all_files(scpi_t* context)
{
    return without_parameters(context, [context] { instrument_of(context).store().remove_all_files(); });
}

scpi_result_t query_file_size(scpi_t* context)
{
    size_t bytes = 0;
    const scpi_result_t result =
        with_name(context, [&bytes](DataStore& store, TableKind, const std::string& name) {
            return store.size(name, bytes);
        });
    if (result == SCPI_RES_OK) {
        SCPI_ResultUInt64(context, static_cast<uint64_t>(bytes));
    }
    return result;
}

} // namespace sim_module
