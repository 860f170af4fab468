#include "standard_reply.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

#include "scpi/error.h"

namespace orvan_service {
namespace {

constexpr std::string_view kErrorWord = "-ERR";
constexpr std::string_view kSuccessWord = "+OK";
constexpr std::string_view kSpace = " \t\r\n";
constexpr size_t kMaxText = 255; // of an entry of the error queue (SCPI-99 21.8.2)

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

/** @param text empty: the standard's */
StandardError entry(int_fast16_t number, std::string text, std::string_view information)
{
    if (text.empty()) {
        text = SCPI_ErrorTranslate(number);
    }
    if (!information.empty()) {
        text.append(";").append(information);
    }
    text.resize(std::min(text.size(), kMaxText));
    return {static_cast<int>(number), std::move(text)};
}

StandardError error_of(std::string_view field)
{
    field = trimmed(field.substr(kErrorWord.size()));
    int16_t number = 0;
    const auto [rest, code] = std::from_chars(field.data(), field.data() + field.size(), number);
    if (code == std::errc() && number != 0) {
        std::string_view text(rest, static_cast<size_t>(field.data() + field.size() - rest));
        text.remove_prefix(text.starts_with(',') ? 1 : 0);
        return entry(number, plain(trimmed(text)), {});
    }
    int_fast16_t kind = SCPI_ERROR_EXECUTION;
    for (const LinkError& link : kLinkErrors) {
        if (field.starts_with(link.begin)) {
            kind = static_cast<int_fast16_t>(link.number);
            break;
        }
    }
    return entry(kind, {}, plain(field));
}

/** Bytes that the block at the start of `text` announces, its header included; 0 if there is none. */
uint64_t block_size(std::string_view text)
{
    if (text.size() < 3 || text[0] != '#' || text[1] < '1' || text[1] > '9') {
        return 0;
    }
    const size_t digits = static_cast<size_t>(text[1] - '0');
    if (text.size() < 2 + digits) {
        return 0;
    }
    uint64_t length = 0;
    const char* const begin = text.data() + 2;
    const auto [end, code] = std::from_chars(begin, begin + digits, length);
    return code == std::errc() && end == begin + digits ? 2 + digits + length : 0;
}

/** The words at the end of `reply`. */
std::string_view end_of(std::string_view reply)
{
    for (const std::string_view end : {";+OK\r\n", "+OK\r\n", "\r\n", ";+OK", "+OK"}) {
        if (reply.ends_with(end)) {
            return end;
        }
    }
    return {};
}

/**
 * Bytes of the block at the start of `reply`, as many of them as have come; 0 if there is none.
 *
 * Where one is not expected, '#' is text unless a whole block follows; and it is text where the block would
 * be cut short although the reply is complete.
 */
size_t take_block(std::string_view reply, bool expected)
{
    const uint64_t size = block_size(reply);
    if (size == 0) {
        return 0;
    }
    const std::string_view end = end_of(reply);
    if (size <= reply.size()) {
        const std::string_view rest = reply.substr(static_cast<size_t>(size));
        return rest.size() >= end.size() || rest == end_of(rest) ? static_cast<size_t>(size) : 0;
    }
    return expected && end.find(kSuccessWord) == std::string_view::npos ? reply.size() : 0;
}

/** Where the text at the start of `reply` ends: at a ';', or where a block begins. */
size_t text_size(std::string_view reply)
{
    const bool error = reply.starts_with(kErrorWord);
    char quote = 0;
    int depth = 0;
    bool start = !error; // an element may start here
    for (size_t i = 0; i < reply.size(); ++i) {
        const char c = reply[i];
        if (quote != 0) {
            quote = c == quote ? '\0' : quote;
            start = quote == 0 && !error; // a doubled quote reopens the string
            continue;
        }
        // The text of an error is no response data: "Error while receiving server's msg".
        if (c == '"' ? start || error : c == '\'' && start) {
            quote = c;
        } else if (c == '(' && (start || depth != 0)) {
            ++depth;
        } else if (c == ')' && depth != 0) {
            --depth;
        } else if (depth == 0 && (c == ';' || take_block(reply.substr(i), start) != 0)) {
            return i;
        }
        start = !error &&
                (c == ',' || c == ';' || c == '(' || (start && kSpace.find(c) != std::string_view::npos));
    }
    // What is still open was cut short, or is no quote: then each ';' separates.
    return quote != 0 || depth != 0 ? std::min(reply.find(';'), reply.size()) : reply.size();
}

struct Field {
    std::string_view text;
    bool block;
    bool joined; // nothing separates it from the field before
};

class Fields {
public:
    explicit Fields(std::string_view reply) : m_rest(reply) {}

    /** The next field; none when only the reply's end is left. */
    std::optional<Field> next()
    {
        const bool joined = m_any && !m_rest.starts_with(';');
        if (m_any && !joined) {
            m_rest.remove_prefix(1);
        }
        m_any = true;
        const std::string_view last = trimmed(m_rest);
        if (last.empty() || last == kSuccessWord) {
            return std::nullopt;
        }
        const size_t block = take_block(m_rest, true);
        const size_t size = block != 0 ? block : text_size(m_rest);
        const std::string_view text = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        return Field{block != 0 ? text : trimmed(text), block != 0, joined};
    }

private:
    std::string_view m_rest;
    bool m_any = false;
};

} // namespace

StandardReply take_reply_apart(std::string_view reply)
{
    StandardReply result;
    Fields fields(reply);
    bool comma = false; // the field before is text that ends with one
    while (const auto field = fields.next()) {
        if (!field->block && field->text.starts_with(kErrorWord)) {
            result.errors.push_back(error_of(field->text));
            comma = false;
            continue;
        }
        if (field->text.empty()) {
            continue;
        }
        // A block among the elements of one result.
        const bool same_result = field->joined && (comma || (!field->block && field->text.starts_with(',')));
        if (!result.results.empty() && !same_result) {
            result.results += ';';
        }
        result.results += field->text;
        comma = !field->block && field->text.ends_with(',');
    }
    return result;
}

} // namespace orvan_service
