#include "scpi/units.h"

#include <cstring>

#include "chars.h"
#include "scpi/extensions.h"

const scpi_unit_def_t scpi_units_def[] = {
    {"PV", SCPI_UNIT_VOLT, 1e-12},    {"NV", SCPI_UNIT_VOLT, 1e-9},     {"UV", SCPI_UNIT_VOLT, 1e-6},
    {"MV", SCPI_UNIT_VOLT, 1e-3},     {"V", SCPI_UNIT_VOLT, 1},         {"KV", SCPI_UNIT_VOLT, 1e3},
    {"MAV", SCPI_UNIT_VOLT, 1e6},

    {"PA", SCPI_UNIT_AMPER, 1e-12},   {"NA", SCPI_UNIT_AMPER, 1e-9},    {"UA", SCPI_UNIT_AMPER, 1e-6},
    {"MA", SCPI_UNIT_AMPER, 1e-3},    {"A", SCPI_UNIT_AMPER, 1},        {"KA", SCPI_UNIT_AMPER, 1e3},
    {"MAA", SCPI_UNIT_AMPER, 1e6},

    {"UOHM", SCPI_UNIT_OHM, 1e-6},    {"OHM", SCPI_UNIT_OHM, 1},        {"KOHM", SCPI_UNIT_OHM, 1e3},
    {"MOHM", SCPI_UNIT_OHM, 1e6},     {"MAOHM", SCPI_UNIT_OHM, 1e6},    {"GOHM", SCPI_UNIT_OHM, 1e9},

    {"UHZ", SCPI_UNIT_HERTZ, 1e-6},   {"HZ", SCPI_UNIT_HERTZ, 1},       {"KHZ", SCPI_UNIT_HERTZ, 1e3},
    {"MHZ", SCPI_UNIT_HERTZ, 1e6},    {"MAHZ", SCPI_UNIT_HERTZ, 1e6},   {"GHZ", SCPI_UNIT_HERTZ, 1e9},
    {"THZ", SCPI_UNIT_HERTZ, 1e12},

    {"CEL", SCPI_UNIT_CELSIUS, 1},

    {"FS", SCPI_UNIT_SECOND, 1e-15},  {"PS", SCPI_UNIT_SECOND, 1e-12},  {"NS", SCPI_UNIT_SECOND, 1e-9},
    {"US", SCPI_UNIT_SECOND, 1e-6},   {"MS", SCPI_UNIT_SECOND, 1e-3},   {"S", SCPI_UNIT_SECOND, 1},
    {"KS", SCPI_UNIT_SECOND, 1e3},    {"MIN", SCPI_UNIT_SECOND, 60},    {"HR", SCPI_UNIT_SECOND, 3600},

    {"PW", SCPI_UNIT_WATT, 1e-12},    {"NW", SCPI_UNIT_WATT, 1e-9},     {"UW", SCPI_UNIT_WATT, 1e-6},
    {"MW", SCPI_UNIT_WATT, 1e-3},     {"W", SCPI_UNIT_WATT, 1},         {"KW", SCPI_UNIT_WATT, 1e3},
    {"MAW", SCPI_UNIT_WATT, 1e6},

    {"DBM", SCPI_UNIT_DBM, 1},        {"DBMW", SCPI_UNIT_DBM, 1},       {"DB", SCPI_UNIT_DECIBEL, 1},

    {"URAD", SCPI_UNIT_RADIAN, 1e-6}, {"MRAD", SCPI_UNIT_RADIAN, 1e-3}, {"RAD", SCPI_UNIT_RADIAN, 1},
    {"DEG", SCPI_UNIT_DEGREE, 1},

    {"PCT", SCPI_UNIT_PERCENT, 1},

    {nullptr, SCPI_UNIT_NONE, 0},
};

const scpi_unit_def_t* SCPI_FindUnit(const scpi_unit_def_t* units, const char* name, size_t len)
{
    if (units == nullptr) {
        return nullptr;
    }
    for (; units->name != nullptr; ++units) {
        if (scpi::equal_ignoring_case(units->name, std::strlen(units->name), name, len)) {
            return units;
        }
    }
    return nullptr;
}
