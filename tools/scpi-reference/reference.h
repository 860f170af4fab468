/**
 * The SCPI reference as a document: the command table combined with the descriptions.
 */
#ifndef SCPI_REFERENCE_REFERENCE_H
#define SCPI_REFERENCE_REFERENCE_H

#include <string>

#include "descriptions.h"
#include <scpi/types.h>

namespace scpi_reference {

struct CommandTable {
    const scpi_command_t* rows;        /**< up to a null pattern */
    scpi_command_callback_t forwarded; /**< handler of the rows that a module answers */
};

/**
 * The document in Markdown.
 *
 * @throw Complaint naming the row that has no description, or the description that has no row
 */
std::string render(const Descriptions& descriptions, const CommandTable& table);

/**
 * The commands for programs that help to enter them, as JSON with a command a line: header, forms, what it
 * does, and the parameters of its set form.
 *
 * @throw Complaint as render()
 */
std::string render_json(const Descriptions& descriptions, const CommandTable& table);

/** Describes the first line in which a document differs from what it should be; empty if none. */
std::string difference(const std::string& document, const std::string& wanted);

} // namespace scpi_reference

#endif
