#include "reference.h"

#include <cctype>
#include <map>
#include <sstream>
#include <string_view>

#include "header_forms.h"
#include <scpi/error.h>

namespace scpi_reference {

namespace {

/** A command's rows in the table; null for a form that it does not have. */
struct Rows {
    const scpi_command_t* set = nullptr;
    const scpi_command_t* query = nullptr;
};

using RowsByHeader = std::map<std::string, Rows, std::less<>>;

RowsByHeader rows_by_header(const scpi_command_t* rows)
{
    RowsByHeader all;
    for (; rows->pattern != nullptr; ++rows) {
        std::string header = rows->pattern;
        const bool query = header.ends_with('?');
        if (query) {
            header.pop_back();
        }
        (query ? all[header].query : all[header].set) = rows;
    }
    return all;
}

[[noreturn]] void complain_of(const Description& command, const std::string& what)
{
    throw Complaint("line " + std::to_string(command.line) + ": " + what);
}

/** Every row has its form described, and every described form has its row. */
void check(const Descriptions& descriptions, const CommandTable& table, const RowsByHeader& rows)
{
    std::map<std::string, const Description*, std::less<>> described;
    for (const Section& section : descriptions.sections) {
        for (const Description& command : section.commands) {
            if (!described.emplace(command.header, &command).second) {
                complain_of(command, command.header + " is described twice");
            }
            const auto found = rows.find(command.header);
            const Rows its = found != rows.end() ? found->second : Rows{};
            if (command.set && its.set == nullptr) {
                complain_of(command, command.header + " is no row of the command table");
            }
            if (command.query && its.query == nullptr) {
                complain_of(command, command.header + "? is no row of the command table");
            }
        }
    }
    for (const scpi_command_t* row = table.rows; row->pattern != nullptr; ++row) {
        std::string header = row->pattern;
        const bool query = header.ends_with('?');
        if (query) {
            header.pop_back();
        }
        const auto found = described.find(header);
        if (found == described.end()) {
            throw Complaint("the row " + std::string(row->pattern) + " is not described");
        }
        if (!(query ? found->second->query : found->second->set)) {
            complain_of(*found->second, "the row " + std::string(row->pattern) + " is not described: " +
                                            header + " has no \"" + (query ? "query" : "set") + "\"");
        }
    }
}

/** As a table's cell takes it. */
std::string code(std::string_view text)
{
    std::string cell = "`";
    for (const char c : text) {
        cell += c == '|' ? std::string("\\|") : std::string(1, c);
    }
    return cell + '`';
}

/** The link to a heading, as the usual renderers make it. */
std::string anchor(std::string_view heading)
{
    std::string text;
    for (const char c : heading) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
            text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else if (c == ' ' || c == '-') {
            text += '-';
        }
    }
    return text;
}

class Writer {
public:
    Writer(const CommandTable& table, const RowsByHeader& rows) : m_table(table), m_rows(rows) {}

    std::string document(const Descriptions& descriptions)
    {
        m_out << descriptions.beginning;
        write_overview(descriptions);
        for (const Section& section : descriptions.sections) {
            write_section(section);
        }
        return m_out.str();
    }

private:
    std::string answered_by(const scpi_command_t* row) const
    {
        if (row == nullptr) {
            return "";
        }
        return row->callback == m_table.forwarded ? "module" : "controller";
    }

    void write_overview(const Descriptions& descriptions)
    {
        m_out << "## All commands\n\nWho answers the set form and the query of each:\n\n"
              << "| command | set | query |\n|---|---|---|\n";
        for (const Section& section : descriptions.sections) {
            m_out << "| **[" << section.title << "](#" << anchor(section.title) << ")** | | |\n";
            for (const Description& command : section.commands) {
                const Rows& rows = m_rows.find(command.header)->second;
                m_out << "| [`" << command.header << "`](#" << anchor(command.header) << ") | "
                      << answered_by(rows.set) << " | " << answered_by(rows.query) << " |\n";
            }
        }
    }

    void write_section(const Section& section)
    {
        m_out << "\n## " << section.title << "\n" << section.text;
        for (const Description& command : section.commands) {
            write_command(command);
        }
    }

    void write_command(const Description& command)
    {
        const Rows& rows = m_rows.find(command.header)->second;
        m_out << "\n### `" << command.header << "`\n\n";
        for (const std::string& paragraph : command.what) {
            m_out << paragraph << "\n\n";
        }
        m_out << "| form | shortest | longest | answered by |\n|---|---|---|---|\n";
        write_form("set", rows.set, command.set);
        write_form("query", rows.query, command.query);
        m_out << '\n';
        write_list(command);
        for (const Dialogue& dialogue : command.dialogues) {
            m_out << "\n```" << (dialogue.held ? "scpi" : "text") << '\n';
            for (const std::string& line : dialogue.lines) {
                m_out << line << '\n';
            }
            m_out << "```\n";
        }
    }

    void write_form(const char* form, const scpi_command_t* row, const std::optional<std::string>& parameters)
    {
        if (row == nullptr) {
            return;
        }
        const std::string behind = parameters->empty() ? "" : " " + *parameters;
        m_out << "| " << form << " | " << code(shortest_form(row->pattern) + behind) << " | "
              << code(longest_form(row->pattern) + behind) << " | " << answered_by(row) << " |\n";
    }

    void write_list(const Description& command)
    {
        for (const Parameter& parameter : command.parameters) {
            m_out << "- `" << parameter.name << "`: " << parameter.text << '\n';
        }
        for (const std::string& reply : command.replies) {
            m_out << "- Reply: " << reply << '\n';
        }
        for (const Error& error : command.errors) {
            m_out << "- Error " << error.code << ", \""
                  << SCPI_ErrorTranslate(static_cast<int16_t>(error.code)) << "\": " << error.text << '\n';
        }
    }

    const CommandTable& m_table;
    const RowsByHeader& m_rows;
    std::ostringstream m_out;
};

} // namespace

std::string render(const Descriptions& descriptions, const CommandTable& table)
{
    const RowsByHeader rows = rows_by_header(table.rows);
    check(descriptions, table, rows);
    return Writer(table, rows).document(descriptions);
}

std::string difference(const std::string& document, const std::string& wanted)
{
    if (document == wanted) {
        return {};
    }
    std::istringstream is(document);
    std::istringstream should(wanted);
    std::string heading = "the beginning";
    for (int number = 1;; ++number) {
        std::string is_line;
        std::string should_line;
        const bool is_end = !std::getline(is, is_line);
        const bool should_end = !std::getline(should, should_line);
        if (should_line.starts_with('#')) {
            heading = should_line.substr(should_line.find_first_not_of("# "));
        }
        if (is_line != should_line || is_end != should_end || (is_end && should_end)) {
            return "line " + std::to_string(number) + ", in " + heading + ":\n  is        " +
                   (is_end ? "(the end)" : is_line) + "\n  should be " +
                   (should_end ? "(the end)" : should_line);
        }
    }
}

} // namespace scpi_reference
