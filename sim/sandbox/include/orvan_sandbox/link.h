#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_LINK_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_LINK_H

#include <chrono>
#include <string>

namespace orvan_sandbox {

/** Time-out for the kernel to notice a change of a link, which may take a second. */
inline constexpr std::chrono::seconds kLinkPatience{5};

/**
 * Waits until the interface carries packets, or does not. The kernel notices a change at the other end late,
 * and drops what is sent until then.
 * \param socket  any datagram socket of the network namespace
 * \return false when kLinkPatience expires first
 */
bool wait_for_link(int socket, const std::string& interface, bool up);

} // namespace orvan_sandbox

#endif
