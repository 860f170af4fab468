#include "scpi/result.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "chars.h"
#include "scpi/error.h"

using namespace scpi;

namespace {

/** Representations of non-finite values (SCPI-99 7.2.1.4, 7.2.1.5). */
constexpr double kInfinity = 9.9e37;
constexpr double kNotANumber = 9.91e37;

/** Longest text of a queue entry in a reply (SCPI-99 21.8.2). */
constexpr size_t kMaxErrorText = 255;

constexpr size_t kMaxBlock = 999999999;

size_t write(scpi_t* context, const char* data, size_t len)
{
    if (context->interface == nullptr || context->interface->write == nullptr) {
        return len;
    }
    return context->interface->write(context, data, len);
}

/** Appends to a text of bounded length; what does not fit is dropped and marks it as overlong. */
template <size_t kSize>
class TextBuffer {
public:
    void put(char c)
    {
        if (m_len < kSize) {
            m_text[m_len] = c;
        }
        ++m_len;
    }
    const char* data() const { return m_text.data(); }
    size_t len() const { return m_len; }
    bool fits() const { return m_len <= kSize; }

private:
    std::array<char, kSize> m_text;
    size_t m_len = 0;
};

struct Prefix {
    char text[3];
    size_t len;
};

bool prefix_of(int8_t base, Prefix* prefix)
{
    switch (base) {
    case 2:
        *prefix = {"#B", 2};
        return true;
    case 8:
        *prefix = {"#Q", 2};
        return true;
    case 10:
        *prefix = {"", 0};
        return true;
    case 16:
        *prefix = {"#H", 2};
        return true;
    default:
        return false;
    }
}

template <typename T>
size_t write_integer(scpi_t* context, T value, int8_t base)
{
    Prefix prefix;
    if (!prefix_of(base, &prefix)) {
        return 0;
    }
    char text[2 + 64];
    char* const digits = std::copy_n(prefix.text, prefix.len, text);
    char* const limit = text + sizeof text;
    char* end = digits;
    if (base == 10) {
        end = std::to_chars(digits, limit, value).ptr;
    } else {
        end = std::to_chars(digits, limit, static_cast<std::make_unsigned_t<T>>(value), base).ptr;
    }
    std::transform(digits, end, digits, to_upper);
    return SCPI_ResultCharacters(context, text, static_cast<size_t>(end - text));
}

template <typename T>
size_t write_floating(scpi_t* context, T value)
{
    if (std::isnan(value)) {
        value = static_cast<T>(kNotANumber);
    } else if (std::isinf(value)) {
        value = static_cast<T>(std::copysign(kInfinity, value));
    }

    char text[40];
    char* end = std::to_chars(text, text + sizeof text - 2, value).ptr;
    char* const exponent = std::find(text, end, 'e');
    if (exponent != end) {
        *exponent = 'E';
        // An NR3 number has a fraction (8.7.4).
        if (std::find(text, exponent, '.') == exponent) {
            std::copy_backward(exponent, end, end + 2);
            exponent[0] = '.';
            exponent[1] = '0';
            end += 2;
        }
    }
    return SCPI_ResultCharacters(context, text, static_cast<size_t>(end - text));
}

/** Writes the "," before every result but the first; false if it was not accepted. */
bool write_separator(scpi_t* context, size_t* written)
{
    *written = 0;
    if (context->output_count == 0) {
        return true;
    }
    *written = write(context, ",", 1);
    return *written != 0;
}

} // namespace

size_t SCPI_ResultCharacters(scpi_t* context, const char* data, size_t len)
{
    if (data == nullptr || len == 0) {
        return 0;
    }
    size_t separator = 0;
    if (!write_separator(context, &separator)) {
        return 0;
    }
    const size_t written = write(context, data, len);
    if (written == 0) {
        return 0;
    }
    ++context->output_count;
    return separator + written;
}

size_t SCPI_ResultMnemonic(scpi_t* context, const char* data)
{
    return data == nullptr ? 0 : SCPI_ResultCharacters(context, data, std::strlen(data));
}

size_t SCPI_ResultText(scpi_t* context, const char* data)
{
    TextBuffer<SCPI_RESULT_TEXT_MAX> text;
    text.put('"');
    for (const char* p = data == nullptr ? "" : data; *p != '\0'; ++p) {
        if (*p == '"') {
            text.put('"');
        }
        text.put(*p);
    }
    text.put('"');
    return text.fits() ? SCPI_ResultCharacters(context, text.data(), text.len()) : 0;
}

size_t SCPI_ResultBool(scpi_t* context, scpi_bool_t value)
{
    return SCPI_ResultCharacters(context, value ? "1" : "0", 1);
}

size_t SCPI_ResultInt8(scpi_t* context, int8_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultInt16(scpi_t* context, int16_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultInt32(scpi_t* context, int32_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultInt64(scpi_t* context, int64_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultUInt8(scpi_t* context, uint8_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultUInt16(scpi_t* context, uint16_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultUInt32(scpi_t* context, uint32_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultUInt64(scpi_t* context, uint64_t value)
{
    return write_integer(context, value, 10);
}

size_t SCPI_ResultInt8Base(scpi_t* context, int8_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultInt16Base(scpi_t* context, int16_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultInt32Base(scpi_t* context, int32_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultInt64Base(scpi_t* context, int64_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultUInt8Base(scpi_t* context, uint8_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultUInt16Base(scpi_t* context, uint16_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultUInt32Base(scpi_t* context, uint32_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultUInt64Base(scpi_t* context, uint64_t value, int8_t base)
{
    return write_integer(context, value, base);
}

size_t SCPI_ResultFloat(scpi_t* context, float value)
{
    return write_floating(context, value);
}

size_t SCPI_ResultDouble(scpi_t* context, double value)
{
    return write_floating(context, value);
}

size_t SCPI_ResultArbitraryBlockHeader(scpi_t* context, size_t len)
{
    if (len > kMaxBlock) {
        return 0;
    }
    size_t separator = 0;
    if (!write_separator(context, &separator)) {
        return 0;
    }

    char header[2 + 9];
    char* const end = std::to_chars(header + 2, header + sizeof header, len).ptr;
    header[0] = '#';
    header[1] = static_cast<char>('0' + (end - header - 2));

    context->arbitrary_remaining = len;
    const size_t written = write(context, header, static_cast<size_t>(end - header));
    if (written == 0) {
        context->arbitrary_remaining = 0;
        return 0;
    }
    ++context->output_count;
    return separator + written;
}

size_t SCPI_ResultArbitraryBlockData(scpi_t* context, const void* data, size_t len)
{
    if (data == nullptr || len == 0 || len > context->arbitrary_remaining) {
        return 0;
    }
    const size_t written = write(context, static_cast<const char*>(data), len);
    context->arbitrary_remaining -= std::min(written, len);
    return written;
}

size_t SCPI_ResultArbitraryBlock(scpi_t* context, const void* data, size_t len)
{
    if (data == nullptr) {
        return 0;
    }
    const size_t header = SCPI_ResultArbitraryBlockHeader(context, len);
    if (header == 0) {
        return 0;
    }
    const size_t written = SCPI_ResultArbitraryBlockData(context, data, len);
    context->arbitrary_remaining = 0;
    return written == len ? header + written : 0;
}

size_t SCPI_ResultError(scpi_t* context, const scpi_error_t* error)
{
    char text[kMaxErrorText + 1] = {};
    std::strncpy(text, SCPI_ErrorTranslate(error->error_code), kMaxErrorText);
    if (error->device_dependent_info != nullptr) {
        const size_t len = std::strlen(text);
        text[len] = ';';
        std::strncpy(text + len + 1, error->device_dependent_info, kMaxErrorText - len - 1);
    }
    const size_t number = SCPI_ResultInt16(context, error->error_code);
    const size_t quoted = number == 0 ? 0 : SCPI_ResultText(context, text);
    return quoted == 0 ? 0 : number + quoted;
}
