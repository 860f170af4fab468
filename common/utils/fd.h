/**
 * File calls that retry after signals and complete partial transfers.
 */
#ifndef ORVAN_UTILS_FD_H
#define ORVAN_UTILS_FD_H

#include <cstddef>

#include <fcntl.h>
#include <sys/types.h>

#include "unique_fd.h"

namespace orvan_common {

/** As open(2) with O_CLOEXEC, retried after a signal. */
UniqueFd open_file(const char* path, int flags, mode_t mode = 0);

/** Reads exactly `size` bytes; false on an error or at an early end of file. */
bool read_all(int fd, void* buffer, size_t size);

/** Writes all bytes; false on an error. */
bool write_all(int fd, const void* data, size_t size);

/** As fsync(2), retried after a signal; false on an error. */
bool sync_file(int fd);

} // namespace orvan_common

#endif
