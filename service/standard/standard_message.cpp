#include "standard_message.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "scpi/error.h"
#include "scpi/extensions.h"
#include "scpi/parser.h"

namespace orvan_service {
namespace {

struct Row {
    const char* pattern;
    SessionCommand command;
};

constexpr Row kRows[] = {
    {"*CLS", SessionCommand::kClear},
    {"*ESE", SessionCommand::kEventEnable},
    {"*ESE?", SessionCommand::kEventEnableQ},
    {"*ESR?", SessionCommand::kEventStatusQ},
    {"*OPC", SessionCommand::kComplete},
    {"*OPC?", SessionCommand::kCompleteQ},
    {"*SRE", SessionCommand::kServiceEnable},
    {"*SRE?", SessionCommand::kServiceEnableQ},
    {"*STB?", SessionCommand::kStatusByteQ},
    {"*WAI", SessionCommand::kWait},
    {":SYSTem:ERRor[:NEXT]?", SessionCommand::kErrorQ},
    {":SYSTem:ERRor:COUNt?", SessionCommand::kErrorCountQ},
    {":SYSTem:ERRor:SESSion?", SessionCommand::kSessionErrorsQ},
};

// The instrument puts no separator between the result of such a query and what follows.
constexpr const char* kBlockQueries[] = {"[:INTernal]:INFormation:DEVice:OPTions?"};

const Row* find_row(std::string_view header)
{
    for (const Row& row : kRows) {
        if (SCPI_Match(row.pattern, header.data(), header.size())) {
            return &row;
        }
    }
    return nullptr;
}

bool is_block_query(std::string_view header)
{
    return std::any_of(std::begin(kBlockQueries), std::end(kBlockQueries), [&](const char* pattern) {
        return SCPI_Match(pattern, header.data(), header.size());
    });
}

std::span<char> without_space_before(std::span<char> text)
{
    while (!text.empty() && static_cast<unsigned char>(text.front()) <= ' ') {
        text = text.subspan(1);
    }
    return text;
}

/** The parts of a message. Units of the instrument that follow one another are one part. */
class Parts {
public:
    /** Adds a unit of the instrument.
     *  @param text in the message, without white space around it
     *  @param path what its header relies on; empty if nothing */
    void add_unit(std::span<char> text, std::string_view path)
    {
        if (!path.empty() && path != m_path) {
            close();
        }
        if (m_open) {
            std::span<char>& part = m_parts.back().text;
            part = {part.data(), text.data() + text.size()};
            return;
        }
        m_parts.push_back({MessagePart::Kind::kInstrument, {}, 0, std::string(path), text});
        if (!path.empty() && !path.starts_with(':')) {
            m_parts.back().path.insert(0, ":");
        }
        m_open = true;
    }

    /** The path that the instrument's parser has after the last unit. */
    void set_path(std::string_view path) { m_path = path; }

    void add(MessagePart part)
    {
        close();
        m_parts.push_back(std::move(part));
    }

    /** The next unit of the instrument begins a new part. */
    void close()
    {
        if (m_open) {
            std::span<char>& part = m_parts.back().text;
            part = {part.data(), part.size() + 1};
            part.back() = '\n';
            m_open = false;
            m_path.clear();
        }
    }

    std::vector<MessagePart> take()
    {
        close();
        return std::move(m_parts);
    }

private:
    std::vector<MessagePart> m_parts;
    bool m_open = false; // the last part takes more units, and has no LF yet
    std::string m_path;  // of the parser within that part
};

} // namespace

std::vector<MessagePart> cut_message(std::span<char> message)
{
    Parts parts;
    std::string path;
    const char* const end = message.data() + message.size();
    for (const char* next = message.data(); next != nullptr;) {
        const scpi_message_unit_t unit = SCPI_CutUnit(next, end);
        next = unit.next;
        if (unit.begin == unit.end) {
            continue;
        }
        if (unit.block_open) {
            parts.add({MessagePart::Kind::kError, {}, unit.fault, {}, {}});
            continue;
        }
        const std::span<char> text = message.subspan(static_cast<size_t>(unit.begin - message.data()),
                                                     static_cast<size_t>(unit.end - unit.begin));
        std::string header(text.data(), unit.header_len);
        const bool has_header = unit.fault == 0 || unit.fault <= SCPI_ERROR_INVALID_STRING_DATA;
        std::string base; // what the header relies on
        if (has_header && !unit.common) {
            if (!unit.absolute) {
                base = path;
                header.insert(0, base);
            }
            path = header.substr(0, base.size() + unit.path_len);
        }
        if (const Row* const row = unit.fault == 0 ? find_row(header) : nullptr) {
            parts.add({MessagePart::Kind::kSession,
                       row->command,
                       0,
                       {},
                       without_space_before(text.subspan(unit.header_len))});
            continue;
        }
        const bool alone = is_block_query(header);
        if (alone) {
            parts.close();
        }
        parts.add_unit(text, base);
        if (has_header && !unit.common) {
            parts.set_path(path);
        }
        if (alone) {
            parts.close();
        }
    }
    return parts.take();
}

} // namespace orvan_service
