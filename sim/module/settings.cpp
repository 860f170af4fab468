#include "settings.h"

namespace sim_module {

Settings::Settings(const ModelLimits& limits) : m_limits(limits), m_values(settings_table().size())
{
    reset();
}

void Settings::reset()
{
    for (size_t i = 0; i < m_values.size(); ++i) {
        m_values[i] = {settings_table()[i].initial, {}};
    }
}

Range Settings::resolve(Range range) const
{
    if (range.minimum == kModelMinimum) {
        range.minimum = m_limits.lowest_power;
    }
    if (range.maximum == kModelMaximum) {
        range.maximum = m_limits.highest_frequency;
    }
    return range;
}

} // namespace sim_module
