/**
 * A controller's network interfaces: those of a sandbox with four modules, and trees that a test creates.
 */
#ifndef ORVAN_TESTS_USB_LINKS_BENCH_H
#define ORVAN_TESTS_USB_LINKS_BENCH_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orvan_sandbox/sandbox.h"
#include "orvan_sdk/bit/bit_tests.h"

namespace orvan_test {

/** The sandbox's own tree: lo, eth0, and usb0 to usb3 with 192.168.7.2 to 192.168.10.2. The whole program
 *  moves into it with the first case; the cases are skipped where the kernel refuses. */
class SandboxLinks : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;

private:
    static std::filesystem::path s_state;
    static std::optional<orvan_sandbox::Result<orvan_sandbox::Inside>> s_inside;
};

/** An empty /sys/class/net, to be filled by the case. The kernel's interfaces stay those of the sandbox. */
class LaidLinks : public SandboxLinks {
protected:
    void SetUp() override;
    void TearDown() override;

    /** Adds an interface with a device and a link to its driver. */
    void add(const std::string& ifname, const std::string& device = "1-1.1:1.0",
             const std::string& driver = DRIVER_NAME);
    /** Adds the links of usb0.. of the modules named, 1 to 4. */
    void add_modules(const std::vector<int>& modules);

    const std::filesystem::path net = SYS_CLASS_NET;

private:
    bool m_mounted = false;
};

/** The result of a scan with room for `room` links. */
struct Scan {
    explicit Scan(int room = 4);
    int count;
    std::vector<rndis_device_t> rows; // with one past the room
    /** The row of an interface, or null. */
    const rndis_device_t* find(const std::string& ifname) const;
};

} // namespace orvan_test

#endif
