#include "response.h"

#include <algorithm>
#include <charconv>

namespace orvan_web {

void ResponseFramer::step(char c)
{
    switch (m_state) {
    case State::kStart:
        m_quote = c;
        m_state = c == '"' || c == '\''              ? State::kString
                  : c == '#'                         ? State::kHash
                  : c == ',' || c == ';' || c == ' ' ? State::kStart
                                                     : State::kInside;
        break;
    case State::kInside:
        m_state = c == ',' || c == ';' ? State::kStart : State::kInside;
        break;
    case State::kString: // a doubled quote begins another string
        m_state = c == m_quote ? State::kStart : State::kString;
        break;
    case State::kHash:
        m_digits = c >= '1' && c <= '9' ? static_cast<size_t>(c - '0') : 0;
        m_length = 0;
        m_state = m_digits > 0 ? State::kLength : State::kInside;
        break;
    case State::kLength:
        if (c < '0' || c > '9') {
            m_state = State::kInside;
            break;
        }
        m_length = 10 * m_length + static_cast<size_t>(c - '0');
        if (--m_digits == 0) {
            m_state = m_length > 0 ? State::kBlock : State::kInside;
        }
        break;
    case State::kBlock:
        if (--m_length == 0) {
            m_state = State::kInside;
        }
        break;
    }
}

size_t ResponseFramer::scan(std::string_view bytes)
{
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (m_state == State::kBlock) {
            const size_t skipped = std::min(m_length - 1, bytes.size() - i - 1);
            m_length -= skipped;
            i += skipped;
        }
        if (bytes[i] == '\n' && m_state != State::kBlock) {
            m_state = State::kStart;
            return i + 1;
        }
        step(bytes[i]);
    }
    return 0;
}

std::vector<std::string> split_fields(std::string_view response)
{
    if (response.empty()) {
        return {};
    }
    std::vector<std::string> fields(1);
    ResponseFramer framer;
    for (const char c : response) {
        if (c == ';' && !framer.literal()) {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
        framer.step(c);
    }
    return fields;
}

std::vector<ScpiError> read_errors(std::string_view response)
{
    std::vector<ScpiError> errors;
    while (!response.empty()) {
        ScpiError error{};
        const char* const end = response.data() + response.size();
        const auto [after, fault] = std::from_chars(response.data(), end, error.number);
        if (fault != std::errc()) {
            break;
        }
        response.remove_prefix(static_cast<size_t>(after - response.data()));
        if (response.starts_with(",\"")) {
            size_t i = 2;
            for (; i < response.size(); ++i) {
                if (response[i] == '"') {
                    if (i + 1 >= response.size() || response[i + 1] != '"') {
                        break;
                    }
                    ++i; // a doubled quote
                }
                error.text += response[i];
            }
            response.remove_prefix(std::min(i + 1, response.size()));
        }
        if (error.number != 0) {
            errors.push_back(std::move(error));
        }
        response.remove_prefix(std::min(response.find_first_not_of(", "), response.size()));
    }
    return errors;
}

} // namespace orvan_web
