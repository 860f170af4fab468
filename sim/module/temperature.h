/** The module's temperature: a slow drift around its working point, or what a test has set. */
#pragma once

#include <chrono>
#include <cmath>
#include <numbers>
#include <optional>

namespace sim_module {

class Temperature {
public:
    /** Degrees Celsius, to the hundredth. */
    double read() const { return std::round(m_fixed.value_or(drift()) * 100) / 100; }

    /** Holds the temperature at that value until `release`. */
    void hold(double celsius) { m_fixed = celsius; }
    void release() { m_fixed.reset(); }

private:
    static constexpr double kWorkingPoint = 42.0;
    static constexpr double kSwing = 1.5;
    static constexpr std::chrono::duration<double> kPeriod{600.0};

    double drift() const
    {
        const std::chrono::duration<double> age = std::chrono::steady_clock::now() - m_start;
        return kWorkingPoint + kSwing * std::sin(2 * std::numbers::pi * (age / kPeriod));
    }

    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::optional<double> m_fixed;
};

} // namespace sim_module
