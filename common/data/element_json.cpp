#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include <element_json.h>

namespace {

// Above this a JSON number, which readers hold as a double, no longer distinguishes consecutive integers.
constexpr int64_t kMaxExactInteger = int64_t{1} << 53;

constexpr size_t kHexDigitsOfDouble = 16;

template <typename T>
T load(const uint8_t* place)
{
    T value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

template <typename T>
bool store(uint8_t* place, T value)
{
    std::memcpy(place, &value, sizeof value);
    return true;
}

template <typename Integer>
bool is_exact_as_number(Integer value)
{
    return std::cmp_less_equal(value, kMaxExactInteger) && std::cmp_greater_equal(value, -kMaxExactInteger);
}

// --- writing ---------------------------------------------------------------------------------

template <typename Integer>
cJSON* integer_to_json(Integer value)
{
    char digits[24];
    *std::to_chars(digits, digits + sizeof digits - 1, value).ptr = '\0';
    return is_exact_as_number(value) ? cJSON_CreateRaw(digits) : cJSON_CreateString(digits);
}

// The library's own number output settles for 15 digits if they are close enough.
cJSON* number_to_json(double value)
{
    char digits[40];
    if (!std::isfinite(value)) {
        digits[0] = '0';
        digits[1] = 'x';
        *std::to_chars(digits + 2, digits + sizeof digits - 1, std::bit_cast<uint64_t>(value), 16).ptr = '\0';
        return cJSON_CreateString(digits);
    }
    const double magnitude = std::abs(value);
    const bool plain = magnitude == 0.0 || (magnitude >= 1e-6 && magnitude < 1e16);
    const auto form = plain ? std::chars_format::fixed : std::chars_format::scientific;
    *std::to_chars(digits, digits + sizeof digits - 1, value, form).ptr = '\0';
    return cJSON_CreateRaw(digits);
}

cJSON* switch_to_json(int value)
{
    return value == Off || value == On ? cJSON_CreateBool(value) : integer_to_json(value);
}

cJSON* text_to_json(const uint8_t* text, size_t field_size)
{
    std::string utf8;
    for (size_t i = 0; i + 1 < field_size && text[i] != 0; ++i) {
        if (text[i] < 0x80) {
            utf8 += static_cast<char>(text[i]);
        } else {
            utf8 += static_cast<char>(0xC0 | (text[i] >> 6));
            utf8 += static_cast<char>(0x80 | (text[i] & 0x3F));
        }
    }
    return cJSON_CreateString(utf8.c_str());
}

// --- reading ---------------------------------------------------------------------------------

template <typename Integer>
bool integer_from_json(const cJSON* value, uint8_t* place)
{
    if (cJSON_IsNumber(value)) {
        const double number = value->valuedouble;
        if (!(std::abs(number) <= static_cast<double>(kMaxExactInteger)) || number != std::trunc(number)) {
            return false;
        }
        const auto whole = static_cast<int64_t>(number);
        return std::in_range<Integer>(whole) && store(place, static_cast<Integer>(whole));
    }
    if (sizeof(Integer) == sizeof(int64_t) && cJSON_IsString(value)) {
        const char* end = value->valuestring + std::strlen(value->valuestring);
        Integer whole = 0;
        const auto parsed = std::from_chars(value->valuestring, end, whole);
        return parsed.ec == std::errc() && parsed.ptr == end && store(place, whole);
    }
    return false;
}

bool number_from_json(const cJSON* value, double& number)
{
    if (cJSON_IsNumber(value)) {
        number = value->valuedouble;
        return std::isfinite(number);
    }
    if (!cJSON_IsString(value) || std::strncmp(value->valuestring, "0x", 2) != 0) {
        return false;
    }
    const char* digits = value->valuestring + 2;
    const char* end = digits + std::strlen(digits);
    uint64_t bits = 0;
    const auto parsed = std::from_chars(digits, end, bits, 16);
    number = std::bit_cast<double>(bits);
    return end - digits == kHexDigitsOfDouble && parsed.ec == std::errc() && parsed.ptr == end &&
           !std::isfinite(number);
}

bool double_from_json(const cJSON* value, uint8_t* place)
{
    double number = 0;
    return number_from_json(value, number) && store(place, number);
}

bool float_from_json(const cJSON* value, uint8_t* place)
{
    double number = 0;
    if (!number_from_json(value, number)) {
        return false;
    }
    if (std::isfinite(number) && std::abs(number) > std::numeric_limits<float>::max()) {
        return false;
    }
    return store(place, static_cast<float>(number));
}

bool switch_from_json(const cJSON* value, uint8_t* place)
{
    if (cJSON_IsBool(value)) {
        return store(place, static_cast<int>(cJSON_IsTrue(value) ? On : Off));
    }
    return integer_from_json<int32_t>(value, place);
}

bool text_from_json(const cJSON* value, uint8_t* place, size_t field_size)
{
    uint8_t text[kOrvanTextSize] = {};
    if (!cJSON_IsString(value) || field_size > sizeof text) {
        return false;
    }
    const auto* utf8 = reinterpret_cast<const uint8_t*>(value->valuestring);
    for (size_t length = 0; *utf8 != 0; ++length, ++utf8) {
        if (length + 1 >= field_size) {
            return false;
        }
        text[length] = *utf8;
        if (*utf8 < 0x80) {
            continue;
        }
        // Two bytes that begin with C2 or C3 are U+0080 to U+00FF; no other character maps to a byte.
        const uint8_t lead = utf8[0];
        const uint8_t trail = utf8[1];
        if ((lead != 0xC2 && lead != 0xC3) || (trail & 0xC0) != 0x80) {
            return false;
        }
        text[length] = static_cast<uint8_t>(lead << 6) | (trail & 0x3F);
        ++utf8;
    }
    std::memcpy(place, text, field_size);
    return true;
}

} // namespace

cJSON* orvan_common::element_to_json(const OrvanElementData& element, const uint8_t* record)
{
    const uint8_t* place = record + element.pos;
    switch (element.type) {
    case TYPE_BOOL:
        return switch_to_json(load<int>(place));
    case TYPE_INT32:
        return integer_to_json(load<int32_t>(place));
    case TYPE_UINT32:
        return integer_to_json(load<uint32_t>(place));
    case TYPE_INT64:
        return integer_to_json(load<int64_t>(place));
    case TYPE_UINT64:
        return integer_to_json(load<uint64_t>(place));
    case TYPE_FLOAT:
        return number_to_json(static_cast<double>(load<float>(place)));
    case TYPE_DOUBLE:
        return number_to_json(load<double>(place));
    case TYPE_STRING:
        return text_to_json(place, element.size);
    }
    return nullptr;
}

bool orvan_common::element_from_json(const OrvanElementData& element, const cJSON* value, uint8_t* record)
{
    uint8_t* place = record + element.pos;
    switch (element.type) {
    case TYPE_BOOL:
        return switch_from_json(value, place);
    case TYPE_INT32:
        return integer_from_json<int32_t>(value, place);
    case TYPE_UINT32:
        return integer_from_json<uint32_t>(value, place);
    case TYPE_INT64:
        return integer_from_json<int64_t>(value, place);
    case TYPE_UINT64:
        return integer_from_json<uint64_t>(value, place);
    case TYPE_FLOAT:
        return float_from_json(value, place);
    case TYPE_DOUBLE:
        return double_from_json(value, place);
    case TYPE_STRING:
        return text_from_json(value, place, element.size);
    }
    return false;
}
