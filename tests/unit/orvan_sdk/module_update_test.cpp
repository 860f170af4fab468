#include <cerrno>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <mqueue.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "array_new_tap.h"
#include "readdir_tap.h"
#include "support/output_capture.h"
#include "update_bench.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

const std::string kFpgaName = "fpga_image.bin";
const std::string kSoftwareName = "ovx_module_1.2.3.tar.gz";
const std::string kRestart = ":SYST:REST\r\n";

std::string fpga_request(const std::string& image, const std::string& size)
{
    return ":SYST:UPD:FPGA #" + std::to_string(size.size()) + size + image + "\r\n";
}

std::string software_request(const std::string& image)
{
    const std::string size = std::to_string(image.size());
    return ":SYST:UPD:SOFT #" + std::to_string(size.size()) + size + image + "\r\n";
}

/** A file in the upgrade folder that reports a length of 80 bytes and reads 60. */
class ShortFile {
public:
    explicit ShortFile(const std::string& name)
    {
        mq_attr attributes{};
        attributes.mq_maxmsg = 1;
        attributes.mq_msgsize = 1;
        const std::string queue = "/orvan-update-" + std::to_string(::getpid());
        m_queue = ::mq_open(queue.c_str(), O_CREAT | O_RDWR, 0600, &attributes);
        ::mq_unlink(queue.c_str());
        EXPECT_GE(m_queue, 0);
        fs::create_symlink("/proc/self/fd/" + std::to_string(m_queue), kUpgradeFolder / name);
        EXPECT_EQ(get_file_size((kUpgradeFolder / name).c_str()), 80);
    }
    ~ShortFile() { mq_close(m_queue); }
    ShortFile(const ShortFile&) = delete;
    ShortFile& operator=(const ShortFile&) = delete;

private:
    mqd_t m_queue;
};

class ModuleUpdate : public UpdateBench {
protected:
    /** The operation's own lines; those of a refused reply are the link's. */
    Lines lines(int priority)
    {
        Lines texts;
        for (const LogLine& line : logs.lines()) {
            if (line.priority == priority && !line.text.starts_with("checkOrvanReply")) {
                texts.push_back(line.text);
            }
        }
        return texts;
    }

    Lines fpga_lines(const std::string& header, int sent = 3)
    {
        Lines texts{"sendFPGAUpdateSCPICommandtoOrvanX loop start " + header,
                    "sendFPGAUpdateSCPICommandtoOrvanX loop exit " + header};
        texts.insert(texts.end(), static_cast<size_t>(sent), "sending FPGA command to orvix module");
        texts.emplace_back("sendFPGAUpdateSCPICommandtoOrvanX end ");
        return texts;
    }

    void expect_sent(const std::string& request)
    {
        for (int index = 0; index < 3; ++index) {
            EXPECT_EQ(modules[index].requests(), Lines{request}) << index;
        }
        EXPECT_EQ(modules[3].connections(), 0u) << "not installed";
    }
};

} // namespace

// ---- FPGA image

TEST_F(ModuleUpdate, FpgaImageIsSentToEveryModuleAsOneBlockAndKept)
{
    const std::string image = image_of(70000);
    const fs::path path = put_image(kFpgaName, image);
    const std::string request = fpga_request(image, "70000");
    expect_request(request, kAllAccept);
    EXPECT_TRUE(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    expect_sent(request);
    EXPECT_EQ(contents(path), image);

    const Lines all = lines(LOG_INFO);
    EXPECT_EQ(all.front(), "sendFPGAUpdateSCPICommandtoOrvanX start ");
    // The folder's entries come in the order of the file system.
    const std::string found = "Full path of FPGA File:/home/orvan/halde/upgrade/orvanx/fpga_image.bin";
    EXPECT_THAT((Lines{all.begin() + 1, all.begin() + 5}),
                testing::UnorderedElementsAre(".", "..", kFpgaName, found));
    EXPECT_EQ((Lines{all.begin() + 5, all.end()}), fpga_lines(":SYST:UPD:FPGA #570000"));
    EXPECT_THAT(lines(LOG_ERR), IsEmpty());
}

TEST_F(ModuleUpdate, AHeaderHoldsTheNumberOfDigitsOfTheSize)
{
    for (const size_t size : {0u, 1u, 9u, 10u, 99u, 100u, 1234567u}) {
        const std::string image = image_of(size);
        put_image(kFpgaName, image);
        const std::string request = fpga_request(image, std::to_string(size));
        expect_request(request, kAllAccept);
        EXPECT_TRUE(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
        EXPECT_EQ(modules[0].requests().back(), request) << size;
    }
    EXPECT_TRUE(modules[0].requests().back().starts_with(":SYST:UPD:FPGA #71234567"));
    EXPECT_TRUE(modules[0].requests().front() == ":SYST:UPD:FPGA #10\r\n");
}

TEST_F(ModuleUpdate, FpgaResultIsThatOfTheLastModule)
{
    const struct {
        std::string answers[3];
        bool result;
    } rows[] = {
        {{kRefused, kAccepted, kAccepted}, true},
        {{kRefused, kRefused, kAccepted}, true},
        {{kAccepted, kAccepted, kRefused}, false},
        {{kRefused, kRefused, kRefused}, false},
    };
    put_image(kFpgaName, "abc");
    for (const auto& row : rows) {
        expect_request(fpga_request("abc", "3"), row.answers);
        EXPECT_EQ(orvanx->sendFPGAUpdateSCPICommandtoOrvanX(), row.result) << row.answers[0];
    }
    for (const ScriptedModule& each : {std::cref(modules[0]), std::cref(modules[1]), std::cref(modules[2])}) {
        EXPECT_EQ(each.connections(), std::size(rows));
    }
}

TEST_F(ModuleUpdate, AModuleThatClosesWithoutAReplyHasTakenTheImage)
{
    put_image(kFpgaName, "abc");
    const std::string request = fpga_request("abc", "3");
    for (ScriptedModule& each : modules) {
        ModuleAnswer mute = ModuleAnswer::close_mute();
        mute.request_size = request.size();
        each.then(mute);
    }
    EXPECT_TRUE(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    expect_sent(request);
}

TEST_F(ModuleUpdate, AnFpgaImageIsRecognisedByAWordAnywhereInItsName)
{
    put_image("new-fpga_image-7.rbf", "abc");
    put_image("fpga-image.bin", "no");
    put_image("FPGA_IMAGE.bin", "no");
    expect_request(fpga_request("abc", "3"), kAllAccept);
    EXPECT_TRUE(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    expect_sent(fpga_request("abc", "3"));
}

TEST_F(ModuleUpdate, WithoutAnFpgaImageAnExceptionLeavesTheOperation)
{
    put_image(kSoftwareName, "abc");
    EXPECT_ANY_THROW(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    EXPECT_EQ(lines(LOG_INFO).back(), "sendFPGAUpdateSCPICommandtoOrvanX file not open ");
    fs::remove_all(kUpgradeFolder);
    EXPECT_ANY_THROW(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    EXPECT_EQ(connections(), 0u);
}

TEST_F(ModuleUpdate, AnUpgradeFolderThatCannotBeReadIsLogged)
{
    put_image(kFpgaName, "abc");
    fail_readdir(EOVERFLOW);
    EXPECT_ANY_THROW(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    fail_readdir(0);
    EXPECT_EQ(lines(LOG_INFO),
              (Lines{"sendFPGAUpdateSCPICommandtoOrvanX start ",
                     "readdir(/home/orvan/halde/upgrade/orvanx): Value too large for defined data type",
                     "sendFPGAUpdateSCPICommandtoOrvanX file not open "}));
    EXPECT_EQ(connections(), 0u);
}

TEST_F(ModuleUpdate, AFolderIsNoFpgaImageEvenIfItHasALength)
{
    // A tmpfs refuses to seek to a folder's end; procfs does not.
    fs::create_directory_symlink("/proc/self/task", kUpgradeFolder / "fpga_image.d");
    EXPECT_ANY_THROW(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    EXPECT_EQ(lines(LOG_INFO).back(), "sendFPGAUpdateSCPICommandtoOrvanX file not open ");
    EXPECT_EQ(connections(), 0u);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // a gigabyte, and the sanitizers' copies
TEST_F(ModuleUpdate, ALengthOfTenDigitsMakesAHeaderWithATwoDigitCount)
{
    const fs::path path = put_image(kSoftwareName, "");
    fs::resize_file(path, 1'000'000'000);
    // Decided by the request's length, without sending anything that long.
    refuse_array_of(std::string(":SYST:UPD:SOFT #101000000000\r\n").size() + 1'000'000'000);
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    refuse_array_of(0);
    EXPECT_EQ(lines(LOG_ERR), Lines{"Failed to allocate 1000000030 bytes for SCPI update command"});
    EXPECT_EQ(connections(), 0u);
}
#endif

TEST_F(ModuleUpdate, TwoFpgaImagesMakeAPathThatDoesNotExist)
{
    put_image("fpga_image.1", "abc");
    put_image("fpga_image.2", "abc");
    EXPECT_ANY_THROW(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    const std::string found = "Full path of FPGA File:/home/orvan/halde/upgrade/orvanx/fpga_image.";
    const Lines all = lines(LOG_INFO);
    EXPECT_TRUE(testing::Value(all, testing::Contains(found + "1/fpga_image.2")) ||
                testing::Value(all, testing::Contains(found + "2/fpga_image.1")));
    EXPECT_EQ(all.back(), "sendFPGAUpdateSCPICommandtoOrvanX file not open ");
    EXPECT_EQ(connections(), 0u);
}

TEST_F(ModuleUpdate, AnUnreadableFpgaImageIsStillSentAndItsErrorIsLost)
{
    const ShortFile file(kFpgaName);
    const OutputCapture errors(STDERR_FILENO);
    const size_t request_size = fpga_request(std::string(80, ' '), "80").size();
    for (ScriptedModule& each : modules) {
        each.then(ModuleAnswer::reply_to_block(request_size, kAccepted));
    }
    EXPECT_TRUE(orvanx->sendFPGAUpdateSCPICommandtoOrvanX());
    EXPECT_EQ(errors.text(), "Error: Could not read file!\n");
    const Lines all = lines(LOG_INFO);
    EXPECT_EQ(all[5], "sendFPGAUpdateSCPICommandtoOrvanX file not read ");
    EXPECT_EQ((Lines{all.begin() + 6, all.end()}), fpga_lines(":SYST:UPD:FPGA #280"));
    EXPECT_EQ(modules[0].requests().at(0).substr(79), std::string(20, '\0') + "\r\n");

    orvanx->setNumberofChannels(0);
    EXPECT_FALSE(orvanx->sendFPGAUpdateSCPICommandtoOrvanX()) << "nothing says otherwise";
}

// ---- module software

TEST_F(ModuleUpdate, SoftwareIsSentToEveryModuleAsOneBlockAndItsFileRemoved)
{
    const std::string image = image_of(1234567);
    const fs::path path = put_image(kSoftwareName, image);
    const std::string request = software_request(image);
    EXPECT_TRUE(request.starts_with(":SYST:UPD:SOFT #71234567"));
    expect_request(request, kAllAccept);
    EXPECT_TRUE(orvanx->sendSoftwareUpdate());
    expect_sent(request);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(
        lines(LOG_INFO),
        (Lines{"sendSoftwareUpdate start", "Sending software update to OrvanX module 0",
               "Sending software update to OrvanX module 1", "Sending software update to OrvanX module 2"}));
    EXPECT_THAT(lines(LOG_ERR), IsEmpty());
}

TEST_F(ModuleUpdate, SoftwareIsSentToTheOthersWhenAModuleRefusesAndFails)
{
    const fs::path path = put_image(kSoftwareName, "abc");
    expect_request(software_request("abc"), {kAccepted, kRefused, kAccepted});
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    expect_sent(software_request("abc"));
    EXPECT_FALSE(fs::exists(path)) << "whether or not the modules took it";
    EXPECT_EQ(lines(LOG_ERR), Lines{"OrvanX module 1 software update failed"});
}

TEST_F(ModuleUpdate, SoftwareCountsADeadModuleAsOneThatRefuses)
{
    put_image(kSoftwareName, "abc");
    expect_request(software_request("abc"), kAllAccept);
    const int closed = listen_on_loopback();
    orvanx->m_OrvanXport[0] = static_cast<uint32_t>(local_port(closed));
    ::close(closed);
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR), Lines{"OrvanX module 0 software update failed"});
    EXPECT_EQ(modules[2].requests(), Lines{software_request("abc")});
}

TEST_F(ModuleUpdate, SoftwareIsTheNewestFileWithTheWordAndNoFolder)
{
    fs::create_directory(kUpgradeFolder / "a_ovx_module");
    put_image("c_ovx_module", "second");
    const auto changed = [](const char* name) {
        struct stat file = {};
        EXPECT_EQ(::stat((kUpgradeFolder / name).c_str(), &file), 0);
        return std::pair(file.st_ctim.tv_sec, file.st_ctim.tv_nsec);
    };
    // The file system's clock has steps of some milliseconds.
    for (int tries = 0; tries < 1000; ++tries) {
        put_image("b_ovx_module", "first");
        if (changed("b_ovx_module") > changed("c_ovx_module")) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    put_image("OVX_MODULE", "no");
    expect_request(software_request("first"), kAllAccept);
    EXPECT_TRUE(orvanx->sendSoftwareUpdate());
    expect_sent(software_request("first"));
    EXPECT_TRUE(fs::exists(kUpgradeFolder / "c_ovx_module"));
}

TEST_F(ModuleUpdate, WithoutSoftwareTheFolderIsLoggedAndNothingSent)
{
    const Lines logged{"No OrvanX update file found in /home/orvan/halde/upgrade/orvanx"};
    put_image(kFpgaName, "abc");
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR), logged);
    logs.clear();
    fs::remove_all(kUpgradeFolder);
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR), logged);
    EXPECT_EQ(connections(), 0u);
}

TEST_F(ModuleUpdate, SoftwareThatCannotBeOpenedIsLoggedAndKeptAndNothingIsSent)
{
    const std::string at = kUpgradeFolder / kSoftwareName;
    put_image(kSoftwareName, "");
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR), Lines{"Invalid update file size: " + at});

    logs.clear();
    put_image(kSoftwareName, image_of(4242));
    refuse_array_of(4242);
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR), Lines{"Failed to allocate 4242 bytes for update file"});

    logs.clear();
    refuse_array_of(software_request(image_of(4242)).size());
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR), Lines{"Failed to allocate 4265 bytes for SCPI update command"});

    refuse_array_of(0);
    EXPECT_TRUE(fs::exists(at));
    EXPECT_EQ(connections(), 0u);
}

TEST_F(ModuleUpdate, SoftwareThatCannotBeReadIsLoggedAndKept)
{
    const ShortFile file(kSoftwareName);
    EXPECT_FALSE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR),
              Lines{"Failed to read update file: " + (kUpgradeFolder / kSoftwareName).string()});
    EXPECT_TRUE(fs::is_symlink(kUpgradeFolder / kSoftwareName));
    EXPECT_EQ(connections(), 0u);
}

TEST_F(ModuleUpdate, SoftwareThatCannotBeRemovedIsLoggedAndNoFailure)
{
    const fs::path path = put_image(kSoftwareName, "abc");
    ModuleAnswer thief = ModuleAnswer::reply_to_block(software_request("abc").size(), kAccepted);
    thief.hold = [&] { fs::remove(path); };
    modules[0].then(thief);
    orvanx->setNumberofChannels(1);
    EXPECT_TRUE(orvanx->sendSoftwareUpdate());
    EXPECT_EQ(lines(LOG_ERR), Lines{"failed to remove " + path.string() + ": No such file or directory"});
}

// ---- restart

TEST_F(ModuleUpdate, RestartIsSentToEveryModuleWhateverTheAnswers)
{
    modules[0].then(ModuleAnswer::reply(kRefused));
    modules[1].then(ModuleAnswer::close_at_once());
    EXPECT_TRUE(orvanx->sendDeviceRestart());
    EXPECT_EQ(kRestart.size(), 12u);
    EXPECT_EQ(modules[0].requests(), Lines{kRestart});
    EXPECT_EQ(modules[1].connections(), 1u);
    EXPECT_EQ(modules[2].requests(), Lines{kRestart});
    EXPECT_EQ(modules[3].connections(), 0u);
    EXPECT_EQ(lines(LOG_INFO), (Lines{"sendDeviceRestart start", "Sending restart command to OrvanX module 0",
                                      "Sending restart command to OrvanX module 1",
                                      "Sending restart command to OrvanX module 2"}));
    EXPECT_THAT(lines(LOG_ERR), IsEmpty());
}

TEST_F(ModuleUpdate, AtMostFourModulesAreQueriedHoweverManyAreClaimed)
{
    orvanx->setNumberofChannels(kMaxChannels + 1);
    put_image(kSoftwareName, "abc");
    for (ScriptedModule& each : modules) {
        each.always(ModuleAnswer::reply(kAccepted));
    }
    EXPECT_TRUE(orvanx->sendSoftwareUpdate());
    logs.clear();
    EXPECT_TRUE(orvanx->sendDeviceRestart());
    for (ScriptedModule& each : modules) {
        EXPECT_EQ(each.requests(), (Lines{software_request("abc"), kRestart}));
    }
    EXPECT_EQ(lines(LOG_INFO), (Lines{"sendDeviceRestart start", "Sending restart command to OrvanX module 0",
                                      "Sending restart command to OrvanX module 1",
                                      "Sending restart command to OrvanX module 2",
                                      "Sending restart command to OrvanX module 3"}));
    EXPECT_THAT(lines(LOG_ERR), IsEmpty());
}

TEST_F(ModuleUpdate, ModulesAreRestartedOnceAllHaveTheSoftware)
{
    put_image(kSoftwareName, "abc");
    expect_request(software_request("abc"), kAllAccept);
    EXPECT_TRUE(orvanx->sendSWUpdateToOrvanX());
    for (int index = 0; index < 3; ++index) {
        EXPECT_EQ(modules[index].requests(), (Lines{software_request("abc"), kRestart}));
    }
    const Lines all = lines(LOG_INFO);
    EXPECT_EQ(all.front(), "sendSoftwareUpdateAndRestart start");
    EXPECT_EQ(all[1], "sendSoftwareUpdate start");
    EXPECT_EQ(all[5], "Software update command succeeded. Restart OrvanX modules.");
    EXPECT_EQ(all[6], "sendDeviceRestart start");
}

TEST_F(ModuleUpdate, OneModuleThatRefusesTheSoftwarePreventsTheRestart)
{
    const fs::path path = put_image(kSoftwareName, "abc");
    expect_request(software_request("abc"), {kAccepted, kRefused, kAccepted});
    EXPECT_FALSE(orvanx->sendSWUpdateToOrvanX());
    expect_sent(software_request("abc"));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(lines(LOG_ERR), (Lines{"OrvanX module 1 software update failed",
                                     "Software update command failed. Skip OrvanX restart."}));
}

// ---- get_file_size

TEST_F(ModuleUpdate, FileSizeIsThatOfTheFileOrMinusOne)
{
    EXPECT_EQ(get_file_size(put_image("a", image_of(1000)).c_str()), 1000);
    EXPECT_EQ(get_file_size(put_image("b", "").c_str()), 0);
    EXPECT_EQ(get_file_size((kUpgradeFolder / "none").c_str()), -1);
    ASSERT_EQ(mkfifo((kUpgradeFolder / "pipe").c_str(), 0600), 0);
    const int writer = ::open((kUpgradeFolder / "pipe").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(get_file_size((kUpgradeFolder / "pipe").c_str()), -1) << "no end to go to";
    ::close(writer);
}
