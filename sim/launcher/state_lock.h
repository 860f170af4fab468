#ifndef ORVAN_SIM_LAUNCHER_STATE_LOCK_H
#define ORVAN_SIM_LAUNCHER_STATE_LOCK_H

#include <filesystem>

#include <unique_fd.h>

namespace orvan_launcher {

/**
 * Locks a state directory for as long as the descriptor is open. The kernel releases the lock however the
 * launcher dies, so the lock alone identifies a running instance. Negative with errno EWOULDBLOCK when
 * another process holds it.
 */
orvan_common::UniqueFd lock_state(const std::filesystem::path& state);

/** True while a launcher holds the lock of that state directory. */
bool is_running(const std::filesystem::path& state);

} // namespace orvan_launcher

#endif
