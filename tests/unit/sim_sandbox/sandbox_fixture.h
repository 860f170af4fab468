#ifndef ORVAN_TESTS_UNIT_SIM_SANDBOX_SANDBOX_FIXTURE_H
#define ORVAN_TESTS_UNIT_SIM_SANDBOX_SANDBOX_FIXTURE_H

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "orvan_sandbox/sandbox.h"
#include "support/eventually.h"
#include "support/files.h"

namespace sandbox_test {

/** A temporary directory, removed with the object. */
class TemporaryDirectory {
public:
    /** \param parent  where it is created; /var/tmp for one that is visible in a sandbox */
    explicit TemporaryDirectory(const std::filesystem::path& parent = std::filesystem::temp_directory_path());
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

using orvan_test::eventually;
using orvan_test::read_file;

/** Runs a shell text in a sandbox's role; returns its standard output and error. */
std::string shell(orvan_sandbox::Sandbox& sandbox, orvan_sandbox::Role role, const std::string& text);

/** Starts a sandbox into `sandbox`; skips the test where the kernel refuses one. */
#define START_SANDBOX(sandbox, options)                                                                      \
    auto sandbox##_result = orvan_sandbox::Sandbox::start(options);                                          \
    if (!sandbox##_result && sandbox##_result.error().refused) {                                             \
        GTEST_SKIP() << sandbox##_result.error().text();                                                     \
    }                                                                                                        \
    ASSERT_TRUE(sandbox##_result.ok()) << sandbox##_result.error().text();                                   \
    [[maybe_unused]] orvan_sandbox::Sandbox& sandbox = sandbox##_result.value()

} // namespace sandbox_test

#endif
