/**
 * The next parameter of a command, and what several of its readers are tested with.
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

/** A text that is no such parameter, and its error. */
struct Mistake {
    const char* text;
    int error;
};

#endif
