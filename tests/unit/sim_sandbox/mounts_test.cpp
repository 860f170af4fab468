#include "sandbox_fixture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>

namespace fs = std::filesystem;
using namespace orvan_sandbox;
using namespace sandbox_test;

namespace {

const Role kController = Role::controller();

} // namespace

TEST(SandboxMounts, HaldeIsTheFolderOfTheStateDirectory)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, kController, "echo from inside >/home/orvan/halde/preset/a"), "");
    EXPECT_EQ(content_of(state.path() / "halde/preset/a"), "from inside\n");
    std::ofstream(state.path() / "halde/json/b") << "from outside\n";
    EXPECT_EQ(shell(sandbox, kController, "cat /home/orvan/halde/json/b"), "from outside\n");
    EXPECT_EQ(fs::exists("/home/orvan/halde/json/b"), false);
}

TEST(SandboxMounts, HaldeHasTheFoldersOfAnInstrument)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(
        shell(sandbox, kController, "cd /home/orvan/halde && find . -type d | sort | tr '\\n' ' '"),
        ". ./config ./json ./preset ./preset/1 ./preset/2 ./preset/3 ./preset/4 ./upgrade ./upgrade/orvanx ");
}

TEST(SandboxMounts, HaldeHasTheFactorySetup)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_NE(content_of(state.path() / "halde/json/ch0.json").find("\"Frequency\": 1000000000"),
              std::string::npos);
    EXPECT_EQ(shell(sandbox, kController, "cat /home/orvan/halde/json/ch0.json"),
              content_of(state.path() / "halde/json/ch0.json"));
}

TEST(SandboxMounts, ContentOfAnExistingStateDirectoryIsKept)
{
    const TemporaryDirectory state;
    fs::create_directories(state.path() / "halde/json");
    std::ofstream(state.path() / "halde/json/ch0.json") << "{}";
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, kController, "cat /home/orvan/halde/json/ch0.json"), "{}");
}

TEST(SandboxMounts, HomesOfTheMachineStayInPlace)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    for (const auto& entry : fs::directory_iterator("/home")) {
        const Result<int> found = sandbox.run(kController, [&] {
            struct stat status = {};
            return stat(entry.path().c_str(), &status) == 0 ? 0 : 1;
        });
        ASSERT_TRUE(found.ok());
        EXPECT_EQ(found.value(), 0) << entry.path();
    }
}

// A sandbox in a sandbox, as there a test may make any /home it likes.
TEST(SandboxMounts, FilesLinksAndAnotherOrvanFolderInHomeAreSeenAndCanBeWritten)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    ASSERT_EQ(shell(sandbox, kController,
                    "mkdir -p /home/somebody/build /home/orvan/other; ln -s somebody /home/alias;"
                    "echo plain >/home/file; echo old >/home/orvan/halde/config/old"),
              "");
    const fs::path inner_state = "/home/somebody/build/state";
    const Result<int> status = sandbox.run(kController, [&] {
        if (chdir("/home/somebody/build") != 0) {
            return 10;
        }
        Result<Sandbox> inner = Sandbox::start({inner_state, 0});
        if (!inner) {
            std::fputs(inner.error().text().c_str(), stderr);
            return 11;
        }
        const std::string seen = shell(*inner, kController,
                                       "pwd; ls /home; cat /home/file; ls /home/orvan; ls "
                                       "/home/orvan/halde/config; readlink /home/alias;"
                                       "echo new >written; echo in >/home/orvan/halde/json/in");
        if (seen != "/home/somebody/build\nalias\nfile\norvan\nsomebody\nplain\nhalde\nother\nsomebody\n") {
            // Other homes of the machine stand between these.
            for (const char* line : {"alias\n", "somebody\n", "plain\n", "halde\nother\nsomebody\n"}) {
                if (seen.find(line) == std::string::npos) {
                    std::fputs(seen.c_str(), stderr);
                    return 12;
                }
            }
        }
        if (seen.find("old") != std::string::npos || seen.find("/home/somebody/build\n") != 0) {
            return 13;
        }
        const bool written = content_of("/home/somebody/build/written") == "new\n" &&
                             content_of(inner_state / "halde/json/in") == "in\n";
        return written ? 0 : 14;
    });
    ASSERT_TRUE(status.ok());
    EXPECT_EQ(status.value(), 0);
}

TEST(SandboxMounts, SharedMemoryIsPrivateBothWays)
{
    const std::string name = "/orvan-test-" + std::to_string(getpid());
    const int fd = shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
    const TemporaryDirectory state;
    auto check = [&] {
        START_SANDBOX(sandbox, (Options{state.path(), 0}));
        EXPECT_EQ(shell(sandbox, kController, "ls -A /dev/shm"), "");
        const Result<int> made = sandbox.run(kController, [&] {
            return shm_open((name + "-inside").c_str(), O_CREAT | O_EXCL | O_RDWR, 0600) >= 0 ? 0 : 1;
        });
        ASSERT_TRUE(made.ok());
        EXPECT_EQ(made.value(), 0);
        EXPECT_LT(shm_open((name + "-inside").c_str(), O_RDWR, 0), 0);
        EXPECT_EQ(shell(sandbox, kController, "ls /dev/shm"), name.substr(1) + "-inside\n");
    };
    check();
    shm_unlink(name.c_str());
}

TEST(SandboxMounts, MountsOfTheMachineAreUntouched)
{
    const std::string before = content_of("/proc/self/mountinfo");
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 2}));
    EXPECT_EQ(content_of("/proc/self/mountinfo"), before);
    EXPECT_NE(shell(sandbox, kController, "cat /proc/self/mountinfo"), before);
}

TEST(SandboxMounts, WorkingFolderIsKept)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, kController, "pwd"), fs::current_path().string() + "\n");
}

TEST(SandboxMounts, StateDirectoryInSharedMemoryIsRefusedAsItWouldBeHidden)
{
    const fs::path folder = "/dev/shm/orvan-test-" + std::to_string(getpid());
    const auto sandbox = Sandbox::start({folder, 0});
    fs::remove_all(folder);
    ASSERT_FALSE(sandbox.ok());
    EXPECT_FALSE(sandbox.error().refused);
    EXPECT_EQ(sandbox.error().text(), "using " + folder.string() +
                                          " as state directory: it would be hidden (the sandbox has a "
                                          "/dev/shm of its own)");
}

TEST(SandboxMounts, StateDirectoryThatCannotBeMadeIsAnErrorAndNoRefusal)
{
    const TemporaryDirectory folder;
    std::ofstream(folder.path() / "file") << "x";
    const auto sandbox = Sandbox::start({folder.path() / "file", 0});
    ASSERT_FALSE(sandbox.ok());
    EXPECT_FALSE(sandbox.error().refused);
    EXPECT_EQ(sandbox.error().text(),
              "making " + (folder.path() / "file/halde/json").string() + ": Not a directory");
    EXPECT_EQ(Sandbox::start({"", 0}).error().text(), "making the state directory: no name given");
}
