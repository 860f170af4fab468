// The commands of orvan-maint that send files to an instrument, on the machine's own network.
#include <cstdlib>
#include <filesystem>

#include <sys/eventfd.h>

#include <gtest/gtest.h>

#include "orvan-maint/blocks.h"
#include "orvan-maint/gzip.h"
#include "orvan_maint_scene.h"

using namespace HaldeElec::Orvan;
using namespace orvan_test;
using orvan_maint::gzip;

TEST(Maint, UpdateSendsAPackageAndWaitsUntilTheInstrumentAnswersAgain)
{
    const TestFolder folder;
    const std::string package = gzip(good_package());
    Scene scene;
    scene.model.restarts = true;
    scene.model.software_after = "1.20.3";
    const MaintOutcome outcome = scene.run({"update", folder.put("p.tar.gz", package)}, "y\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(scene.model.file == package);
    EXPECT_EQ(scene.model.ended, 1);
    for (const char* const line :
         {"  software: 1.19.145 -> Orvan_Benchtop_FW of ", "  controller: 1 files of benchtop_fw.tar\n",
          "  modules: 7500 bytes of ovx_module, and a restart\n", "Continue? [y/N] ",
          "the whole package has arrived",
          "installed: the instrument went away and came back; its software was 1.19.145 and is 1.20.3\n"}) {
        EXPECT_TRUE(has(outcome.out, line)) << line << "\n" << outcome.out;
    }
    EXPECT_TRUE(has(outcome.err, "[####################]  100 %")) << outcome.err;
}

TEST(Maint, UpdateSendsAnUncompressedArchiveSoThatAnyDamageIsNoticed)
{
    const TestFolder folder;
    Scene scene;
    scene.model.restarts = true;
    scene.model.software_after = "1.20.3";
    const MaintOutcome outcome = scene.run({"update", "--yes", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(has(outcome.out, "  " + std::to_string(scene.model.file.size()) + " bytes are sent\n"))
        << outcome.out;
    // The instrument's result: no error, or the modules' software.
    const auto unpacked = [&folder](const std::string& bytes) {
        std::filesystem::create_directory(folder.path("out"));
        const std::string file = folder.put("arrived", bytes);
        const std::string command = "tar -xf " + file + " -C " + folder.path("out") + " 2>&-";
        return std::system(command.c_str()) == 0 ? folder.get("out/Orvan_Benchtop_FW/ovx_module") : "";
    };
    ASSERT_TRUE(unpacked(scene.model.file) == module_software());
    for (size_t at = 100; at < scene.model.file.size(); at += 300) {
        std::string damaged = scene.model.file;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
        EXPECT_EQ(unpacked(damaged), "") << at;
    }
    // Left by an earlier, longer frame.
    EXPECT_EQ(unpacked(scene.model.file + std::string(500, 'x')), "");
}

TEST(Maint, UpdateReportsADamagedPackage)
{
    const TestFolder folder;
    Scene scene;
    scene.model.stolen_block = 3;
    const MaintOutcome outcome =
        scene.run({"update", "--yes", "--after", "0", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_TRUE(has(outcome.err, "damaged: the instrument took blocks from someone else as well"))
        << outcome.err;
    EXPECT_FALSE(has(outcome.out, "the whole package has arrived")) << outcome.out;
}

TEST(Maint, UpdateToTheSameVersionIsInstalledOnceTheInstrumentRestarted)
{
    const TestFolder folder;
    Scene scene;
    scene.model.busy = 3; // the marks
    scene.model.restarts = true;
    scene.model.away = 1;
    const MaintOutcome outcome = scene.run({"update", "--yes", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_TRUE(has(outcome.out, "installed: the instrument went away and came back; its software is "
                                 "1.19.145, as before\n"))
        << outcome.out;
}

TEST(Maint, UpdateWatchedTooBrieflyIsNotReportedAsRefused)
{
    const TestFolder folder;
    Scene scene;
    const MaintOutcome outcome =
        scene.run({"update", "--yes", "--after", "1", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 5) << outcome.out;
    EXPECT_EQ(scene.model.ended, 1);
    EXPECT_TRUE(has(outcome.out, "processed the package and answers again; whether it restarts shows within "
                                 "35 s\n"))
        << outcome.out;
    EXPECT_TRUE(has(outcome.err, "not known: the instrument answers, and whether it has been restarted"))
        << outcome.err;
}

TEST(Maint, UpdateWithoutWaitingIsNotReportedAsDone)
{
    const TestFolder folder;
    Scene scene;
    scene.model.restarts = true;
    scene.model.software_after = "1.20.3";
    const MaintOutcome outcome =
        scene.run({"update", "--yes", "--after", "0", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_EQ(scene.model.ended, 1);
    EXPECT_TRUE(has(outcome.err, "not known: whether the instrument installs the package, show reports"))
        << outcome.err;
}

TEST(Maint, UpdateInterruptedAfterItsEndReportsThatAllWasSent)
{
    const TestFolder folder;
    Scene scene;
    const int stop = ::eventfd(0, EFD_CLOEXEC);
    scene.answers = [stop](size_t number) {
        if (number == 14) {
            ::eventfd_write(stop, 1);
        }
        return number < 14 ? 1 : 0;
    };
    const MaintOutcome outcome =
        scene.run({"update", "--yes", folder.put("p.tar", good_package())}, "", stop);
    EXPECT_EQ(outcome.status, 5) << outcome.err;
    EXPECT_TRUE(has(outcome.err, "the whole package was sent")) << outcome.err;
    EXPECT_EQ(scene.model.ended, 1);
    ::close(stop);
}

TEST(Maint, UpdateAsksBeforeItEndsADownload)
{
    const TestFolder folder;
    Scene scene;
    scene.wait = "150";
    scene.model.wait_for_block(7);
    const MaintOutcome outcome = scene.run({"update", folder.put("p.tar", good_package())}, "n\n");
    EXPECT_EQ(outcome.status, 6) << outcome.err;
    EXPECT_TRUE(has(outcome.out, "be it another PC's, is ended")) << outcome.out;
    EXPECT_TRUE(scene.model.in_transfer());
    EXPECT_EQ(scene.model.ended, 0);
    EXPECT_TRUE(scene.model.file.empty());
}

TEST(Maint, UpdateSendsNothingOfAPackageThatIsNotForTheInstrument)
{
    const TestFolder folder;
    Scene scene;
    scene.model.rows['I'] = "OVX2751P";
    MaintOutcome outcome = scene.run({"update", "--yes", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_TRUE(has(outcome.err, "has no folder with Orvan_Portable_FW in its name")) << outcome.err;
    EXPECT_EQ(scene.came(), "HEID HEID");
    outcome = scene.run({"update", "--yes", folder.put("text", "no package")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_TRUE(has(outcome.err, "is not a tar archive"));
    EXPECT_EQ(scene.came(), "");
    EXPECT_EQ(scene.run({"update", "--yes", folder.path("nowhere")}).status, 3);
    EXPECT_EQ(scene.run({"update", "--yes", folder.put("empty", "")}).status, 3);
    EXPECT_EQ(scene.run({"update", "--yes", folder.path()}).status, 3);
    EXPECT_EQ(scene.came(), "");
    const std::string large = folder.put("large", "x");
    std::filesystem::resize_file(large, orvan_maint::kLargestDownload + 1);
    outcome = scene.run({"update", "--yes", large});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_TRUE(has(outcome.err, "has 67106817 bytes; a download has at most 67106816")) << outcome.err;
    EXPECT_EQ(scene.came(), "");
}

TEST(Maint, UpdateWarnsOfAnUnusualNameBeforeItAsks)
{
    const TestFolder folder;
    Scene scene;
    MaintOutcome outcome = scene.run({"update", folder.put("p.tar", good_package("ovx_module_2.0"))}, "n\n");
    EXPECT_EQ(outcome.status, 6);
    EXPECT_TRUE(has(outcome.err, "orvan-maint: warning: ovx_module_2.0 is not called ovx_module: "))
        << outcome.err;
    outcome = scene.run({"update", folder.put("p.tar", good_package())}, "n\n");
    EXPECT_EQ(outcome.status, 6);
    EXPECT_FALSE(has(outcome.err, "warning")) << outcome.err;
}

TEST(Maint, UpdateUsesThePackagesPlatformIfTheModelHasNone)
{
    const TestFolder folder;
    Scene scene;
    scene.model.rows['I'] = "";
    scene.model.restarts = true;
    scene.model.software_after = "1.20.3";
    EXPECT_EQ(scene.run({"update", "--yes", folder.put("p.tar", good_package())}).status, 0);
    EXPECT_EQ(scene.model.ended, 1);
}

TEST(Maint, UpdateEndsAnAbortedTransferFirst)
{
    const TestFolder folder;
    const std::string package = gzip(good_package());
    Scene scene;
    scene.wait = "150";
    scene.model.wait_for_block(7);
    scene.model.restarts = true;
    scene.model.software_after = "1.20.3";
    const MaintOutcome outcome = scene.run({"update", "--yes", folder.put("p.tar", package)});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(has(outcome.err, "it may be in an interrupted download"));
    EXPECT_TRUE(scene.model.file == package);
}

TEST(Maint, UpdateThatIsInterruptedLeavesAnInstrumentThatAnswers)
{
    const TestFolder folder;
    Scene scene;
    const int stop = ::eventfd(0, EFD_CLOEXEC);
    // Three identifications, then the header; the interruption comes with the second block.
    scene.answers = [stop](size_t number) {
        if (number == 5) {
            ::eventfd_write(stop, 1);
        }
        return number == 5 ? 0 : 1;
    };
    const MaintOutcome outcome =
        scene.run({"update", "--yes", folder.put("p.tar", good_package())}, "", stop);
    EXPECT_EQ(outcome.status, 6);
    EXPECT_TRUE(has(outcome.err, "interrupted; the instrument has dropped what it had of the package"))
        << outcome.err;
    EXPECT_FALSE(scene.model.in_transfer());
    EXPECT_EQ(scene.model.file.substr(0, 1024), std::string(1024, '\xA5'));
    ::close(stop);
}

TEST(Maint, UpdateNoLongerAnsweredIsNotReportedAsDone)
{
    const TestFolder folder;
    Scene scene;
    scene.answers = [](size_t number) { return number < 14 ? 1 : 0; };
    const MaintOutcome outcome =
        scene.run({"update", "--yes", "--after", "1", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 5) << outcome.out << outcome.err;
    EXPECT_EQ(scene.model.ended, 1);
    EXPECT_TRUE(
        has(outcome.err, "silent: the whole package was sent, and the instrument has not answered since"));
}

TEST(Maint, ProgramReportsEveryModule)
{
    const TestFolder folder;
    const std::string image(5000, 'i');
    Scene scene;
    const MaintOutcome outcome = scene.run({"program", folder.put("image", image)}, "y\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(scene.model.image == image);
    EXPECT_TRUE(has(outcome.out, "  modules: all 4 are programmed with "));
    EXPECT_TRUE(
        has(outcome.out, "module 1: is processing the image\nmodule 1: done\nmodule 2: is processing"));
    EXPECT_TRUE(
        has(outcome.out, "all modules have accepted the image; frames resent: 0\nrestart the instrument\n"));
}

TEST(Maint, ProgramReportsWhichModuleFailed)
{
    const TestFolder folder;
    Scene scene;
    scene.model.module_ends = {0, LXI_ERROR_TIMEOUT, 0, 0};
    const MaintOutcome outcome = scene.run({"program", "--yes", folder.put("image", "i")});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_TRUE(
        has(outcome.out, "module 1: done\nmodule 2: failed, a module did not answer in time (0x8000010A)\n"));
    EXPECT_TRUE(has(outcome.err, "not every module has accepted the image"));
    Scene refused;
    refused.model.module_ends = {0, 0, 0, IF_ERROR_INV_BIN_HEADER_FORMAT};
    EXPECT_EQ(refused.run({"program", "--yes", folder.put("image", "i")}).status, 4);
    Scene silent;
    silent.model.module_silent_from = 1;
    const MaintOutcome aborted = silent.run({"program", "--yes", folder.put("image", "i")});
    EXPECT_EQ(aborted.status, 4);
    EXPECT_TRUE(has(aborted.err, "the instrument abandoned the stream at block 1"));
}

TEST(Maint, ProgramNeedsToKnowHowManyModulesThereAre)
{
    const TestFolder folder;
    const std::string image = folder.put("image", "i");
    Scene scene;
    scene.model.rows['I'] = "";
    MaintOutcome outcome = scene.run({"program", "--yes", image});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(has(outcome.err, "does not say how many modules it has; use --channels"));
    EXPECT_EQ(scene.came(), "HEID");
    scene.model.rows['I'] = "OVX3652B";
    outcome = scene.run({"program", "--yes", "--channels", "4", image});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(has(outcome.err, "OVX3652B has 2 modules"));
    EXPECT_EQ(scene.model.streams, 0);
}

TEST(Maint, ProgramWorksWithoutAnIdentification)
{
    const TestFolder folder;
    Scene scene;
    const MaintOutcome outcome =
        scene.run({"program", "--yes", "--no-identify", "--channels", "4", folder.put("image", "i")});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(scene.came(), "HEPD HEPD");
    EXPECT_EQ(scene.peer->requests[0][8], 0xFF);
}

TEST(Maint, ProgramThatIsInterruptedReportsTheInstrumentsState)
{
    const TestFolder folder;
    Scene scene;
    const int stop = ::eventfd(0, EFD_CLOEXEC);
    scene.answers = [stop](size_t number) {
        if (number == 2) {
            ::eventfd_write(stop, 1);
        }
        return number == 2 ? 0 : 1;
    };
    const MaintOutcome outcome =
        scene.run({"program", "--yes", folder.put("image", std::string(9000, 'i'))}, "", stop);
    EXPECT_EQ(outcome.status, 6);
    EXPECT_TRUE(has(outcome.err, "the instrument waits for the rest of the image, and answers nothing else"));
    ::close(stop);
}

TEST(Maint, ProgramInterruptedWhileBurningDoesNotSuggestARestartAtOnce)
{
    const TestFolder folder;
    Scene scene;
    scene.model.module_ends = {0, 0};
    scene.model.confirms = false;
    const int stop = ::eventfd(0, EFD_CLOEXEC);
    scene.answers = [stop](size_t number) {
        if (number == 2) { // after the search and the only block
            ::eventfd_write(stop, 1);
        }
        return 1;
    };
    const MaintOutcome outcome = scene.run({"program", "--yes", folder.put("image", "i")}, "", stop);
    EXPECT_EQ(outcome.status, 5);
    EXPECT_TRUE(has(outcome.err, "do not switch off yet")) << outcome.err;
    EXPECT_FALSE(has(outcome.err, "waits for the rest")) << outcome.err;
    ::close(stop);
}
