#include "result_tap.h"

#include "support/next_symbol.h"
#include <scpi/result.h>

using orvan_test::next_symbol;

namespace {

orvan_test::ResultTap* active = nullptr;

// True when the call is not passed on.
bool refused(const std::string& call)
{
    if (active == nullptr) {
        return false;
    }
    active->calls.push_back(call);
    return active->refuses;
}

} // namespace

extern "C" size_t SCPI_ResultBool(scpi_t* context, scpi_bool_t value)
{
    static auto* const real = next_symbol<decltype(SCPI_ResultBool)>("SCPI_ResultBool");
    return refused(std::string("SCPI_ResultBool ") + (value ? "1" : "0")) ? 0 : real(context, value);
}

extern "C" size_t SCPI_ResultUInt32Base(scpi_t* context, uint32_t value, int8_t base)
{
    static auto* const real = next_symbol<decltype(SCPI_ResultUInt32Base)>("SCPI_ResultUInt32Base");
    const std::string call =
        "SCPI_ResultUInt32Base " + std::to_string(value) + " to the base " + std::to_string(base);
    return refused(call) ? 0 : real(context, value, base);
}

namespace orvan_test {

ResultTap::ResultTap()
{
    active = this;
}

ResultTap::~ResultTap()
{
    active = nullptr;
}

} // namespace orvan_test
