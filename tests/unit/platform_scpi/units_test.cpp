#include <cmath>
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "scpi/scpi.h"

namespace {

struct Row {
    const char* name;
    scpi_unit_t unit;
    double factor;
};

constexpr Row kRows[] = {
    {"PV", SCPI_UNIT_VOLT, 1e-12},    {"NV", SCPI_UNIT_VOLT, 1e-9},    {"UV", SCPI_UNIT_VOLT, 1e-6},
    {"MV", SCPI_UNIT_VOLT, 1e-3},     {"V", SCPI_UNIT_VOLT, 1},        {"KV", SCPI_UNIT_VOLT, 1e3},
    {"MAV", SCPI_UNIT_VOLT, 1e6},     {"PA", SCPI_UNIT_AMPER, 1e-12},  {"NA", SCPI_UNIT_AMPER, 1e-9},
    {"UA", SCPI_UNIT_AMPER, 1e-6},    {"MA", SCPI_UNIT_AMPER, 1e-3},   {"A", SCPI_UNIT_AMPER, 1},
    {"KA", SCPI_UNIT_AMPER, 1e3},     {"MAA", SCPI_UNIT_AMPER, 1e6},   {"UOHM", SCPI_UNIT_OHM, 1e-6},
    {"OHM", SCPI_UNIT_OHM, 1},        {"KOHM", SCPI_UNIT_OHM, 1e3},    {"MOHM", SCPI_UNIT_OHM, 1e6},
    {"MAOHM", SCPI_UNIT_OHM, 1e6},    {"GOHM", SCPI_UNIT_OHM, 1e9},    {"UHZ", SCPI_UNIT_HERTZ, 1e-6},
    {"HZ", SCPI_UNIT_HERTZ, 1},       {"KHZ", SCPI_UNIT_HERTZ, 1e3},   {"MHZ", SCPI_UNIT_HERTZ, 1e6},
    {"MAHZ", SCPI_UNIT_HERTZ, 1e6},   {"GHZ", SCPI_UNIT_HERTZ, 1e9},   {"THZ", SCPI_UNIT_HERTZ, 1e12},
    {"CEL", SCPI_UNIT_CELSIUS, 1},    {"FS", SCPI_UNIT_SECOND, 1e-15}, {"PS", SCPI_UNIT_SECOND, 1e-12},
    {"NS", SCPI_UNIT_SECOND, 1e-9},   {"US", SCPI_UNIT_SECOND, 1e-6},  {"MS", SCPI_UNIT_SECOND, 1e-3},
    {"S", SCPI_UNIT_SECOND, 1},       {"KS", SCPI_UNIT_SECOND, 1e3},   {"MIN", SCPI_UNIT_SECOND, 60},
    {"HR", SCPI_UNIT_SECOND, 3600},   {"PW", SCPI_UNIT_WATT, 1e-12},   {"NW", SCPI_UNIT_WATT, 1e-9},
    {"UW", SCPI_UNIT_WATT, 1e-6},     {"MW", SCPI_UNIT_WATT, 1e-3},    {"W", SCPI_UNIT_WATT, 1},
    {"KW", SCPI_UNIT_WATT, 1e3},      {"MAW", SCPI_UNIT_WATT, 1e6},    {"DBM", SCPI_UNIT_DBM, 1},
    {"DBMW", SCPI_UNIT_DBM, 1},       {"DB", SCPI_UNIT_DECIBEL, 1},    {"URAD", SCPI_UNIT_RADIAN, 1e-6},
    {"MRAD", SCPI_UNIT_RADIAN, 1e-3}, {"RAD", SCPI_UNIT_RADIAN, 1},    {"DEG", SCPI_UNIT_DEGREE, 1},
    {"PCT", SCPI_UNIT_PERCENT, 1},
};

const scpi_unit_def_t* find(const std::string& name)
{
    return SCPI_FindUnit(scpi_units_def, name.data(), name.size());
}

TEST(Units, HaveTheirUnitAndFactor)
{
    size_t count = 0;
    while (scpi_units_def[count].name != nullptr) {
        ++count;
    }
    EXPECT_EQ(count, std::size(kRows));
    for (const Row& row : kRows) {
        const scpi_unit_def_t* const found = find(row.name);
        ASSERT_NE(found, nullptr) << row.name;
        EXPECT_EQ(found->unit, row.unit) << row.name;
        EXPECT_EQ(found->mult, row.factor) << row.name;
    }
}

TEST(Units, HaveOneSpellingInCapitals)
{
    std::set<std::string> seen;
    for (const scpi_unit_def_t* unit = scpi_units_def; unit->name != nullptr; ++unit) {
        EXPECT_TRUE(seen.insert(unit->name).second) << unit->name;
        EXPECT_LE(std::strlen(unit->name), 12u);
        for (const char* p = unit->name; *p != '\0'; ++p) {
            EXPECT_TRUE(*p >= 'A' && *p <= 'Z') << unit->name;
        }
    }
}

TEST(Units, AreFoundInAnyCase)
{
    EXPECT_EQ(find("mhz"), find("MHZ"));
    EXPECT_EQ(find("dBm"), find("DBM"));
}

TEST(Units, WithMAreMegaForHertzAndOhmAndMilliForTheRest)
{
    EXPECT_EQ(find("MHZ")->mult, 1e6);
    EXPECT_EQ(find("MOHM")->mult, 1e6);
    for (const char* name : {"MV", "MA", "MS", "MW", "MRAD"}) {
        EXPECT_EQ(find(name)->mult, 1e-3) << name;
    }
}

TEST(Units, ThatAreUnknownAreNotFound)
{
    for (const char* name : {"", "X", "H", "HZZ", "KH", "M", "V ", "MHZ2"}) {
        EXPECT_EQ(find(name), nullptr) << name;
    }
    EXPECT_EQ(SCPI_FindUnit(nullptr, "V", 1), nullptr);
}

TEST(Units, AreComparedOverTheirLengthOnly)
{
    const scpi_unit_def_t* const found = SCPI_FindUnit(scpi_units_def, "HZX", 2);
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->name, "HZ");
}

} // namespace
