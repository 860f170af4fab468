#include "standard_message.h"

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
};

const Row* find_row(std::string_view header)
{
    for (const Row& row : kRows) {
        if (SCPI_Match(row.pattern, header.data(), header.size())) {
            return &row;
        }
    }
    return nullptr;
}

std::string_view trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t\r");
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

} // namespace

std::vector<MessagePart> cut_message(std::string_view message)
{
    std::vector<MessagePart> parts;
    std::string path;
    bool open = false; // the last part takes more units
    const char* const end = message.data() + message.size();
    for (const char* next = message.data(); next != nullptr;) {
        const scpi_message_unit_t unit = SCPI_CutUnit(next, end);
        next = unit.next;
        if (unit.begin == unit.end) {
            continue;
        }
        const std::string_view text(unit.begin, static_cast<size_t>(unit.end - unit.begin));
        std::string header(text.substr(0, unit.header_len));
        const bool relative = !unit.common && !unit.absolute;
        const std::string path_before = path;
        const bool is_header = unit.fault == 0 || unit.fault <= SCPI_ERROR_INVALID_STRING_DATA;
        if (relative) {
            header.insert(0, path);
        }
        if (is_header && !unit.common) {
            path = header.substr(0, unit.path_len + (relative ? path.size() : 0));
        }
        if (unit.fault == SCPI_ERROR_INVALID_BLOCK_DATA) {
            parts.push_back({MessagePart::Kind::kError, {}, unit.fault, {}});
            open = false;
            continue;
        }
        if (const Row* const row = unit.fault == 0 ? find_row(header) : nullptr) {
            parts.push_back({MessagePart::Kind::kSession, row->command, 0,
                             std::string(trimmed(text.substr(unit.header_len)))});
            open = false;
            continue;
        }
        if (!open) {
            parts.push_back({MessagePart::Kind::kInstrument, {}, 0, {}});
            open = true;
        }
        std::string& part = parts.back().text;
        if (!part.empty()) {
            part.back() = ';';
        } else if (relative) {
            part = path_before;
        }
        part.append(text);
        part += '\n';
    }
    return parts;
}

} // namespace orvan_service
