#include "standard_reply.h"

#include <charconv>
#include <cstdint>
#include <optional>

#include "scpi/error.h"

namespace orvan_service {
namespace {

constexpr std::string_view kErrorWord = "-ERR";
constexpr std::string_view kSuccessWord = "+OK";
constexpr std::string_view kSpace = " \t\r\n";

struct LinkError {
    std::string_view begin;
    int number;
};

// In the order of comparison.
constexpr LinkError kLinkErrors[] = {
    {"Receive timeout", SCPI_ERROR_TIME_OUT},
    {"Error while receiving", SCPI_ERROR_COMMUNICATION},
    {"Unable to", SCPI_ERROR_HARDWARE_MISSING},
    {"Connection timeout", SCPI_ERROR_HARDWARE_MISSING},
};

std::string_view trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(kSpace);
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(kSpace) - begin + 1);
}

/** The text with neither quotes nor control characters, which an entry of the queue cannot contain. */
std::string plain(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        if (c != '"' && static_cast<unsigned char>(c) >= ' ') {
            result += c;
        }
    }
    return result;
}

StandardError error_of(std::string_view field)
{
    field = trimmed(field.substr(kErrorWord.size()));
    int number = 0;
    const auto [rest, code] = std::from_chars(field.data(), field.data() + field.size(), number);
    if (code == std::errc() && number != 0) {
        std::string_view text(rest, static_cast<size_t>(field.data() + field.size() - rest));
        text = trimmed(text.substr(text.starts_with(',') ? 1 : 0));
        return {number, text.empty() ? SCPI_ErrorTranslate(static_cast<int_fast16_t>(number)) : plain(text)};
    }
    int_fast16_t kind = SCPI_ERROR_EXECUTION;
    for (const LinkError& link : kLinkErrors) {
        if (field.starts_with(link.begin)) {
            kind = static_cast<int_fast16_t>(link.number);
            break;
        }
    }
    std::string text = SCPI_ErrorTranslate(kind);
    if (!field.empty()) {
        text += ';' + plain(field);
    }
    return {static_cast<int>(kind), std::move(text)};
}

/** Length of the block at the start of `text`, 0 if there is none or it is cut short. */
size_t block_length(std::string_view text)
{
    if (text.size() < 2 || text[0] != '#' || text[1] < '1' || text[1] > '9') {
        return 0;
    }
    const size_t digits = static_cast<size_t>(text[1] - '0');
    uint64_t length = 0;
    const char* const begin = text.data() + 2;
    if (text.size() < 2 + digits) {
        return 0;
    }
    const auto [end, code] = std::from_chars(begin, begin + digits, length);
    const uint64_t whole = 2 + digits + length;
    return code == std::errc() && end == begin + digits && whole <= text.size() ? static_cast<size_t>(whole)
                                                                                : 0;
}

class Fields {
public:
    explicit Fields(std::string_view reply) : m_rest(reply) {}

    /** The next field, empty when there are no more. */
    std::optional<std::string_view> next()
    {
        if (m_rest.empty()) {
            return std::nullopt;
        }
        if (const size_t block = block_length(m_rest)) {
            return take(block);
        }
        char quote = 0;
        int depth = 0;
        for (size_t i = 0; i < m_rest.size(); ++i) {
            const char c = m_rest[i];
            if (quote != 0) {
                quote = c == quote ? '\0' : quote;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '(') {
                ++depth;
            } else if (c == ')') {
                depth -= depth > 0 ? 1 : 0;
            } else if (depth == 0 && (c == ';' || block_length(m_rest.substr(i)) != 0)) {
                return take(i);
            }
        }
        // What is open at the end was cut short, or no quote: then each ';' separates.
        return take(quote != 0 || depth != 0 ? m_rest.find(';') : m_rest.size());
    }

private:
    std::string_view take(size_t length)
    {
        const std::string_view field = m_rest.substr(0, length);
        m_rest.remove_prefix(field.size());
        m_rest.remove_prefix(m_rest.starts_with(';') ? 1 : 0);
        return field;
    }

    std::string_view m_rest;
};

/** Without the success word and the line's end. */
std::string_view without_end(std::string_view reply)
{
    if (reply.ends_with("\r\n")) {
        reply.remove_suffix(2);
    }
    if (reply.ends_with(kSuccessWord)) {
        reply.remove_suffix(kSuccessWord.size());
        reply.remove_suffix(reply.ends_with(';') ? 1 : 0);
    }
    return reply;
}

} // namespace

StandardReply take_reply_apart(std::string_view reply)
{
    StandardReply result;
    Fields fields(without_end(reply));
    bool first = true;
    while (const auto field = fields.next()) {
        const bool block = block_length(*field) == field->size() && !field->empty();
        const std::string_view text = block ? *field : trimmed(*field);
        if (text.starts_with(kErrorWord)) {
            result.errors.push_back(error_of(text));
            continue;
        }
        if (text.empty()) {
            continue;
        }
        // A "," joins what follows a block to it.
        if (!first && !text.starts_with(',') && !result.results.ends_with(',')) {
            result.results += ';';
        }
        result.results += text;
        first = false;
    }
    return result;
}

} // namespace orvan_service
