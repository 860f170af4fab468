#include "temperature.h"

#include <cmath>
#include <numbers>
#include <random>

namespace sim_module {

namespace {

// Seconds; without a small common multiple, so that the sum does not look like one wave.
constexpr double kPeriods[] = {611, 1607, 4201};
constexpr double kShares[] = {0.3, 0.3, 0.4};

} // namespace

Temperature::Temperature(double base, uint64_t seed) : m_base(base), m_waves()
{
    // The standard defines the generator's output, but not that of the distributions.
    std::mt19937_64 generator(seed);
    const auto fraction = [&generator] { return static_cast<double>(generator() >> 11) * 0x1p-53; };
    for (size_t i = 0; i < m_waves.size(); ++i) {
        m_waves[i].share = kShares[i];
        m_waves[i].period = kPeriods[i] * (0.8 + 0.4 * fraction());
        m_waves[i].phase = fraction();
    }
}

double Temperature::read_at(std::chrono::duration<double> age) const
{
    if (m_held) {
        return *m_held;
    }
    double celsius = m_base;
    for (const Wave& wave : m_waves) {
        celsius +=
            kSwing * wave.share * std::sin(2 * std::numbers::pi * (age.count() / wave.period + wave.phase));
    }
    return std::round(celsius * 100) / 100;
}

} // namespace sim_module
