#ifndef ORVAN_SIM_LAUNCHER_STATE_LOCK_H
#define ORVAN_SIM_LAUNCHER_STATE_LOCK_H

#include <filesystem>

#include <unique_fd.h>

namespace orvan_launcher {

/**
 * Takes the lock of a state directory for as long as the descriptor is open. The kernel lets go of it when
 * the launcher dies in whatever way, so that the lock alone tells a running instance. Negative with errno
 * EWOULDBLOCK when another process has it.
 */
UniqueFd lock_state(const std::filesystem::path& state);

/** True while a launcher holds the lock of that state directory. */
bool is_running(const std::filesystem::path& state);

} // namespace orvan_launcher

#endif
