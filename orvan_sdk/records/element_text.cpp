// A field of a record as text, in both directions.

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "dataorvan.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace {

// ---- the field

// Calls `use` with a value of the field's type. Texts, which are not values, and unknown types have none.
template <typename Use>
bool with_value_of(ValueTypes type, Use use)
{
    switch (type) {
    case TYPE_BOOL:
        use(OnOff{});
        return true;
    case TYPE_INT32:
        use(int32_t{});
        return true;
    case TYPE_UINT32:
        use(uint32_t{});
        return true;
    case TYPE_INT64:
        use(int64_t{});
        return true;
    case TYPE_UINT64:
        use(uint64_t{});
        return true;
    case TYPE_FLOAT:
        use(float{});
        return true;
    case TYPE_DOUBLE:
        use(double{});
        return true;
    case TYPE_STRING:
        break;
    }
    return false;
}

template <typename Value>
void load(const char* place, Value& value)
{
    std::memcpy(&value, place, sizeof value);
}

template <typename Value>
void store(uint8_t* place, const Value& value, size_t size)
{
    std::memcpy(place, &value, std::min(sizeof value, size));
}

void store_text(uint8_t* place, const char* text, size_t size)
{
    if (size == 0) {
        return;
    }
    // A damaged text of the settings may be unterminated.
    const size_t len = ::strnlen(text, size - 1);
    std::memcpy(place, text, len);
    place[len] = '\0';
}

// ---- text to value

// clang-format off
auto read_integer(const char* text, int32_t)  { return std::strtol(text, nullptr, 10); }
auto read_integer(const char* text, uint32_t) { return std::strtoul(text, nullptr, 10); }
auto read_integer(const char* text, int64_t)  { return std::strtoll(text, nullptr, 10); }
auto read_integer(const char* text, uint64_t) { return std::strtoull(text, nullptr, 10); }
// clang-format on

void read(std::string_view word, double, OnOff& value)
{
    value = word == "ON" || word == "On" || word == "1" ? On : Off;
}

// The factor is truncated to the integer type. Unsigned arithmetic: out-of-range values wrap.
template <std::integral Integer>
void read(const char* text, double factor, Integer& value)
{
    value = static_cast<Integer>(static_cast<uint64_t>(read_integer(text, value)) *
                                 static_cast<uint64_t>(static_cast<Integer>(factor)));
}

template <std::floating_point Real>
void read(const char* text, double factor, Real& value)
{
    value = static_cast<Real>(std::strtod(text, nullptr)) * static_cast<Real>(factor);
}

// ---- value to text

void print(OnOff value, double, char* buffer, size_t size)
{
    std::snprintf(buffer, size, "%s", value != Off ? "ON" : "OFF");
}

template <std::integral Integer>
void print(Integer value, double factor, char* buffer, size_t size)
{
    char digits[24];
    *std::to_chars(digits, digits + sizeof digits - 1, value / static_cast<Integer>(factor)).ptr = '\0';
    std::snprintf(buffer, size, "%s", digits);
}

double unscaled(double value, double factor)
{
    return factor == 1.0 ? value : value / factor;
}

void print(float value, double factor, char* buffer, size_t size)
{
    std::snprintf(buffer, size, "%.6g", unscaled(static_cast<double>(value), factor));
}

void print(double value, double factor, char* buffer, size_t size)
{
    std::snprintf(buffer, size, "%.12g", unscaled(value, factor));
}

} // namespace

void update_orvan_DB(uint8_t* base, const OrvanElementData* e, const char* str)
{
    if (base == nullptr || e == nullptr || str == nullptr) {
        return;
    }
    uint8_t* const place = base + e->pos;
    if (e->type == TYPE_STRING) {
        store_text(place, str, e->size);
        return;
    }
    with_value_of(e->type, [&](auto value) {
        read(str, e->factor, value);
        store(place, value, e->size);
    });
}

bool format_element_value(const char* baseAddress, const OrvanElementData& element, char* buffer,
                          size_t bufSize)
{
    if (baseAddress == nullptr || buffer == nullptr) {
        return false;
    }
    const char* const place = baseAddress + element.pos;
    if (element.type == TYPE_STRING) {
        std::snprintf(buffer, bufSize, "%s", place);
        return true;
    }
    return with_value_of(element.type, [&](auto value) {
        load(place, value);
        print(value, element.factor, buffer, bufSize);
    });
}
