#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_LINK_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_LINK_H

#include <chrono>
#include <string>

namespace orvan_sandbox {

/** Time within which the kernel's side of a link follows a change; by itself it may take a second. */
inline constexpr std::chrono::seconds kLinkPatience{5};

/**
 * Waits until the interface carries packets, or carries none. The kernel learns of a change at the other end
 * late, and drops what is sent until then.
 * \param socket  any datagram socket of the network namespace
 * \return false when kLinkPatience has passed first
 */
bool wait_for_link(int socket, const std::string& interface, bool up);

} // namespace orvan_sandbox

#endif
