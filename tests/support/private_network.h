/**
 * A private network, for code that uses fixed ports or sends to fixed addresses.
 */
#ifndef ORVAN_TESTS_SUPPORT_PRIVATE_NETWORK_H
#define ORVAN_TESTS_SUPPORT_PRIVATE_NETWORK_H

#include <string>

namespace orvan_test {

/**
 * Moves the calling thread, and those that it starts, into a network namespace with a loopback and nothing
 * else: every port is free, and nothing reaches the machine. It stays there.
 *
 * The first object of a process needs it to have one thread, unless it runs as root or has a PrivateHome.
 */
class PrivateNetwork {
public:
    PrivateNetwork();

    /** Why the kernel does not allow it; empty when the network is there. */
    const std::string& refusal() const { return m_refusal; }

private:
    std::string m_refusal;
};

} // namespace orvan_test

#endif
