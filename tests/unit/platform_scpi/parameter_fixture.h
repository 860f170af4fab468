/**
 * Reads the next parameter of a command, for the tests of all readers.
 */
#ifndef TESTS_UNIT_PLATFORM_SCPI_PARAMETER_FIXTURE_H
#define TESTS_UNIT_PLATFORM_SCPI_PARAMETER_FIXTURE_H

#include <string>

#include "data_fixture.h"

inline constexpr scpi_choice_def_t kNumbered[] = {
    {"CH1", 1}, {"CH2", 2}, {"1", 1}, {"2", 2}, {"NONE", 0}, {"0", 0}, {nullptr, -1},
};

struct Parameter : ScpiData {
    scpi_parameter_t element{};

    bool next(bool mandatory = true) { return SCPI_Parameter(&context, &element, mandatory); }
    std::string text() const { return {element.ptr, element.len}; }
};

/** A text that is not such a parameter, and the error it causes. */
struct Mistake {
    const char* text;
    int error;
};

#endif
