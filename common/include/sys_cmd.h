/**
 * Running shell command lines.
 *
 * A line is run by "/bin/sh -c". Its standard input is empty, its standard error is the caller's, its
 * signals are at their defaults, and it inherits no other open descriptor of the caller: a daemon
 * started by a script holds none of the caller's sockets. The calls wait until the shell has ended,
 * without a time limit; background processes of the line keep running. They change nothing in
 * the calling process (no signal handling, no working directory), leave no child unreaped and may run
 * on any number of threads at once.
 *
 * Result of both calls:
 *
 * | Value           | Meaning                                                                  |
 * |-----------------|--------------------------------------------------------------------------|
 * | 0               | success                                                                  |
 * | 1 to 255        | exit code; 126 not executable and 127 not found are the shell's own      |
 * | 128 + n         | ended by signal n                                                        |
 * | -1              | not run, or the result is unknown as the process ignores SIGCHLD         |
 */
#ifndef SYS_CMD_H
#define SYS_CMD_H

#include <cstddef>

/**
 * Runs a command line whose standard output is the caller's.
 *
 * @param command the line; -1 when null
 */
int run_system_cmd(const char* command);

/**
 * Runs a command line and takes its standard output. Output past the buffer is read and dropped, so
 * the line never blocks on output. Output written by a background process after the shell has ended is
 * not waited for.
 *
 * @param command the line; -1 when null
 * @param buffer  receives the output, at most `size` - 1 bytes, and always a terminating zero,
 *                whatever the result
 * @param size    size of `buffer`; -1 with nothing run when `buffer` is null or this is 0
 */
int read_system_cmd(const char* command, char* buffer, size_t size);

#endif
