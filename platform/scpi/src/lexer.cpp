#include "lexer.h"

#include "chars.h"
#include "scpi/error.h"

namespace {

using namespace scpi;

class Scanner {
public:
    Scanner(const char* p, const char* end, scpi_parameter_t& out)
        : m_start(p), m_p(p), m_end(end), m_out(out)
    {
    }

    int16_t scan()
    {
        if (at_end() || at_separator()) {
            return SCPI_ERROR_SYNTAX;
        }
        const char c = *m_p;
        if (is_alpha(c)) {
            return character();
        }
        if (is_digit(c) || c == '+' || c == '-' || c == '.') {
            return decimal();
        }
        if (c == '"' || c == '\'') {
            return string(c);
        }
        if (c == '#') {
            return hash();
        }
        if (c == '(') {
            return expression();
        }
        return SCPI_ERROR_INVALID_CHARACTER;
    }

    const char* position() const { return m_p; }

private:
    bool at_end() const { return m_p >= m_end; }
    bool at_separator() const { return *m_p == ',' || *m_p == ';' || is_space(*m_p); }
    bool ended() const { return at_end() || at_separator(); }

    template <typename Class>
    size_t skip(Class in_class)
    {
        const char* const from = m_p;
        while (!at_end() && in_class(*m_p)) {
            ++m_p;
        }
        return static_cast<size_t>(m_p - from);
    }

    int16_t accept(scpi_token_type_t type, const char* body, const char* body_end)
    {
        m_out.type = type;
        m_out.ptr = m_start;
        m_out.len = static_cast<size_t>(m_p - m_start);
        m_out.body = body;
        m_out.body_len = static_cast<size_t>(body_end - body);
        return 0;
    }

    int16_t character()
    {
        skip([](char c) { return is_alpha(c) || is_digit(c) || c == '_'; });
        if (!ended()) {
            return SCPI_ERROR_INVALID_CHARACTER_DATA;
        }
        return accept(SCPI_TOKEN_CHARACTER, m_start, m_p);
    }

    int16_t decimal()
    {
        if (*m_p == '+' || *m_p == '-') {
            ++m_p;
        }
        size_t digits = skip(is_digit);
        if (!at_end() && *m_p == '.') {
            ++m_p;
            digits += skip(is_digit);
        }
        if (digits == 0) {
            return ended() ? SCPI_ERROR_NUMERIC_DATA : SCPI_ERROR_INVALID_CHARACTER_IN_NUMBER;
        }
        if (!exponent()) {
            return SCPI_ERROR_INVALID_CHARACTER_IN_NUMBER;
        }
        const char* const number_end = m_p;
        return suffix(number_end);
    }

    /** An 'E' followed by a letter starts a suffix; followed by anything but a number it is an error. */
    bool exponent()
    {
        const char* p = skip_space(m_p, m_end);
        if (p >= m_end || to_upper(*p) != 'E') {
            return true;
        }
        p = skip_space(p + 1, m_end);
        if (p < m_end && is_alpha(*p)) {
            return true;
        }
        if (p < m_end && (*p == '+' || *p == '-')) {
            ++p;
        }
        if (p >= m_end || !is_digit(*p)) {
            m_p = p;
            return false;
        }
        m_p = p;
        skip(is_digit);
        return true;
    }

    int16_t suffix(const char* number_end)
    {
        const char* const from = skip_space(m_p, m_end);
        if (from >= m_end || (!is_alpha(*from) && *from != '/')) {
            if (!ended()) {
                return SCPI_ERROR_INVALID_CHARACTER_IN_NUMBER;
            }
            return accept(SCPI_TOKEN_DECIMAL, m_start, number_end);
        }
        m_p = from;
        m_out.suffix_len =
            skip([](char c) { return is_alpha(c) || is_digit(c) || c == '/' || c == '.' || c == '-'; });
        if (!ended()) {
            return SCPI_ERROR_INVALID_SUFFIX;
        }
        m_out.suffix = from;
        return accept(SCPI_TOKEN_DECIMAL_SUFFIX, m_start, number_end);
    }

    int16_t string(char quote)
    {
        for (++m_p; !at_end(); ++m_p) {
            if (*m_p != quote) {
                continue;
            }
            ++m_p;
            if (at_end() || *m_p != quote) {
                return accept(quote == '"' ? SCPI_TOKEN_STRING_DOUBLE : SCPI_TOKEN_STRING_SINGLE, m_start + 1,
                              m_p - 1);
            }
        }
        return SCPI_ERROR_INVALID_STRING_DATA;
    }

    int16_t hash()
    {
        ++m_p;
        if (at_end()) {
            return SCPI_ERROR_INVALID_CHARACTER;
        }
        const char c = to_upper(*m_p);
        if (is_digit(c)) {
            return block();
        }
        ++m_p;
        switch (c) {
        case 'H':
            return non_decimal(SCPI_TOKEN_HEX, [](char d) {
                return is_digit(d) || (to_upper(d) >= 'A' && to_upper(d) <= 'F');
            });
        case 'Q':
            return non_decimal(SCPI_TOKEN_OCT, [](char d) { return d >= '0' && d <= '7'; });
        case 'B':
            return non_decimal(SCPI_TOKEN_BIN, [](char d) { return d == '0' || d == '1'; });
        default:
            --m_p;
            return SCPI_ERROR_INVALID_CHARACTER;
        }
    }

    template <typename Class>
    int16_t non_decimal(scpi_token_type_t type, Class in_class)
    {
        const char* const digits = m_p;
        const size_t count = skip(in_class);
        if (!ended()) {
            return SCPI_ERROR_INVALID_CHARACTER_IN_NUMBER;
        }
        if (count == 0) {
            return SCPI_ERROR_NUMERIC_DATA;
        }
        return accept(type, digits, m_p);
    }

    int16_t block()
    {
        const int count = *m_p++ - '0';
        if (count == 0) {
            const char* const data = m_p;
            m_p = m_end;
            return accept(SCPI_TOKEN_BLOCK, data, m_end);
        }
        size_t length = 0;
        for (int i = 0; i < count; ++i, ++m_p) {
            if (at_end() || !is_digit(*m_p)) {
                return SCPI_ERROR_INVALID_BLOCK_DATA;
            }
            length = length * 10 + static_cast<size_t>(*m_p - '0');
        }
        if (length > static_cast<size_t>(m_end - m_p)) {
            return SCPI_ERROR_INVALID_BLOCK_DATA;
        }
        const char* const data = m_p;
        m_p += length;
        return accept(SCPI_TOKEN_BLOCK, data, m_p);
    }

    /** Parentheses nest; quoted text inside may contain any special characters. */
    int16_t expression()
    {
        size_t depth = 0;
        char quote = '\0';
        for (; !at_end(); ++m_p) {
            const char c = *m_p;
            if (quote != '\0') {
                if (c == quote) {
                    quote = '\0';
                }
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '(') {
                ++depth;
            } else if (c == ')' && --depth == 0) {
                ++m_p;
                return accept(SCPI_TOKEN_EXPRESSION, m_start + 1, m_p - 1);
            } else if (c == ';') {
                break;
            }
        }
        return SCPI_ERROR_INVALID_EXPRESSION;
    }

    const char* const m_start;
    const char* m_p;
    const char* const m_end;
    scpi_parameter_t& m_out;
};

} // namespace

int16_t scpi::lex_element(const char* p, const char* end, scpi_parameter_t* out, const char** next)
{
    *out = {};
    Scanner scanner(p, end, *out);
    const int16_t error = scanner.scan();
    if (error != 0) {
        *out = {};
    }
    *next = scanner.position();
    return error;
}
