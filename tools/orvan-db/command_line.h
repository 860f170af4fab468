#ifndef ORVAN_DB_COMMAND_LINE_H
#define ORVAN_DB_COMMAND_LINE_H

namespace orvan_db {

/**
 * The whole program.
 *
 * @param object name of the shared memory object
 * @param stop   a descriptor that becomes readable when --watch is to end; negative for none
 * @return an ExitCode
 */
int run(int argc, const char* const* argv, const char* object, int stop);

} // namespace orvan_db

#endif
