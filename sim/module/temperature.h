/** The module's temperature: a slow drift around its base, or what a test has set. */
#ifndef ORVAN_SIM_MODULE_TEMPERATURE_H
#define ORVAN_SIM_MODULE_TEMPERATURE_H

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

namespace sim_module {

class Temperature {
public:
    static constexpr double kLowest = -273.15;
    static constexpr double kHighest = 1000;
    static constexpr double kDefaultBase = 42.0;
    /** The drift stays within this many degrees of the base. */
    static constexpr double kSwing = 1.5;

    /** @param seed the same seed gives the same drift, from construction on */
    explicit Temperature(double base = kDefaultBase, uint64_t seed = 0);

    /** Degrees Celsius: the drift, rounded to hundredths, or the held value. */
    double read() const { return read_at(std::chrono::steady_clock::now() - m_start); }

    /** What `read` returns that long after construction. */
    double read_at(std::chrono::duration<double> age) const;

    /** Holds the temperature at that value until `release`; the drift continues in the background. */
    void hold(double celsius) { m_held = celsius; }
    void release() { m_held.reset(); }
    bool is_held() const { return m_held.has_value(); }

private:
    struct Wave {
        double share; // of the swing
        double period;
        double phase; // in periods
    };

    double m_base;
    std::array<Wave, 3> m_waves; // the shares add up to 1
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::optional<double> m_held{};
};

} // namespace sim_module

#endif
