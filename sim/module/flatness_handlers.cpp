#include <cstddef>
#include <cstdint>
#include <map>

#include "handlers.h"
#include "scpi/scpi.h"
#include "table_parameters.h"

namespace sim_module {

namespace {

constexpr TableKind kKind = TableKind::kUserCorrection;

DataStore::Table& pairs_of(scpi_t* context)
{
    return instrument_of(context).store().table(kKind);
}

/** Sorted by frequency; of two with the same frequency the later one. */
DataStore::Table in_order(const DataStore::Table& pairs)
{
    std::map<double, double> by_frequency;
    for (size_t i = 0; i < pairs.size(); i += 2) {
        by_frequency[pairs[i]] = pairs[i + 1];
    }
    DataStore::Table sorted;
    sorted.reserve(2 * by_frequency.size());
    for (const auto& [frequency, correction] : by_frequency) {
        sorted.push_back(frequency);
        sorted.push_back(correction);
    }
    return sorted;
}

} // namespace

scpi_result_t set_flatness_pair(scpi_t* context)
{
    DataStore::Table pairs = pairs_of(context);
    if (!read_row(context, kKind, pairs) || !end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    pairs = in_order(pairs);
    if (pairs.size() > 2 * table_shape(kKind).max_rows) {
        return finish(context, SCPI_ERROR_TOO_MUCH_DATA);
    }
    pairs_of(context) = std::move(pairs);
    return SCPI_RES_OK;
}

scpi_result_t query_flatness_pair(scpi_t* context)
{
    const DataStore::Table& pairs = pairs_of(context);
    uint32_t number = static_cast<uint32_t>(pairs.size() / 2);
    if (!SCPI_ParamUInt32(context, &number, false)) {
        if (SCPI_ParamErrorOccurred(context)) {
            return SCPI_RES_ERR;
        }
        number = static_cast<uint32_t>(pairs.size() / 2);
    }
    if (!end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    if (number < 1 || number > pairs.size() / 2) {
        return finish(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
    }
    result_quantity(context, pairs[2 * (number - 1)]);
    result_quantity(context, pairs[2 * (number - 1) + 1]);
    return SCPI_RES_OK;
}

scpi_result_t set_flatness_points(scpi_t* context)
{
    uint32_t count = 0;
    if (!SCPI_ParamUInt32(context, &count, true) || !end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    DataStore::Table& pairs = pairs_of(context);
    if (count > pairs.size() / 2) {
        return finish(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
    }
    pairs.resize(2 * count);
    return SCPI_RES_OK;
}

scpi_result_t query_flatness_points(scpi_t* context)
{
    SCPI_ResultUInt64(context, instrument_of(context).store().rows(kKind));
    return SCPI_RES_OK;
}

scpi_result_t set_flatness_data(scpi_t* context)
{
    DataStore::Table pairs;
    if (!read_rows(context, kKind, pairs)) {
        return SCPI_RES_ERR;
    }
    pairs_of(context) = in_order(pairs);
    return SCPI_RES_OK;
}

scpi_result_t preset_flatness(scpi_t* context)
{
    return without_parameters(context, [context] { pairs_of(context).clear(); });
}

} // namespace sim_module
