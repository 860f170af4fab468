#include <functional>
#include <utility>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>

#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "own_process.h"
#include "timer_tap.h"
#include "update_bench.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

const fs::path kSoftware = kUpgradeFolder / "ovx_module_1.2.3.tar.gz";
const fs::path kFpga = kUpgradeFolder / "fpga_image.bin";
std::function<void()> g_at_sync; // called in place of writing the machine's disks out

const std::string kRestart = ":SYST:REST\r\n";

std::string block(const std::string& image)
{
    const std::string size = std::to_string(image.size());
    return " #" + std::to_string(size.size()) + size + image;
}

/** A public row, whose image is a parameter. */
struct Row {
    const char* header;
    const char* handler;
    const char* module_header;
    fs::path file;
    bool keeps_file; // once it has been sent
    const char* failed;
    const char* logged;
    scpi_command_callback_t function;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.header;
}

const Row kRows[] = {
    {":SYST:UPD:SOFT", "OrvanX_softwareUpdate", ":SYST:UPD:SOFT", kSoftware, false,
     "-223 Failed to update software", "Failed to update orvanx software", OrvanX_softwareUpdate},
    {":SYSTem:UPDate:FPGA", "OrvanX_fpgaUpdate", ":SYST:UPD:FPGA", kFpga, true, "-223 Failed to update fpga",
     "Failed to update orvanx fpga", OrvanX_fpgaUpdate},
};

class ImageUpdate : public UpdateBench, public testing::WithParamInterface<Row> {
protected:
    static std::string request_of(const std::string& image)
    {
        return GetParam().module_header + block(image) + "\r\n";
    }

    /** Sends the row with this image to modules with these answers. */
    std::string update(const std::string& image, const std::string (&answers)[3] = kAllAccept)
    {
        expect_request(request_of(image), answers);
        return ask(GetParam().header + block(image));
    }

    /** A log line of the row's handler. */
    static std::string line(const std::string& said) { return std::string(GetParam().handler) + ": " + said; }
};

class InternalUpdate : public UpdateBench {
protected:
    static constexpr const char* kHeader = ":INT:GUI:UPD:SOFT";
    const Lines rebooted{"sudo reboot"};
};

} // namespace

extern "C" void sync() noexcept
{
    if (g_at_sync) {
        g_at_sync();
    }
}

// ---- the public rows

TEST_P(ImageUpdate, SendsTheMessagesBlockToEveryModule)
{
    const std::string image = image_of(70000);
    EXPECT_EQ(update(image), "+OK\r\n");
    for (int index = 0; index < 3; ++index) {
        EXPECT_EQ(modules[index].requests(), Lines{request_of(image)}) << index;
    }
    EXPECT_EQ(modules[3].connections(), 0u);
    EXPECT_EQ(fs::exists(GetParam().file), GetParam().keeps_file);
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_THAT(stand_ins.calls(), IsEmpty());
}

TEST_P(ImageUpdate, CreatesTheFolderAndStoresTheImageUnderItsFixedName)
{
    fs::remove_all("/home/orvan");
    take_service_away(); // then the file is not picked up
    EXPECT_EQ(ask(GetParam().header + block("a longer one")), "+OK\r\n");
    EXPECT_EQ(contents(GetParam().file), "a longer one");
    EXPECT_EQ(ask(GetParam().header + block(image_of(5))), "+OK\r\n");
    EXPECT_EQ(contents(GetParam().file), image_of(5));
    EXPECT_EQ(std::distance(fs::directory_iterator(kUpgradeFolder), {}), 1);
    EXPECT_EQ(connections(), 0u);
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_P(ImageUpdate, IsOneCommandOfItsMessageLikeAnyOther)
{
    const std::string image = "a\n;*IDN?\r\n#9";
    expect_request(request_of(image), kAllAccept);
    EXPECT_EQ(ask(":SYST:VERS?;" + (GetParam().header + block(image)) + ";:SYST:VERS?"),
              "1999.0;1999.0;+OK\r\n");
    EXPECT_EQ(modules[2].requests(), Lines{request_of(image)});
}

TEST_P(ImageUpdate, TakesABlockByteByByte)
{
    const std::string image = image_of(300);
    expect_request(request_of(image), kAllAccept);
    for (const char byte : GetParam().header + block(image) + "\r\n") {
        feed(std::string(1, byte));
    }
    EXPECT_EQ(read_ready(client.client()), "+OK\r\n");
    EXPECT_EQ(modules[2].requests(), Lines{request_of(image)});
}

TEST_P(ImageUpdate, WithoutABlockQueuesTheReadersErrorWithItsOwnText)
{
    put_image(GetParam().file.filename(), "as it was");
    EXPECT_EQ(ask(GetParam().header), kMissingParameter);
    EXPECT_EQ(take_errors(), Lines{"-109 Parsing failed"});
    EXPECT_EQ(take_error_lines(), Lines{line("data null, data_len = 0. aborting.\n")});
    EXPECT_EQ(ask(GetParam().header + std::string(" 5")).substr(0, 9), "-ERR -128");
    EXPECT_EQ(take_errors(), Lines{"-128 Parsing failed"});
    EXPECT_EQ(take_error_lines(), Lines{line("data null, data_len = 0. aborting.\n")});
    EXPECT_EQ(contents(GetParam().file), "as it was");
    EXPECT_EQ(connections(), 0u);
}

TEST_P(ImageUpdate, RefusesAnEmptyBlockAndLeavesTheFileUnchanged)
{
    put_image(GetParam().file.filename(), "as it was");
    EXPECT_EQ(ask(GetParam().header + std::string(" #10")), kExecutionError);
    EXPECT_EQ(take_errors(), Lines{"-200 "});
    EXPECT_EQ(take_error_lines(), Lines{line("data ok, data_len = 0. aborting.\n")});
    EXPECT_EQ(contents(GetParam().file), "as it was");
    EXPECT_EQ(connections(), 0u);
}

TEST_P(ImageUpdate, FailsWithoutItsOwnErrorWhenTheFileCannotBeStored)
{
    fs::remove_all("/home/orvan/halde/upgrade");
    std::ofstream("/home/orvan/halde/upgrade") << "no folder";
    EXPECT_EQ(ask(GetParam().header + block("abc")), kExecutionError);
    EXPECT_EQ(take_errors(), Lines{"-200 "});
    EXPECT_EQ(take_error_lines(), Lines{"Failed to save file\n"});
    EXPECT_EQ(connections(), 0u);
}

TEST_P(ImageUpdate, ReportsAFailedUpdate)
{
    EXPECT_EQ(update("abc", {kAccepted, kAccepted, kRefused}), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{GetParam().failed});
    EXPECT_EQ(take_error_lines().back(), line(GetParam().logged + std::string("\n")));
    EXPECT_EQ(fs::exists(GetParam().file), GetParam().keeps_file);
}

TEST_P(ImageUpdate, IsLostWithAMessageThatDoesNotFitIntoTheInputBuffer)
{
    feed(GetParam().header + block(std::string(kScpiInputBufferSize, 'x')) + "\r\n");
    EXPECT_EQ(read_ready(client.client()), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    EXPECT_FALSE(fs::exists(GetParam().file));
    EXPECT_EQ(connections(), 0u);
}

class ImageUpdateInTime : public ImageUpdate {
protected:
    void SetUp() override
    {
        ImageUpdate::SetUp();
        if (!IsSkipped()) {
            run_in_own_process();
        }
    }
};

TEST_P(ImageUpdateInTime, IsLostWhenTheNextPieceOfItsBlockIsTooLate)
{
    TimerTap timer;
    const std::string message = GetParam().header + block(image_of(1000)) + "\r\n";
    feed(message.substr(0, 500));
    EXPECT_THAT(timer.calls(), testing::Contains("set 3.000000000"));
    feed(message.substr(500, 100));
    EXPECT_TRUE(timer.armed()) << "each gap counts for itself";
    timer.fire();
    EXPECT_EQ(ask("*IDN?"), "Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK\r\n");
    EXPECT_FALSE(fs::exists(GetParam().file));
    EXPECT_EQ(connections(), 0u);
}

TEST_P(ImageUpdate, WithoutAUserRecordStillNeedsABlock)
{
    EXPECT_EQ(call_without_user_record(GetParam().function), SCPI_RES_ERR);
    EXPECT_FALSE(fs::exists(GetParam().file));
}

INSTANTIATE_TEST_SUITE_P(Rows, ImageUpdate, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.handler); });
INSTANTIATE_TEST_SUITE_P(Rows, ImageUpdateInTime, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.handler); });

using ImagesUpdate = UpdateBench;

TEST_F(ImagesUpdate, FpgaImageBesideAnotherFailsWithoutAnException)
{
    put_image("old_fpga_image.bin", "old");
    EXPECT_EQ(ask(":SYST:UPD:FPGA #13abc"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 Failed to update fpga"});
    EXPECT_EQ(take_error_lines(), Lines{"OrvanX_fpgaUpdate: Failed to update orvanx fpga\n"});
    EXPECT_EQ(contents(kFpga), "abc");
    EXPECT_EQ(connections(), 0u);
}

// ---- the user interface's row

TEST_F(InternalUpdate, SendsTheStoredImageRestartsTheModulesAndRebootsTheController)
{
    put_image("ovx_module_7.tar.gz", "abc");
    const std::string request = ":SYST:UPD:SOFT #13abc\r\n";
    expect_request(request, kAllAccept);
    EXPECT_EQ(ask(kHeader), "+OK\r\n");
    for (int index = 0; index < 3; ++index) {
        EXPECT_EQ(modules[index].requests(), (Lines{request, kRestart})) << index;
    }
    EXPECT_EQ(stand_ins.calls(), rebooted);
    EXPECT_THAT(take_errors(), IsEmpty());
    EXPECT_THAT(take_error_lines(), IsEmpty());
}

TEST_F(InternalUpdate, RestartsAndRebootsEvenIfTheUpdateFailed)
{
    EXPECT_EQ(ask(":GUI:UPDATE:SOFTWARE"), kTooMuchData);
    EXPECT_EQ(take_errors(), Lines{"-223 Failed to update software"});
    EXPECT_EQ(take_error_lines().back(), "OrvanX_internalSWUpdate: Failed to update orvanx software\n");
    for (int index = 0; index < 3; ++index) {
        EXPECT_EQ(modules[index].requests(), Lines{kRestart}) << index;
    }
    EXPECT_EQ(stand_ins.calls(), rebooted);
}

TEST_F(InternalUpdate, RebootsOnceTheModulesAreRestarting)
{
    Lines calls_at_restart{"none yet"};
    modules[2].then(ModuleAnswer::reply_after([&] { calls_at_restart = stand_ins.calls(); }, kAccepted));
    ask(kHeader);
    EXPECT_THAT(calls_at_restart, IsEmpty());
    EXPECT_EQ(stand_ins.calls(), rebooted);
}

TEST_F(InternalUpdate, SyncsTheDisksBetweenTheRestartAndTheReboot)
{
    std::vector<std::pair<size_t, size_t>> seen; // requests to the last module, reboots
    g_at_sync = [&] { seen.emplace_back(modules[2].requests().size(), stand_ins.calls().size()); };
    ask(kHeader);
    g_at_sync = nullptr;
    EXPECT_EQ(seen, (std::vector<std::pair<size_t, size_t>>{{1, 0}}));
}

TEST_F(InternalUpdate, AFailedRebootIsLoggedAndKeepsTheUpdatesResult)
{
    stand_ins.exit_with(1);
    put_image("ovx_module_7.tar.gz", "abc");
    expect_request(":SYST:UPD:SOFT #13abc\r\n", kAllAccept);
    EXPECT_EQ(ask(kHeader), "+OK\r\n");
    EXPECT_EQ(take_error_lines(), Lines{"Failed rebooting the device\n"});
}

TEST_F(InternalUpdate, WithoutAServiceFailsAndDoesNothing)
{
    put_image("ovx_module_7.tar.gz", "abc");
    take_service_away();
    EXPECT_EQ(ask(kHeader), kExecutionError);
    EXPECT_EQ(take_errors(), Lines{"-200 "});
    EXPECT_EQ(call_without_user_record(OrvanX_internalSWUpdate), SCPI_RES_ERR);
    EXPECT_THAT(take_error_lines(), IsEmpty());
    EXPECT_THAT(stand_ins.calls(), IsEmpty());
    EXPECT_EQ(connections(), 0u);
    EXPECT_TRUE(fs::exists(kUpgradeFolder / "ovx_module_7.tar.gz"));
}
