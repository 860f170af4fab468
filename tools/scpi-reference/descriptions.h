/**
 * The hand-written half of the SCPI reference: descriptions of the commands.
 *
 * The format, line by line:
 *
 *     == Title            begins a section; Markdown up to its first command follows
 *     @ :OUTPut[:STATe]   begins a command, its header as the command table spells it
 *     what     ...        what it does; fields may be repeated and in any order
 *     set      <state>    it has a set form; followed by the parameters, if any
 *     query               it has a query; followed by the parameters, if any
 *     param    <state>    ...     a parameter's name, then its type, unit and range
 *     reply    ...        what the query returns
 *     error    -222 ...   a code and its cause
 *     example             a dialogue with the instrument, "> " a line and "< " its reply; a test
 *                         runs it once, on an instrument with four channels
 *     sample              the same, but its reply varies or it disturbs what follows
 *
 * A line that begins with two spaces continues the field. Text before the first section is the
 * introduction. A line of the form "// ..." is a comment.
 */
#ifndef SCPI_REFERENCE_DESCRIPTIONS_H
#define SCPI_REFERENCE_DESCRIPTIONS_H

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace scpi_reference {

struct Parameter {
    std::string name;
    std::string text;
};

struct Error {
    int code;
    std::string text;
};

struct Dialogue {
    bool held; /**< an example, not a sample */
    std::vector<std::string> lines;
};

struct Description {
    std::string header;
    int line; /**< of the file, for error messages */
    std::vector<std::string> what;
    std::optional<std::string> set; /**< the form's parameters */
    std::optional<std::string> query;
    std::vector<Parameter> parameters;
    std::vector<std::string> replies;
    std::vector<Error> errors;
    std::vector<Dialogue> dialogues;
};

struct Section {
    std::string title;
    std::string text;
    std::vector<Description> commands;
};

struct Descriptions {
    std::string beginning;
    std::vector<Section> sections;
};

/** A text that cannot be read, with its line; or one that does not fit the command table. */
struct Complaint : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** @throw Complaint */
Descriptions parse_descriptions(const std::string& text);

} // namespace scpi_reference

#endif
