#include <grp.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sandbox_fixture.h"

namespace fs = std::filesystem;
using namespace orvan_sandbox;
using namespace sandbox_test;

namespace {

constexpr uid_t kNobody = 65534;

/** Runs the suites of this program as another user and returns their output. */
std::string run_as_nobody(const fs::path& program, const char* filter, int& status)
{
    const orvan_common::UniqueFd output(::memfd_create("output", MFD_CLOEXEC));
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(output.get(), 1);
        ::dup2(output.get(), 2);
        const bool dropped = setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0;
        if (dropped && ::chdir("/") == 0) {
            ::execl(program.c_str(), program.c_str(), filter, static_cast<char*>(nullptr));
        }
        ::_exit(126);
    }
    status = -1;
    if (child > 0) {
        ::waitpid(child, &status, 0);
    }
    std::string text(1 << 20, '\0');
    const ssize_t count = ::pread(output.get(), text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return text;
}

} // namespace

TEST(OrdinaryUser, AllOtherTestsPassWithoutPrivilege)
{
    if (::geteuid() != 0) {
        // Then the tests already run without privilege.
        SUCCEED();
        return;
    }
    // A world-readable copy, laid out as an installation.
    const TemporaryDirectory folder;
    fs::permissions(folder.path(), fs::perms(0755));
    fs::create_directories(folder.path() / "bin");
    fs::create_directories(folder.path() / "share");
    const fs::path program = folder.path() / "bin/sandbox_tests";
    fs::copy_file("/proc/self/exe", program);
    const auto environment = sandbox_environment("/", 0);
    ASSERT_TRUE(environment.ok());
    const std::string path = environment.value().at("PATH");
    const fs::path stand_ins = path.substr(0, path.find(':'));
    fs::copy(stand_ins.parent_path(), folder.path() / "share/orvan", fs::copy_options::recursive);

    int status = -1;
    const std::string text = run_as_nobody(program, "--gtest_filter=-OrdinaryUser.*", status);
    EXPECT_EQ(status, 0) << text;
    EXPECT_NE(text.find("[  PASSED  ]"), std::string::npos) << text;
    if (text.find("[  SKIPPED ]") != std::string::npos) {
        GTEST_SKIP() << text;
    }
}
