#include "data_tables.h"

namespace sim_module {

namespace {

// clang-format off
constexpr Range kListColumns[] = {
    kFrequencyRange,
    kPowerRange,
    kStepTimeRange,                     // dwell time
};

constexpr Range kPatternColumns[] = {
    {SCPI_UNIT_SECOND,  100e-9, 10},    // on
    {SCPI_UNIT_SECOND,  100e-9, 10},    // off
};

constexpr Range kUserCorrectionColumns[] = {
    kFrequencyRange,
    {SCPI_UNIT_DECIBEL, -40,    40},    // correction
};
// clang-format on

constexpr TableShape kShapes[] = {
    {kListColumns, kMaxListRows},
    {kPatternColumns, 2048},
    {kUserCorrectionColumns, 1601},
};

} // namespace

const TableShape& table_shape(TableKind kind)
{
    return kShapes[static_cast<size_t>(kind)];
}

} // namespace sim_module
