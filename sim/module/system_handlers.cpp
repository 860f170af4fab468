#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "handlers.h"
#include "instrument.h"
#include "parameters.h"
#include "scpi/scpi.h"
#include "settings_table.h"

namespace sim_module {

namespace {

scpi_result_t result_text(scpi_t* context, const std::string& text)
{
    SCPI_ResultCharacters(context, text.data(), text.size());
    return SCPI_RES_OK;
}

bool is_date(const std::array<int32_t, 6>& f)
{
    const std::chrono::year_month_day date{std::chrono::year(f[0]),
                                           std::chrono::month(static_cast<unsigned>(f[1])),
                                           std::chrono::day(static_cast<unsigned>(f[2]))};
    const auto within = [](int32_t value, int32_t last) { return value >= 0 && value <= last; };
    return f[0] >= 1970 && f[0] <= 9999 && within(f[1], 12) && within(f[2], 31) && date.ok() &&
           within(f[3], 23) && within(f[4], 59) && within(f[5], 59);
}

} // namespace

scpi_result_t set_clock(scpi_t* context)
{
    std::array<int32_t, 6> fields{};
    for (int32_t& field : fields) {
        if (!SCPI_ParamInt32(context, &field, true)) {
            return SCPI_RES_ERR;
        }
    }
    if (!end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    if (!is_date(fields)) {
        SCPI_ErrorPush(context, SCPI_ERROR_DATA_OUT_OF_RANGE);
        return SCPI_RES_ERR;
    }
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", fields[0], fields[1], fields[2],
                  fields[3], fields[4], fields[5]);
    instrument_of(context).set_clock(text);
    return SCPI_RES_OK;
}

scpi_result_t query_temperature(scpi_t* context)
{
    result_quantity(context, instrument_of(context).temperature().read());
    return SCPI_RES_OK;
}

scpi_result_t trigger(scpi_t* context)
{
    static const size_t kSource = setting_index(":TRIGger:SOURce");
    Instrument& instrument = instrument_of(context);
    if (!end_of_parameters(context)) {
        return SCPI_RES_ERR;
    }
    if (instrument.settings().number(kSource) != kTriggerBus) {
        SCPI_ErrorPush(context, SCPI_ERROR_TRIGGER_IGNORED);
        return SCPI_RES_ERR;
    }
    instrument.trigger();
    return SCPI_RES_OK;
}

scpi_result_t self_test(scpi_t*)
{
    return SCPI_RES_OK;
}

template <std::string Identity::*field>
scpi_result_t query_identity(scpi_t* context)
{
    return result_text(context, instrument_of(context).identity().*field);
}

template scpi_result_t query_identity<&Identity::calibration_date>(scpi_t*);
template scpi_result_t query_identity<&Identity::model>(scpi_t*);
template scpi_result_t query_identity<&Identity::serial>(scpi_t*);
template scpi_result_t query_identity<&Identity::hardware>(scpi_t*);
template scpi_result_t query_identity<&Identity::fpga>(scpi_t*);
template scpi_result_t query_identity<&Identity::firmware>(scpi_t*);
template scpi_result_t query_identity<&Identity::rf_revision>(scpi_t*);
template scpi_result_t query_identity<&Identity::digital_revision>(scpi_t*);

} // namespace sim_module
