#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include "sandbox_fixture.h"

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
    EXPECT_EQ(read_file(state.path() / "halde/preset/a"), "from inside\n");
    std::ofstream(state.path() / "halde/json/b") << "from outside\n";
    EXPECT_EQ(shell(sandbox, kController, "cat /home/orvan/halde/json/b"), "from outside\n");
    EXPECT_EQ(fs::exists("/home/orvan/halde/json/b"), false);
}

TEST(SandboxMounts, HaldeHasTheFoldersOfTheInstrument)
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
    EXPECT_NE(read_file(state.path() / "halde/json/ch0.json").find("\"Frequency\": 1000000000"),
              std::string::npos);
    EXPECT_EQ(shell(sandbox, kController, "cat /home/orvan/halde/json/ch0.json"),
              read_file(state.path() / "halde/json/ch0.json"));
}

TEST(SandboxMounts, ContentOfAnExistingStateDirectoryIsKept)
{
    const TemporaryDirectory state;
    fs::create_directories(state.path() / "halde/json");
    std::ofstream(state.path() / "halde/json/ch0.json") << "{}";
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, kController, "cat /home/orvan/halde/json/ch0.json"), "{}");
}

TEST(SandboxMounts, OnlyTheStateDirectoryAndPrivateFoldersCanBeWritten)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 1}));
    std::istringstream mounts(shell(sandbox, kController, "cut -d' ' -f5,6 /proc/self/mountinfo"));
    std::set<std::string> writable;
    std::set<std::string> with_devices;
    std::string place;
    for (std::string flags; mounts >> place >> flags;) {
        flags = "," + flags + ",";
        if (flags.find(",rw,") != std::string::npos) {
            writable.insert(place);
        }
        if (flags.find(",nodev,") == std::string::npos) {
            with_devices.insert(place);
        }
    }
    const std::set<std::string> expected = {
        "/dev/shm",          "/tmp",  "/run",           "/home",          "/root",
        "/home/orvan/halde", "/proc", "/proc/sys/user", "/sys/class/net", state.path()};
    EXPECT_EQ(writable, expected);
    EXPECT_EQ(with_devices, (std::set<std::string>{"/dev/null", "/dev/zero", "/dev/full", "/dev/random",
                                                   "/dev/urandom", "/dev/tty"}));
    EXPECT_EQ(shell(sandbox, kController, "echo x >/dev/null; head -c 2 /dev/zero | wc -c"), "2\n");
}

TEST(SandboxMounts, FilesOfTheMachineAreVisibleAndReadOnly)
{
    const TemporaryDirectory folder("/var/tmp");
    std::ofstream(folder.path() / "file") << "as it was\n";
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const std::string file = (folder.path() / "file").string();
    EXPECT_EQ(shell(sandbox, kController, "cat " + file), "as it was\n");
    EXPECT_NE(shell(sandbox, kController, "echo new >" + file).find("Read-only file system"),
              std::string::npos);
    EXPECT_NE(shell(sandbox, kController, "rm " + file).find("Read-only file system"), std::string::npos);
    EXPECT_EQ(read_file(file), "as it was\n");
}

TEST(SandboxMounts, NoProcessInsideCanMakeTheMachinesFilesWritable)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const auto try_all = [] {
        constexpr unsigned long kRemount = MS_BIND | MS_REMOUNT;
        if (::mount(nullptr, "/", nullptr, kRemount, nullptr) == 0 || errno != EPERM) {
            return 1;
        }
        if (::mount("/", "/tmp", nullptr, MS_BIND, nullptr) == 0) {
            return 2; // without the mounts in it, so that hidden files would show
        }
        if (::mount("/", "/tmp", nullptr, MS_BIND | MS_REC, nullptr) != 0) {
            return 3;
        }
        if (::mount(nullptr, "/tmp", nullptr, kRemount, nullptr) == 0 || ::umount2("/tmp", MNT_DETACH) != 0) {
            return 4;
        }
        for (const char* place : {"/tmp", "/home", "/run", "/proc/sys"}) {
            if (::umount2(place, MNT_DETACH) == 0) {
                return 5;
            }
        }
        return 0;
    };
    EXPECT_EQ(sandbox.run(kController, try_all).value(), 0);
    EXPECT_EQ(
        sandbox.run(kController, [&] { return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 ? try_all() : 6; })
            .value(),
        0);
}

TEST(SandboxMounts, TemporaryFilesArePrivateBothWays)
{
    const TemporaryDirectory state;
    const TemporaryDirectory other;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const std::string folder = other.path().string();
    EXPECT_EQ(shell(sandbox, kController, "ls -d " + folder),
              "ls: cannot access '" + folder + "': No such file or directory\n");
    EXPECT_EQ(
        shell(sandbox, kController, "echo $TMPDIR; mkdir " + folder + " && touch " + folder + "/inside"),
        "/tmp\n");
    EXPECT_FALSE(fs::exists(other.path() / "inside"));
}

TEST(SandboxMounts, TheCallersHomeIsHiddenWhereverItIs)
{
    const TemporaryDirectory home("/var/tmp");
    std::ofstream(home.path() / "secret") << "x";
    const TemporaryDirectory state;
    ::setenv("HOME", home.path().c_str(), 1);
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, kController, "ls -A ~; touch ~/marker"), "");
    EXPECT_FALSE(fs::exists(home.path() / "marker"));
}

TEST(SandboxMounts, AStateDirectoryInTheCallersHomeIsVisibleAndNothingElseThere)
{
    const TemporaryDirectory home("/var/tmp");
    std::ofstream(home.path() / "secret") << "x";
    ::setenv("HOME", home.path().c_str(), 1);
    START_SANDBOX(sandbox, (Options{home.path() / "virtual/instrument", 0}));
    EXPECT_EQ(shell(sandbox, kController, "cd && ls && touch virtual/instrument/a virtual/b"), "virtual\n");
    EXPECT_TRUE(fs::exists(home.path() / "virtual/instrument/a"));
    EXPECT_FALSE(fs::exists(home.path() / "virtual/b"));
}

TEST(SandboxMounts, TheProgramsFolderInAHomeIsVisibleAndReadOnly)
{
    const fs::path program = fs::read_symlink("/proc/self/exe");
    ::setenv("HOME", program.parent_path().c_str(), 1);
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(
        shell(sandbox, kController, "cd && test -x " + program.filename().string() + " && touch marker 2>&1"),
        "touch: cannot touch 'marker': Read-only file system\n");
}

// A sandbox in a sandbox, where the test may create any /home.
TEST(SandboxMounts, HomesAreHiddenAndFilesWrittenThereStayInside)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    ASSERT_EQ(shell(sandbox, kController,
                    "mkdir -p /home/somebody/build /home/orvan/other; echo plain >/home/file;"
                    "echo x >/root/file; echo old >/home/orvan/halde/config/old"),
              "");
    const fs::path inner_state = "/home/somebody/build/state";
    const Result<int> status = sandbox.run(kController, [&] {
        if (::chdir("/home/somebody") != 0) {
            return 10;
        }
        Result<Sandbox> inner = Sandbox::start({inner_state, 0});
        if (!inner) {
            std::fputs(inner.error().text().c_str(), stderr);
            return 11;
        }
        const std::string seen =
            shell(*inner, kController,
                  "ls /home /home/orvan /home/somebody /root /home/orvan/halde/config;"
                  "echo new >/home/somebody/written; echo in >/home/orvan/halde/json/in");
        if (seen != "/home:\norvan\nsomebody\n\n/home/orvan:\nhalde\n\n/home/orvan/halde/config:\n\n"
                    "/home/somebody:\nbuild\n\n/root:\n") {
            std::fputs(seen.c_str(), stderr);
            return 12;
        }
        if (fs::exists("/home/somebody/written")) {
            return 13;
        }
        return read_file(inner_state / "halde/json/in") == "in\n" ? 0 : 14;
    });
    ASSERT_TRUE(status.ok());
    EXPECT_EQ(status.value(), 0);
}

TEST(SandboxMounts, SharedMemoryIsPrivateBothWays)
{
    const std::string name = "/orvan-test-" + std::to_string(::getpid());
    const int fd = ::shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
    ASSERT_GE(fd, 0);
    ::close(fd);
    const TemporaryDirectory state;
    auto check = [&] {
        START_SANDBOX(sandbox, (Options{state.path(), 0}));
        EXPECT_EQ(shell(sandbox, kController, "ls -A /dev/shm"), "");
        const Result<int> made = sandbox.run(kController, [&] {
            return ::shm_open((name + "-inside").c_str(), O_CREAT | O_EXCL | O_RDWR, 0600) >= 0 ? 0 : 1;
        });
        ASSERT_TRUE(made.ok());
        EXPECT_EQ(made.value(), 0);
        EXPECT_LT(shm_open((name + "-inside").c_str(), O_RDWR, 0), 0);
        EXPECT_EQ(shell(sandbox, kController, "ls /dev/shm"), name.substr(1) + "-inside\n");
    };
    check();
    ::shm_unlink(name.c_str());
}

TEST(SandboxMounts, MountsOfTheMachineAreUntouched)
{
    const std::string before = read_file("/proc/self/mountinfo");
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 2}));
    EXPECT_EQ(read_file("/proc/self/mountinfo"), before);
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
    const fs::path folder = "/dev/shm/orvan-test-" + std::to_string(::getpid());
    const auto sandbox = Sandbox::start({folder, 0});
    fs::remove_all(folder);
    ASSERT_FALSE(sandbox.ok());
    EXPECT_FALSE(sandbox.error().refused);
    EXPECT_EQ(sandbox.error().text(), "using " + folder.string() +
                                          " as state directory: it would be hidden (the sandbox has a "
                                          "/dev/shm of its own)");
}

TEST(SandboxMounts, StateDirectoryThatCannotBeCreatedIsAnErrorAndNoRefusal)
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
