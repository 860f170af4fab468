/** The present value of every setting. */
#ifndef ORVAN_SIM_MODULE_SETTINGS_H
#define ORVAN_SIM_MODULE_SETTINGS_H

#include <cstddef>
#include <string>
#include <vector>

#include "model.h"
#include "settings_table.h"

namespace sim_module {

class Settings {
public:
    /** Longest text value in characters. */
    static constexpr size_t kMaxText = 31;

    /** @param limits values for kModelMaximum and kModelMinimum */
    explicit Settings(const ModelLimits& limits);

    /** Every value as after "*RST". */
    void reset();

    /** The range with the model's own limits. */
    Range resolve(Range range) const;

    /** Value of a number, an integer, a boolean (1 or 0) or a choice (its tag). */
    double number(size_t index) const { return m_values[index].number; }
    void set_number(size_t index, double value) { m_values[index].number = value; }

    const std::string& text(size_t index) const { return m_values[index].text; }
    void set_text(size_t index, std::string value) { m_values[index].text = std::move(value); }

private:
    struct Value {
        double number = 0;
        std::string text;
    };

    ModelLimits m_limits;
    std::vector<Value> m_values; // index: row of the settings table
};

} // namespace sim_module

#endif
