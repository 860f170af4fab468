#include "descriptions.h"

#include <charconv>
#include <sstream>
#include <string_view>

namespace scpi_reference {

namespace {

struct Field {
    std::string_view name;
    std::string text;
};

std::string_view trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/** The first word, and the rest. */
std::pair<std::string_view, std::string_view> cut_word(std::string_view text)
{
    const size_t end = std::min(text.find(' '), text.size());
    return {text.substr(0, end), trim(text.substr(end))};
}

class Parser {
public:
    Descriptions parse(const std::string& text)
    {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            ++m_line;
            take(line);
        }
        if (m_command != nullptr) {
            check(*m_command);
        }
        return std::move(m_all);
    }

private:
    [[noreturn]] void complain(const std::string& what) const
    {
        throw Complaint("line " + std::to_string(m_line) + ": " + what);
    }

    void take(const std::string& line)
    {
        const std::string_view text = line;
        if (text.starts_with("//")) {
            return;
        }
        if (text.starts_with("== ")) {
            begin_section(text.substr(3));
        } else if (text.starts_with("@ ")) {
            begin_command(text.substr(2));
        } else if (m_command == nullptr) {
            (m_all.sections.empty() ? m_all.beginning : m_all.sections.back().text) += line + '\n';
        } else if (!trim(text).empty()) {
            take_field(text);
        }
    }

    void begin_section(std::string_view title)
    {
        if (m_command != nullptr) {
            check(*m_command);
        }
        m_command = nullptr;
        m_all.sections.push_back({std::string(trim(title)), {}, {}});
    }

    void begin_command(std::string_view header)
    {
        if (m_all.sections.empty()) {
            complain("a command before the first section");
        }
        if (m_command != nullptr) {
            check(*m_command);
        }
        m_all.sections.back().commands.push_back({});
        m_command = &m_all.sections.back().commands.back();
        m_command->header = trim(header);
        m_command->line = m_line;
        m_go_on = nullptr;
    }

    void take_field(std::string_view text)
    {
        if (text.starts_with("> ") || text.starts_with("< ")) {
            if (m_command->dialogues.empty()) {
                complain("a dialogue begins with \"example\" or \"sample\"");
            }
            m_command->dialogues.back().lines.emplace_back(text);
            return;
        }
        if (text.starts_with("  ")) {
            if (m_go_on == nullptr) {
                complain("there is no field to continue");
            }
            *m_go_on += (m_go_on->empty() ? "" : " ") + std::string(trim(text));
            return;
        }
        const auto [name, rest] = cut_word(text);
        begin_field(name, rest);
    }

    void begin_field(std::string_view name, std::string_view text)
    {
        m_go_on = nullptr;
        if (name == "what") {
            m_go_on = &m_command->what.emplace_back(text);
        } else if (name == "set") {
            m_go_on = &m_command->set.emplace(text);
        } else if (name == "query") {
            m_go_on = &m_command->query.emplace(text);
        } else if (name == "reply") {
            m_go_on = &m_command->replies.emplace_back(text);
        } else if (name == "param") {
            begin_parameter(text);
        } else if (name == "error") {
            begin_error(text);
        } else if (name == "example" || name == "sample") {
            m_command->dialogues.push_back({name == "example", {}});
        } else {
            complain("there is no field \"" + std::string(name) + "\"");
        }
    }

    void begin_parameter(std::string_view text)
    {
        const size_t end = text.find('>');
        if (!text.starts_with('<') || end == std::string_view::npos) {
            complain("a parameter's name must be in <>");
        }
        m_command->parameters.push_back(
            {std::string(text.substr(0, end + 1)), std::string(trim(text.substr(end + 1)))});
        m_go_on = &m_command->parameters.back().text;
    }

    void begin_error(std::string_view text)
    {
        const auto [number, rest] = cut_word(text);
        int code = 0;
        const auto read = std::from_chars(number.data(), number.data() + number.size(), code);
        if (read.ec != std::errc() || read.ptr != number.data() + number.size() || code >= 0) {
            complain("an error begins with its code");
        }
        m_command->errors.push_back({code, std::string(rest)});
        m_go_on = &m_command->errors.back().text;
    }

    /** What every command must have. */
    void check(const Description& command) const
    {
        const auto miss = [&command](const char* what) {
            throw Complaint("line " + std::to_string(command.line) + ": " + command.header + " has no " +
                            what);
        };
        if (command.what.empty()) {
            miss("\"what\"");
        }
        if (command.dialogues.empty() || command.dialogues.back().lines.empty()) {
            miss("example");
        }
        if (command.query && command.replies.empty()) {
            miss("\"reply\" for its query");
        }
        const std::string forms = command.set.value_or("") + command.query.value_or("");
        for (const Parameter& parameter : command.parameters) {
            if (forms.find(parameter.name) == std::string::npos) {
                throw Complaint("line " + std::to_string(command.line) + ": " + command.header +
                                " has no form with " + parameter.name);
            }
        }
        for (size_t at = 0; (at = forms.find('<', at)) != std::string::npos; ++at) {
            const std::string name = forms.substr(at, forms.find('>', at) - at + 1);
            bool described = false;
            for (const Parameter& parameter : command.parameters) {
                described = described || parameter.name == name;
            }
            if (!described) {
                miss(("\"param\" for " + name).c_str());
            }
        }
    }

    Descriptions m_all;
    Description* m_command = nullptr; // the current one; valid until the next begins
    std::string* m_go_on = nullptr;   // text of the current field
    int m_line = 0;
};

} // namespace

Descriptions parse_descriptions(const std::string& text)
{
    return Parser().parse(text);
}

} // namespace scpi_reference
