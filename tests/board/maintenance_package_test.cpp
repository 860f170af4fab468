// What the instrument does with a software package it has received.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <utility>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "maintenance_firmware_bench.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "support/scripted_module.h"
#include <scpi/scpi.h>

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::ModuleAnswer;
using orvan_test::ScriptedModule;

// Provides a user "orvan" and records changes of owner.
namespace {

bool g_has_owner = false;
std::vector<std::string> g_given;

} // namespace

extern "C" passwd* getpwnam(const char* name)
{
    static passwd owner = {};
    owner.pw_uid = 1234;
    owner.pw_gid = 5678;
    return g_has_owner && name == "orvan"s ? &owner : nullptr;
}

extern "C" int chown(const char* path, uid_t owner, gid_t group) noexcept
{
    g_given.push_back(path + " "s + std::to_string(owner) + " " + std::to_string(group));
    return 0;
}

namespace {

using Files = std::map<std::string, std::string>;

const fs::path kWork = "/home/orvan/work";
const fs::path kModuleFolder = kUpgrade / "orvanx";
const fs::path kMarker = kUpgrade / "upgrade_init_done.txt";
const std::string kPackage = "Orvan_Benchtop_FW_2.1";
const std::string kModuleFile = "ovx_module_2.1.tar.gz";
const std::string kImage = "the modules' software";
const std::string kImageRequest = ":SYST:UPD:SOFT #221" + kImage + "\r\n";
const std::string kRestart = ":SYST:REST\r\n";

/** An archive of these files, created by tar with these options. */
std::string archive(const Files& files, const std::string& options = "-z")
{
    const fs::path folder = kWork / "content";
    fs::remove_all(folder);
    for (const auto& [name, contents] : files) {
        write_file(folder / name, contents);
    }
    const fs::path file = kWork / "archive";
    const std::string command = "tar -cf " + file.string() + " " + options + " -C " + folder.string() + " .";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return read_file(file);
}

std::string controller_archive()
{
    return archive({{"patch/install.sh", "exit 0\n"}});
}

/** The files of a valid package. */
Files package(const std::string& folder = kPackage, const std::string& controller = "benchtop_fw_2.1.tar.gz")
{
    return {{folder + "/" + kModuleFile, kImage}, {folder + "/" + controller, controller_archive()}};
}

std::vector<LogLine> operator+(std::vector<LogLine> lines, const std::vector<LogLine>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

std::pair<time_t, long> changed(const fs::path& path)
{
    struct stat info = {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
    return {info.st_ctim.tv_sec, info.st_ctim.tv_nsec};
}

/** Waits until new files get a newer time. */
void wait_until_later_than(const fs::path& path)
{
    const fs::path clock = kWork / "clock";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    do {
        write_file(clock, "");
    } while (changed(clock) <= changed(path) && std::chrono::steady_clock::now() < deadline);
    ASSERT_GT(changed(clock), changed(path));
}

class MaintenancePackage : public FirmwareTest {
protected:
    void SetUp() override
    {
        std::signal(SIGPIPE, SIG_IGN);
        g_has_owner = false;
        g_given.clear();
        FirmwareTest::SetUp();
        Scpi_Orvanx* const service = Scpi_Orvanx::getInstance();
        service->setNumberofChannels(2);
        for (int index = 0; index < kMaxChannels; ++index) {
            const ScriptedModule& module = modules[index % 2];
            service->m_orvanXIp[index] = module.address();
            service->m_OrvanXport[index] = static_cast<uint32_t>(module.port());
        }
        logs.clear();
    }
    void TearDown() override
    {
        delete Scpi_Orvanx::getInstance();
        SCPI_Deinit(&scpi_context);
        FirmwareTest::TearDown();
    }

    /** A download, and the lines after those of the download itself. */
    std::vector<LogLine> lines_after_download(const std::string& file, int64_t expected)
    {
        logs.clear();
        EXPECT_EQ(download(file), expected);
        std::vector<LogLine> lines = take_lines();
        const auto complete = std::find_if(lines.begin(), lines.end(), [](const LogLine& line) {
            return line.text.starts_with("firmware download complete");
        });
        if (complete == lines.end()) {
            ADD_FAILURE() << "the download has not ended";
            return lines;
        }
        lines.erase(lines.begin(), complete + 1);
        return lines;
    }
    /** Expects a download that fails after logging these lines. */
    void expect_failure(const std::string& file, const std::vector<LogLine>& lines)
    {
        EXPECT_EQ(lines_after_download(file, IF_FAILED), lines);
        EXPECT_FALSE(fs::exists(kMarker));
        EXPECT_TRUE(fs::exists(kReceived));
        EXPECT_EQ(reply_to(FrameHeader{"HEID"}.bytes()).substr(0, 4), "HEID"); // it still serves
    }
    std::vector<std::string> requests() const { return modules[0].requests(); }

    static LogLine found_folder(const std::string& folder = kPackage)
    {
        return info("Found FW directory: " + (kHostSw / folder).string());
    }
    static std::vector<LogLine> until_modules(const std::string& folder = kPackage,
                                              const std::string& file = kModuleFile)
    {
        return {
            extraction(true),
            found_folder(folder),
            info("cp " + (kHostSw / folder / file).string() + " /home/orvan/halde/upgrade/orvanx/"),
            info("File copied successfully"),
            info("sendSoftwareUpdateAndRestart start"),
            info("sendSoftwareUpdate start"),
            info("Sending software update to OrvanX module 0"),
            info("Sending software update to OrvanX module 1"),
        };
    }
    static std::vector<LogLine> until_restart(const std::string& folder = kPackage,
                                              const std::string& file = kModuleFile)
    {
        return until_modules(folder, file) +
               std::vector{
                   info("Software update command succeeded. Restart OrvanX modules."),
                   info("sendDeviceRestart start"),
                   info("Sending restart command to OrvanX module 0"),
                   info("Sending restart command to OrvanX module 1"),
               };
    }
    static std::vector<LogLine> until_unpacking(const std::string& folder, const std::string& file,
                                                bool success)
    {
        const fs::path path = kHostSw / folder;
        return until_restart(folder) +
               std::vector{
                   info("Found device FW file: " + (path / file).string()),
                   info("tar -xvf " + (path / file).string() + " -C " + path.string()),
                   info("host_sw Extraction "s + (success ? "success" : "failure")),
               };
    }
    ScriptedModule modules[2];
};

struct Product {
    int type;
    std::string folder;
    std::string archive;
};

class MaintenancePackageOf : public MaintenancePackage, public testing::WithParamInterface<Product> {};

} // namespace

TEST_P(MaintenancePackageOf, ItsPlatformIsSentToTheModulesAndLeftForTheUpdateUnit)
{
    device.device_type_product = GetParam().type;
    const std::string& folder = GetParam().folder;
    const std::string controller = "x_" + GetParam().archive + "_2.1.tar";
    Files files = package(folder, controller);
    for (const char* other : {"portable_fw", "benchtop_fw", "ksr7000_fw"}) {
        if (other != GetParam().archive) {
            files[folder + "/" + other] = "of another platform";
        }
    }

    EXPECT_EQ(lines_after_download(archive(files), IF_SUCCESS_RECV_FIRMWARE),
              until_unpacking(folder, controller, true));
    for (const ScriptedModule& module : modules) {
        EXPECT_EQ(module.requests(), (std::vector{kImageRequest, kRestart}));
    }
    EXPECT_EQ(read_file(kMarker), (kHostSw / folder / "patch").string() + "\n");
    EXPECT_EQ(read_file(kHostSw / folder / "patch/install.sh"), "exit 0\n");
    EXPECT_TRUE(fs::is_empty(kModuleFolder)); // the modules have it
    EXPECT_EQ(client.ready(), "");            // no report of how it ended
    EXPECT_EQ(peer.download_status(), 0);
}
INSTANTIATE_TEST_SUITE_P(Products, MaintenancePackageOf,
                         testing::Values(Product{PortableDevice, "Orvan_Portable_FW", "portable_fw"},
                                         Product{BenchtopDevice, "new_Orvan_Benchtop_FW_2", "benchtop_fw"},
                                         Product{Ksr7000Device, "Orvan_Ksr7000_FW_2", "ksr7000_fw"}));

TEST_F(MaintenancePackage, MayBeAPlainArchive)
{
    EXPECT_EQ(lines_after_download(archive(package(), ""), IF_SUCCESS_RECV_FIRMWARE),
              until_unpacking(kPackage, "benchtop_fw_2.1.tar.gz", true));
}

TEST_F(MaintenancePackage, TheFoldersOfAnUpdateAreOwnedByTheUserOrvan)
{
    g_has_owner = true;
    const std::string file = archive(package());
    const mode_t mask = ::umask(0); // or it would correct the modes
    EXPECT_EQ(download(file), IF_SUCCESS_RECV_FIRMWARE);
    ::umask(mask);
    EXPECT_EQ(g_given, (std::vector<std::string>{"/home/orvan/halde/upgrade/host_sw 1234 5678",
                                                 "/home/orvan/halde/upgrade/orvanx 1234 5678"}));
    for (const fs::path& folder : {kHostSw, kModuleFolder}) {
        EXPECT_EQ(fs::status(folder).permissions(), static_cast<fs::perms>(0755)) << folder;
    }
}

TEST_F(MaintenancePackage, WithoutSuchAUserTheyKeepTheirOwner)
{
    EXPECT_EQ(download(archive(package())), IF_SUCCESS_RECV_FIRMWARE);
    EXPECT_TRUE(g_given.empty());
}

TEST_F(MaintenancePackage, FailsWhenItDoesNotFitOnTheDiskUnpacked)
{
    const SmallDisk disk;
    if (!disk.mounted()) {
        GTEST_SKIP() << "no file system in memory";
    }
    Files files = package();
    files[kPackage + "/filler"] = std::string(300'000, 'x'); // compresses to almost nothing
    const std::string file = archive(files);
    expect_failure(file, {extraction(false)});
    EXPECT_TRUE(read_file(kReceived) == file);
    EXPECT_TRUE(requests().empty());
}

TEST_F(MaintenancePackage, FailsToUnpackWhenItIsNoArchive)
{
    expect_failure("no archive", {extraction(false)});
    expect_failure("", {extraction(false)});
    const std::string whole = archive(package());
    expect_failure(whole.substr(0, whole.size() / 2), {extraction(false)});
    EXPECT_TRUE(requests().empty());
}

TEST_F(MaintenancePackage, WithoutAPlatformFolderIsLoggedWithThePlatformsWord)
{
    const std::vector<LogLine> lines = {
        extraction(true),
        error("Could not find extracted FW directory containing Orvan_Benchtop_FW in "
              "/home/orvan/halde/upgrade/host_sw"),
    };
    expect_failure(archive(package("Orvan_Portable_FW")), lines);
    expect_failure(archive({{"Orvan_Benchtop_FW", "a file"}}), lines);
    expect_failure(archive({{"below/Orvan_Benchtop_FW/" + kModuleFile, kImage}}), lines);
    EXPECT_FALSE(fs::exists(kModuleFolder));
    EXPECT_TRUE(requests().empty());
}

TEST_F(MaintenancePackage, WithoutSoftwareForTheModulesIsLogged)
{
    const std::vector<LogLine> lines = {
        extraction(true),
        found_folder(),
        error("Could not find ovx_module file in /home/orvan/halde/upgrade/host_sw/" + kPackage),
    };
    expect_failure(archive({{kPackage + "/benchtop_fw_2.1.tar.gz", controller_archive()}}), lines);
    expect_failure(archive({{kPackage + "/ovx_module/image", kImage}}), lines); // a folder of that name
    EXPECT_FALSE(fs::exists(kModuleFolder));
}

TEST_F(MaintenancePackage, ThatCannotBeCopiedIsLoggedWithTheCommand)
{
    write_file(kModuleFolder, "no folder");
    const std::string copy =
        "cp " + (kHostSw / kPackage / kModuleFile).string() + " /home/orvan/halde/upgrade/orvanx/";
    expect_failure(archive(package()),
                   {extraction(true), found_folder(), info(copy), error("File copy failed: " + copy)});
    EXPECT_TRUE(requests().empty());
}

TEST_F(MaintenancePackage, AModuleThatRefusesStopsItAndNoneIsRestarted)
{
    modules[0].then(ModuleAnswer::reply("-ERR -250, \"Mass storage error\";+OK\r\n"));
    const std::vector<LogLine> lines = lines_after_download(archive(package()), IF_FAILED);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), error("OrvanX software update failed. Skip restart."));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), error("OrvanX module 0 software update failed")), 1);
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), error("Software update command failed. Skip OrvanX restart.")),
        1);
    for (const ScriptedModule& module : modules) {
        EXPECT_EQ(module.requests(), std::vector{kImageRequest});
    }
    EXPECT_FALSE(fs::exists(kMarker));
    EXPECT_TRUE(fs::exists(kHostSw / kPackage)); // the files stay
}

TEST_F(MaintenancePackage, RemainsOfARefusedPackageAreNotUsedForTheNext)
{
    for (const std::string next : {"Orvan_Benchtop_FW_2.2", "Orvan_Benchtop_FW_10.0"}) {
        modules[0].then(ModuleAnswer::reply("-ERR -250, \"Mass storage error\";+OK\r\n"));
        EXPECT_EQ(download(archive(package())), IF_FAILED);
        wait_until_later_than(kHostSw / kPackage);
        EXPECT_EQ(lines_after_download(archive(package(next)), IF_SUCCESS_RECV_FIRMWARE),
                  until_unpacking(next, "benchtop_fw_2.1.tar.gz", true));
        EXPECT_EQ(read_file(kMarker), (kHostSw / next / "patch").string() + "\n");
        fs::remove_all(kUpgrade);
    }
}

TEST_F(MaintenancePackage, FilesOfARefusedPackageInTheSameFolderAreNotUsedForTheNext)
{
    Files refused = {{kPackage + "/ovx_module_2.0", "old"}, {kPackage + "/benchtop_fw_2.0.tar.gz", "old"}};
    modules[0].then(ModuleAnswer::reply("-ERR -250, \"Mass storage error\";+OK\r\n"));
    EXPECT_EQ(download(archive(refused)), IF_FAILED);
    for (const auto& file : refused) {
        wait_until_later_than(kHostSw / file.first);
    }
    EXPECT_EQ(lines_after_download(archive(package()), IF_SUCCESS_RECV_FIRMWARE),
              until_unpacking(kPackage, "benchtop_fw_2.1.tar.gz", true));
    EXPECT_EQ(modules[1].requests().at(1), kImageRequest);
}

TEST_F(MaintenancePackage, WithoutAControllerArchiveIsLoggedOnceTheModulesAreUpdated)
{
    const std::vector<LogLine> lines =
        until_restart() +
        std::vector{error("Could not find benchtop_fw file in " + (kHostSw / kPackage).string())};
    Files files = {{kPackage + "/" + kModuleFile, kImage}, {kPackage + "/portable_fw.tar.gz", "other"}};
    expect_failure(archive(files), lines);
    files[kPackage + "/benchtop_fw/patch/install.sh"] = "unpacked";
    expect_failure(archive(files), lines);
    EXPECT_EQ(requests(), (std::vector{kImageRequest, kRestart, kImageRequest, kRestart}));
}

TEST_F(MaintenancePackage, AnInvalidControllerArchiveIsLogged)
{
    Files files = package();
    files[kPackage + "/benchtop_fw_2.1.tar.gz"] = "no archive";
    expect_failure(archive(files), until_unpacking(kPackage, "benchtop_fw_2.1.tar.gz", false));
}

TEST_F(MaintenancePackage, APatchIsIgnored)
{
    Files files = package();
    files[kPackage + "/benchtop_fw_2.1.tar.gz"] = archive({{"other/install.sh", "exit 0\n"}});
    EXPECT_EQ(lines_after_download(archive(files), IF_SUCCESS_RECV_FIRMWARE),
              until_unpacking(kPackage, "benchtop_fw_2.1.tar.gz", true));
    EXPECT_EQ(read_file(kMarker), (kHostSw / kPackage / "patch").string() + "\n");
    EXPECT_FALSE(fs::exists(kHostSw / kPackage / "patch"));
}

TEST_F(MaintenancePackage, RemainsOfAFailedUpdateAreFoundWhenTheNextHasNoSuchFolder)
{
    fs::create_directories(kHostSw / "Orvan_Benchtop_FW_1");
    expect_failure(
        archive(package("Orvan_Portable_FW_2")),
        {extraction(true), found_folder("Orvan_Benchtop_FW_1"),
         error("Could not find ovx_module file in /home/orvan/halde/upgrade/host_sw/Orvan_Benchtop_FW_1")});
}

TEST_F(MaintenancePackage, AbsoluteNamesLoseTheirFirstSlash)
{
    const std::string file = archive(package(), "-P --transform 's,^[.]/,/home/orvan/outside/,'");
    expect_failure(file, {extraction(true),
                          error("Could not find extracted FW directory containing Orvan_Benchtop_FW in "
                                "/home/orvan/halde/upgrade/host_sw")});
    EXPECT_FALSE(fs::exists("/home/orvan/outside"));
    EXPECT_TRUE(fs::exists(kHostSw / "home/orvan/outside" / kPackage));
}

TEST_F(MaintenancePackage, NamesThatLeaveTheFolderAreRefused)
{
    expect_failure(archive(package(), "-P --transform 's,^[.]/,../../outside/,'"), {extraction(false)});
    EXPECT_FALSE(fs::exists("/home/orvan/halde/outside"));
    EXPECT_TRUE(requests().empty());
}

TEST_F(MaintenancePackage, ASpaceInANameBreaksTheCommand)
{
    Files files = package();
    files[kPackage + "/a ovx_module"] = kImage;
    const std::string copy =
        "cp " + (kHostSw / kPackage / "a ovx_module").string() + " /home/orvan/halde/upgrade/orvanx/";
    expect_failure(archive(files),
                   {extraction(true), found_folder(), info(copy), error("File copy failed: " + copy)});
}

TEST_F(MaintenancePackage, ASecondUpdateReplacesTheMarker)
{
    EXPECT_EQ(download(archive(package())), IF_SUCCESS_RECV_FIRMWARE);
    EXPECT_EQ(download(archive(package("A_Orvan_Benchtop_FW"))), IF_SUCCESS_RECV_FIRMWARE);
    EXPECT_EQ(read_file(kMarker), (kHostSw / "A_Orvan_Benchtop_FW/patch").string() + "\n");
}
