#ifndef ORVAN_SIM_LAUNCHER_RPCBIND_H
#define ORVAN_SIM_LAUNCHER_RPCBIND_H

#include <filesystem>

#include "child.h"
#include "ground.h"

namespace orvan_launcher {

/**
 * Starts Debian's rpcbind in the controller's role, where the service registers VXI-11, and waits until it
 * serves. It runs as the sandbox's root: for an ordinary user there is no other account to change to.
 *
 * \param notify  path for the socket on which it reports that it serves; removed before the return
 * \param log     its standard output and standard error
 */
orvan_sandbox::Result<Child> start_rpcbind(Ground& ground, const std::filesystem::path& notify, int log);

} // namespace orvan_launcher

#endif
