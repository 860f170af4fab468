#include "settings.h"

namespace sim_module {

Settings::Settings(double highest_frequency)
    : m_highest_frequency(highest_frequency), m_values(settings_table().size())
{
    reset();
}

void Settings::reset()
{
    for (std::size_t i = 0; i < m_values.size(); ++i) {
        m_values[i] = {settings_table()[i].initial, {}};
    }
}

Range Settings::resolve(Range range) const
{
    if (range.maximum == kModelMaximum) {
        range.maximum = m_highest_frequency;
    }
    return range;
}

} // namespace sim_module
