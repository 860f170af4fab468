#ifndef ORVAN_WEB_COMMANDS_H
#define ORVAN_WEB_COMMANDS_H

namespace orvan_web {

/** The document of GET /api/v1/commands, made from the command table and the SCPI reference. */
extern const char* const kCommands;

} // namespace orvan_web

#endif
