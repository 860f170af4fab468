// The update unit: how it is started, and the files it leaves.

#include <csignal>
#include <thread>

#include <sys/mount.h>

#include "maintenance_firmware_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;

namespace {

const fs::path kInit = kUpgrade / "upgrade_init_done.txt";
const fs::path kDelete = kUpgrade / "upgrade_delete_ver_ready.txt";
const std::string kCleanUp = "[CUdpServer::CleanUpgrdaeFiles] upgrade_clean_files_objects thread start";
const std::string kRemoving = "[upgrade service]: Removing installation files";
const std::string kFailed = "[upgrade service]: software cleanup failed";
const std::string kMarkFound = "[upgrade service]: delete mark found. failed to cleanup files";

/** A private file system over a folder. */
class Mount {
public:
    explicit Mount(const fs::path& folder) : m_folder(folder)
    {
        fs::create_directories(folder);
        m_mounted = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "") == 0;
    }
    ~Mount() { ::umount2(m_folder.c_str(), MNT_DETACH); }
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;
    bool mounted() const { return m_mounted; }
    bool make_read_only()
    {
        return ::mount(nullptr, m_folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

private:
    fs::path m_folder;
    bool m_mounted = false;
};

class MaintenanceUpgrade : public FirmwareTest {
protected:
    /** Replaces `systemctl` by this shell text. */
    static void put_systemctl(const std::string& script)
    {
        write_file(kPrograms / "systemctl",
                   "#!/bin/sh\nprintf '%s\\n' \"systemctl $*\" >>/home/orvan/calls\n" + script + "\n");
        fs::permissions(kPrograms / "systemctl", fs::perms::owner_all);
    }
    static std::string calls() { return read_file("/home/orvan/calls"); }
    std::vector<LogLine> lines_of_launch()
    {
        logs.clear();
        peer.launch_upgrade_service();
        return take_lines();
    }

    /** A start of the server with its thread, and its end once `last` is logged. */
    void start_until(const LogLine& last, bool startup = true)
    {
        constexpr unsigned long kLoopback = 0x0100007F;
        auto started = std::make_unique<CUdpServer>(nullptr, 0, nullptr, nullptr, kLoopback, startup);
        if (!last.text.empty()) {
            EXPECT_TRUE(logs.wait_for(last.priority, last.text));
        }
        const int socket = UdpServerTestPeer{*started}.socket();
        if (socket == -1) { // whose thread ends at once
            started.reset();
            return;
        }
        const int own_port = orvan_test::local_port(socket);
        orvan_test::end_with_frames([&started] { started.reset(); }, own_port);
        ::close(socket);
    }
    /** The log lines of the update, in order. */
    std::vector<LogLine> clean_up_lines()
    {
        std::vector<LogLine> lines;
        for (const LogLine& line : take_lines()) {
            if (line.text.find("pgr") != std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    }
};

/** A server that receives an update and is then ended. */
class ServerOfOneUpdate : public CUdpServer {
public:
    ServerOfOneUpdate() : CUdpServer(nullptr, 0, 0, false) {}
    int64_t WaitForEvent() override { return ++events == 1 ? IF_SUCCESS_RECV_FIRMWARE : LXI_ERROR_INV_RSRC; }
    int events = 0;
};

} // namespace

TEST_F(MaintenanceUpgrade, TheUnitIsStartedThroughSystemd)
{
    put_systemctl("exit 0");
    EXPECT_EQ(lines_of_launch(), std::vector{info("Upgrade service launched successfully")});
    EXPECT_EQ(calls(), "systemctl start orvan-upgrade.service\n");
}

TEST_F(MaintenanceUpgrade, AnExitCodeIsLogged)
{
    for (const int code : {1, 5, 143, 255}) {
        put_systemctl("exit " + std::to_string(code));
        EXPECT_EQ(lines_of_launch(),
                  std::vector{error("Upgrade service exited with code " + std::to_string(code))});
    }
}

TEST_F(MaintenanceUpgrade, AMissingSystemctlIsAnExitCodeToo)
{
    EXPECT_EQ(lines_of_launch(), std::vector{error("Upgrade service exited with code 127")});
}

TEST_F(MaintenanceUpgrade, AStartEndedByASignalCountsAsASuccess)
{
    // A shell may exec the command, so that there is no shell process.
    put_systemctl(
        "read -r parent </proc/$PPID/comm; [ \"$parent\" = sh ] && kill -TERM $PPID; kill -TERM $$");
    EXPECT_EQ(lines_of_launch(), std::vector{info("Upgrade service launched successfully")});
}

TEST_F(MaintenanceUpgrade, AStartWithoutAResultCountsAsAFailedFork)
{
    put_systemctl("exit 0");
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(lines_of_launch(), std::vector{error("Failed to fork for upgrade service")});
    std::signal(SIGCHLD, SIG_DFL);
}

TEST_F(MaintenanceUpgrade, TheInitMarkerIsOneLine)
{
    fs::create_directories(kUpgrade);
    peer.create_init_marker("/home/orvan/halde/upgrade/host_sw/a/patch");
    peer.create_init_marker("/home/orvan/halde/upgrade/host_sw/b/patch");
    EXPECT_EQ(read_file(kInit), "/home/orvan/halde/upgrade/host_sw/b/patch\n");
}

TEST_F(MaintenanceUpgrade, TheStartAfterAnUpdateClearsItsFilesOnce)
{
    write_file(kDelete, "done");
    write_file(kInit, "path\n");
    write_file(kHostSw / "Orvan_Benchtop_FW/patch/install.sh", "");
    write_file(kUpgrade / "orvanx/fpga_image", "image");
    const LogLine done = info("[upgrade service]: software cleanup OK");
    start_until(done);
    EXPECT_EQ(clean_up_lines(), (std::vector{info(kCleanUp), info(kRemoving), done}));
    EXPECT_TRUE(fs::is_empty(kUpgrade));

    write_file(kInit, "path\n");
    start_until({});
    EXPECT_TRUE(clean_up_lines().empty());
    EXPECT_TRUE(fs::exists(kInit));
}

TEST_F(MaintenanceUpgrade, WithoutADeleteMarkerNothingIsCleared)
{
    write_file(kInit, "path\n");
    start_until({});
    EXPECT_TRUE(clean_up_lines().empty());
    EXPECT_TRUE(fs::exists(kInit));
}

TEST_F(MaintenanceUpgrade, AnEmptyDeleteMarkerCountsAsNone)
{
    write_file(kDelete, "");
    start_until({});
    EXPECT_TRUE(clean_up_lines().empty());
    EXPECT_TRUE(fs::exists(kDelete));
}

TEST_F(MaintenanceUpgrade, AServerThatDoesNotStartUpClearsNothing)
{
    write_file(kDelete, "done");
    start_until({}, false);
    EXPECT_TRUE(clean_up_lines().empty());
    EXPECT_TRUE(fs::exists(kDelete));
}

TEST_F(MaintenanceUpgrade, TheShortFormClearsNothing)
{
    write_file(kDelete, "done");
    const CUdpServer other(nullptr, 0, 0x0100007F, true);
    EXPECT_TRUE(clean_up_lines().empty());
    EXPECT_TRUE(fs::exists(kDelete));
    ::close(UdpServerTestPeer{const_cast<CUdpServer&>(other)}.socket());
}

TEST_F(MaintenanceUpgrade, AMarkerThatCannotBeRemovedIsLoggedAtEveryStart)
{
    Mount disk(kUpgrade);
    ASSERT_TRUE(disk.mounted());
    write_file(kDelete, "done");
    ASSERT_TRUE(disk.make_read_only());
    for (int start = 0; start < 2; ++start) {
        start_until(error(kMarkFound));
        EXPECT_EQ(clean_up_lines(),
                  (std::vector{info(kCleanUp), info(kRemoving), error(kFailed), error(kMarkFound)}));
    }
}

TEST_F(MaintenanceUpgrade, AFileThatCannotBeRemovedIsAFailureAndTheMarkerIsRemoved)
{
    const Mount busy(kUpgrade / "busy");
    ASSERT_TRUE(busy.mounted());
    write_file(kDelete, "done");
    start_until(error(kFailed));
    EXPECT_EQ(clean_up_lines(), (std::vector{info(kCleanUp), info(kRemoving), error(kFailed)}));
    EXPECT_FALSE(fs::exists(kDelete));
}

TEST_F(MaintenanceUpgrade, TheThreadStartsTheUnitAfterADownloadAndKeepsServing)
{
    put_systemctl("exit 3");
    ServerOfOneUpdate updated;
    std::thread thread([&updated] { updated.ThreadMain(); });
    thread.join();
    EXPECT_EQ(take_lines(), std::vector{error("Upgrade service exited with code 3")});
    EXPECT_EQ(updated.events, 2);
    EXPECT_EQ(updated.GetState(), 0U);
}
