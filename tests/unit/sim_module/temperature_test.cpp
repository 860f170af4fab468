#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "module/temperature.h"

using sim_module::Temperature;
using std::chrono::seconds;

namespace {

constexpr int kDay = 24 * 60 * 60;

std::vector<double> day_of(const Temperature& temperature)
{
    std::vector<double> readings;
    for (int second = 0; second <= kDay; second += 10) {
        readings.push_back(temperature.read_at(seconds(second)));
    }
    return readings;
}

} // namespace

TEST(ModuleTemperature, TheSameSeedMakesTheSameDrift)
{
    for (const uint64_t seed : {UINT64_C(0), UINT64_C(1), UINT64_MAX}) {
        EXPECT_EQ(day_of(Temperature(42, seed)), day_of(Temperature(42, seed))) << seed;
    }
}

TEST(ModuleTemperature, TheDriftOfASeedIsTheSameOnEveryMachine)
{
    const Temperature temperature(42, 1);
    EXPECT_EQ(temperature.read_at(seconds(0)), 42.08);
    EXPECT_EQ(temperature.read_at(seconds(600)), 42.93);
    EXPECT_EQ(temperature.read_at(seconds(36000)), 42.15);
}

TEST(ModuleTemperature, EachChannelDriftsIndependently)
{
    for (uint64_t seed = 1; seed <= 4; ++seed) {
        for (uint64_t other = 1; other < seed; ++other) {
            EXPECT_NE(day_of(Temperature(42, seed)), day_of(Temperature(42, other))) << seed << other;
        }
    }
}

TEST(ModuleTemperature, TheDriftStaysAroundTheBaseAndUsesItsSwing)
{
    for (const double base : {42.0, -20.0, 64.0}) {
        for (uint64_t seed = 0; seed < 20; ++seed) {
            const std::vector<double> readings = day_of(Temperature(base, seed));
            const auto [lowest, highest] = std::minmax_element(readings.begin(), readings.end());
            EXPECT_GE(*lowest, base - Temperature::kSwing) << seed;
            EXPECT_LE(*highest, base + Temperature::kSwing) << seed;
            EXPECT_LT(*lowest, base - Temperature::kSwing / 2) << seed;
            EXPECT_GT(*highest, base + Temperature::kSwing / 2) << seed;
        }
    }
}

TEST(ModuleTemperature, TheDriftIsSlow)
{
    for (uint64_t seed = 0; seed < 20; ++seed) {
        const std::vector<double> readings = day_of(Temperature(42, seed));
        for (size_t i = 1; i < readings.size(); ++i) {
            // A tenth of a degree in 10 seconds, plus rounding.
            ASSERT_LE(std::abs(readings[i] - readings[i - 1]), 0.1 + 0.01) << seed;
        }
    }
}

TEST(ModuleTemperature, AReadingHasTwoDecimals)
{
    for (const double reading : day_of(Temperature(42, 7))) {
        EXPECT_NEAR(reading * 100, std::round(reading * 100), 1e-6);
    }
}

TEST(ModuleTemperature, AHeldValueLastsUntilItIsReleased)
{
    Temperature temperature(42, 3);
    const double before = temperature.read_at(seconds(100));
    EXPECT_FALSE(temperature.is_held());
    temperature.hold(71.5);
    EXPECT_TRUE(temperature.is_held());
    EXPECT_EQ(temperature.read_at(seconds(0)), 71.5);
    EXPECT_EQ(temperature.read_at(seconds(kDay)), 71.5);
    EXPECT_EQ(temperature.read(), 71.5);
    temperature.hold(-5.126);
    EXPECT_EQ(temperature.read_at(seconds(100)), -5.126) << "as it was set";
    temperature.release();
    EXPECT_FALSE(temperature.is_held());
    EXPECT_EQ(temperature.read_at(seconds(100)), before) << "the drift has continued unseen";
}
