/**
 * A private /home/orvan, for code that uses the fixed paths below it.
 */
#ifndef ORVAN_TESTS_SUPPORT_PRIVATE_HOME_H
#define ORVAN_TESTS_SUPPORT_PRIVATE_HOME_H

#include <string>

namespace orvan_test {

/**
 * Moves the process into a mount namespace in which /home is a file system in memory: it holds the machine's
 * other homes as they are, and no /home/orvan. What a test makes there never reaches the machine.
 *
 * The first object of a process needs it to have one thread, unless it runs as root. /home/orvan is gone
 * again when an object ends.
 *
 *     PrivateHome home;
 *     if (!home.refusal().empty())
 *         GTEST_SKIP() << home.refusal();
 */
class PrivateHome {
public:
    PrivateHome();
    ~PrivateHome();
    PrivateHome(const PrivateHome&) = delete;
    PrivateHome& operator=(const PrivateHome&) = delete;

    /** Why the kernel does not allow it; empty when the home is there. */
    const std::string& refusal() const { return m_refusal; }

private:
    std::string m_refusal;
};

} // namespace orvan_test

#endif
