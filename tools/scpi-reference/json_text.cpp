#include "json_text.h"

#include <memory>

#include <cjson/cJSON.h>

namespace scpi_reference {
namespace {

struct Deleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
    void operator()(char* text) const { cJSON_free(text); }
};

// Without the marks around code; the texts have no other Markdown.
std::string plain(const std::string& markdown)
{
    std::string text;
    for (const char c : markdown) {
        text += c == '`' ? std::string() : std::string{c};
    }
    return text;
}

void append(std::string& text, const std::string& more, const char* separator)
{
    text += (text.empty() ? "" : separator) + more;
}

std::string sentence(const std::string& text)
{
    return text.ends_with('.') ? text : text + '.';
}

// "<frequency>: number in hertz ..."; "Reply: the frequency in hertz"
std::string parameters_of(const Description& command)
{
    std::string text;
    if (command.set && !command.set->empty()) {
        append(text, sentence(*command.set), " ");
    }
    for (const Parameter& parameter : command.parameters) {
        append(text, sentence(parameter.name + ": " + plain(parameter.text)), " ");
    }
    for (const std::string& reply : command.replies) {
        append(text, sentence("Reply: " + plain(reply)), " ");
    }
    return text;
}

} // namespace

std::string command_json(const Description& command)
{
    std::string what;
    for (const std::string& paragraph : command.what) {
        append(what, plain(paragraph), " ");
    }
    const std::unique_ptr<cJSON, Deleter> json(cJSON_CreateObject());
    cJSON_AddStringToObject(json.get(), "header", command.header.c_str());
    cJSON_AddBoolToObject(json.get(), "set", command.set.has_value());
    cJSON_AddBoolToObject(json.get(), "query", command.query.has_value());
    cJSON_AddStringToObject(json.get(), "text", what.c_str());
    cJSON_AddStringToObject(json.get(), "parameters", parameters_of(command).c_str());
    return std::unique_ptr<char, Deleter>(cJSON_PrintUnformatted(json.get())).get();
}

} // namespace scpi_reference
