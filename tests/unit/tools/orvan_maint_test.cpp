// The commands of orvan-maint on the network of the machine itself.
#include "maintenance_peer.h"
#include "orvan_maint_bench.h"

#include "orvan-maint/blocks.h"
#include "orvan-maint/console.h"
#include "orvan-maint/failure.h"
#include "orvan-maint/tar_writer.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <sys/eventfd.h>

#include <memory>

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

/** An instrument and the program, which is told where it is. */
struct Scene {
    MaintOutcome run(std::vector<std::string> arguments, const std::string& input = {}, int stop = -1)
    {
        peer = std::make_unique<MaintenancePeer>(model, answers);
        std::vector<std::string> reach = {"--address", "127.0.0.1", "--port", std::to_string(peer->port()),
                                          "--wait",    wait};
        arguments.insert(arguments.begin() + 1, reach.begin(), reach.end());
        const MaintOutcome outcome = run_maint(arguments, input, stop);
        peer->stop();
        return outcome;
    }

    /** The opcodes of the frames that came: "HEID HEIP". */
    std::string came() const
    {
        std::string opcodes;
        for (const Bytes& request : peer->requests)
            opcodes += (opcodes.empty() ? "" : " ") + std::string(request.begin(), request.begin() + 4);
        return opcodes;
    }

    InstrumentModel model;
    std::function<int(size_t)> answers;
    std::string wait = "3000";
    std::unique_ptr<MaintenancePeer> peer;
};

bool has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

std::string padded(const std::string& text)
{
    return text + std::string(FP_MAX_DATA_LEN - text.size(), '\0');
}

std::string good_package()
{
    orvan_maint::TarWriter controller;
    controller.add_folder("patch", 0755, 0);
    controller.add_file("patch/x", "x", 0644, 0);
    orvan_maint::TarWriter package;
    package.add_file("Orvan_Benchtop_FW/ovx_module", std::string(3000, 'm'), 0644, 0);
    package.add_file("Orvan_Benchtop_FW/benchtop_fw.tar", controller.finish(), 0644, 0);
    return package.finish();
}

} // namespace

// ---- looking

TEST(Maint, DiscoverListsWhoAnswers)
{
    Scene scene;
    const MaintOutcome outcome = scene.run({"discover"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "address    hardware address   model     serial number  host name  software\n"
                           "127.0.0.1  02:00:0a:00:00:02  OVX3654B  241107         bench-4    1.19.145\n");
    EXPECT_EQ(scene.came(), "HEID");
    EXPECT_EQ(scene.peer->requests[0].size(), 22U);
}

TEST(Maint, DiscoverGivesJson)
{
    Scene scene;
    const MaintOutcome outcome = scene.run({"discover", "--json"});
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(cJSON_Parse(outcome.out.c_str()),
                                                               cJSON_Delete);
    ASSERT_EQ(cJSON_GetArraySize(json.get()), 1);
    const cJSON* const first = cJSON_GetArrayItem(json.get(), 0);
    for (const auto& [key, value] : {std::pair{"mac", "02:00:0a:00:00:02"},
                                     {"address", "127.0.0.1"},
                                     {"ip_address", "10.0.0.2"},
                                     {"model", "OVX3654B"},
                                     {"scpi_port", "5025"},
                                     {"pld_version", ""}})
        EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(first, key)), value) << key;
    scene.model.is_silent = true;
    scene.wait = "100";
    EXPECT_EQ(scene.run({"discover", "--json"}).out, "[]\n");
}

TEST(Maint, ShowTellsEveryRowInOrder)
{
    Scene scene;
    scene.model.rows['C'] = "\x1b[31m";
    const MaintOutcome outcome = scene.run({"show"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(outcome.out.starts_with("answers at        127.0.0.1\n"
                                        "answers as        02:00:0a:00:00:02\n"
                                        "IP address        10.0.0.2\n"
                                        "network mask      255.255.255.0\n"
                                        "hardware address\n"))
        << outcome.out;
    EXPECT_TRUE(has(outcome.out, "calibration date  \\x1B[31m\n"));
    EXPECT_TRUE(has(scene.run({"show", "--json"}).out, "\"serial_number\":\t\"241107\""));
}

TEST(Maint, ALostRequestIsSentAgain)
{
    Scene scene;
    scene.answers = [](size_t number) { return number == 0 ? 0 : 1; };
    scene.wait = "600";
    EXPECT_EQ(scene.run({"show"}).status, 0);
    EXPECT_EQ(scene.came(), "HEID HEID");
}

TEST(Maint, NoAnswerEndsAfterThreeRequestsWithAReason)
{
    Scene scene;
    scene.model.is_silent = true;
    scene.wait = "150";
    const MaintOutcome outcome = scene.run({"show"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(outcome.err.starts_with("orvan-maint: no instrument answers at 127.0.0.1\n")) << outcome.err;
    EXPECT_EQ(scene.came(), "HEID HEID HEID");
    const MaintOutcome closed = run_maint({"show", "--address", "127.0.0.1", "--port", "1", "--wait", "150"});
    EXPECT_EQ(closed.status, 1);
    EXPECT_TRUE(has(closed.err, "(nothing serves that port there)")) << closed.err;
}

TEST(Maint, AnotherInstrumentThanTheNamedOneIsLeftAlone)
{
    Scene scene;
    scene.wait = "150";
    EXPECT_EQ(scene.run({"show", "--mac", "02:00:0a:00:00:02"}).status, 0);
    const MaintOutcome other = scene.run({"show", "--mac", "02:00:0a:00:00:03"});
    EXPECT_EQ(other.status, 1);
    EXPECT_TRUE(
        has(other.err, "no instrument with the hardware address 02:00:0a:00:00:03 answers at 127.0.0.1"));
}

TEST(Maint, WhatIsWrongWithTheCommandLineIsTold)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
        {{}, "subcommand is required"},
        {{"nope"}, "subcommand is required"},
        // Too long to be asked of any server of names.
        {{"show", "--address", std::string(300, 'x')}, "there is no address xxx"},
        {{"show", "--address", "127.0.0.1", "--interface", "lo"}, "--interface"},
        {{"show", "--mac", "2:3"}, "2:3 is no hardware address"},
        {{"show", "--port", "0"}, "--port"},
        {{"show", "--wait", "99"}, "--wait"},
        {{"set-network", "--address", "127.0.0.1"}, "nothing to change is named"},
        {{"set-factory", "--yes"}, "nothing to change is named"},
        {{"set-network", "--ip", "10.0.0.256"}, "10.0.0.256 is no IPv4 address"},
        {{"set-network", "--ip", "10.0.0.9", "--mask", "255.255.255.0", "--gateway", "10.0.1.1"},
         "is not in the network"},
        {{"set-network", "--host-name", "a b"}, "is no host name"},
        {{"set-factory", "--serial-number", std::string(31, '1')}, "is longer than 30 characters"},
        {{"set-factory", "--model", ""}, "is no text"},
        {{"update"}, "package is required"},
        {{"program", "x", "--no-identify"}, "--no-identify"},
        {{"program", "x", "--channels", "5"}, "--channels"},
        {{"pack", "x", "--platform", "desk", "--module", "m", "--patch", "p"}, "portable, benchtop, ksr7000"},
    };
    for (const auto& [arguments, complaint] : mistakes) {
        const MaintOutcome outcome = run_maint(arguments);
        EXPECT_EQ(outcome.status, 2) << complaint;
        EXPECT_EQ(outcome.out, "") << complaint;
        EXPECT_TRUE(has(outcome.err, complaint)) << complaint << "\n" << outcome.err;
    }
}

TEST(Maint, HelpAndVersionNeedNoInstrument)
{
    EXPECT_EQ(run_maint({"--version"}).out, "orvan-maint " ORVAN_VERSION "\n");
    const MaintOutcome help = run_maint({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* const command :
         {"discover", "show", "set-network", "set-factory", "options", "update", "program", "pack"}) {
        EXPECT_TRUE(has(help.out, command));
        const MaintOutcome own = run_maint({command, "--help"});
        EXPECT_EQ(own.status, 0);
        EXPECT_TRUE(has(own.out, std::string("orvan-maint ") + command));
    }
}

// ---- changing

TEST(Maint, SetNetworkSaysWhatItChangesAndSendsThatAlone)
{
    Scene scene;
    const MaintOutcome outcome = scene.run(
        {"set-network", "--ip", "10.0.0.9", "--gateway", "10.0.0.1", "--host-name", "bench-5"}, "y\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "OVX3654B 241107 at 127.0.0.1 (02:00:0a:00:00:02)\n"
                           "  IP address: 10.0.0.2 -> 10.0.0.9\n"
                           "  gateway:  -> 10.0.0.1\n"
                           "  host name: bench-4 -> bench-5\n"
                           "  the instrument will answer at 10.0.0.9\n"
                           "Go on? [y/N] \n"
                           "stored; show tells it after the instrument's next start\n");
    EXPECT_EQ(scene.came(), "HEID HEIP");
    const Bytes& request = scene.peer->requests[1];
    EXPECT_EQ(request.size(), 22U + 544U);
    EXPECT_EQ(Bytes(request.begin() + 8, request.begin() + 14), (Bytes{2, 0, 10, 0, 0, 2}));
    EXPECT_EQ(scene.model.written,
              (std::map<char, std::string>{
                  {'A', padded("10.0.0.9")}, {'G', padded("10.0.0.1")}, {'H', padded("bench-5")}}));
}

TEST(Maint, SetNetworkTakesBothFormsOfTheAnswer)
{
    Scene scene;
    EXPECT_EQ(scene.run({"set-network", "--yes", "--scpi-port", "5999"}).status, 0);
    EXPECT_EQ(scene.model.written.at('W'), padded("5999"));
    EXPECT_EQ(scene.run({"set-network", "--yes", "--mask", "255.255.0.0"}).status, 0);
    EXPECT_EQ(scene.run({"set-network", "--yes", "--hardware-address", "02:00:5e:10:00:01"}).status, 0);
    EXPECT_EQ(scene.model.written.at('E'), padded("02:00:5e:10:00:01"));
}

TEST(Maint, DhcpIsALetterAndItsConsequencesAreTold)
{
    Scene scene;
    EXPECT_EQ(scene.run({"set-network", "--yes", "--dhcp", "on"}).status, 0);
    EXPECT_EQ(scene.model.written.at('B')[0], 'Y');
    MaintOutcome outcome = scene.run({"set-network", "--yes", "--dhcp", "off"});
    EXPECT_EQ(scene.model.written.at('B')[0], 'N');
    EXPECT_TRUE(
        has(outcome.out, "what is not given of address, mask and gateway stays as it was stored before"));
    scene.model.rows['B'] = "ON";
    outcome = scene.run({"set-network", "--yes", "--ip", "10.0.0.9"});
    EXPECT_TRUE(has(outcome.out, "DHCP was on: the fixed address is stored, and not used while it is"));
    EXPECT_TRUE(has(outcome.out, "DHCP gives the address anew: discover tells it"));
    EXPECT_FALSE(has(outcome.out, "will answer at"));
    EXPECT_FALSE(has(scene.run({"set-network", "--yes", "--scpi-port", "5026"}).out, "anew"));
}

TEST(Maint, WithoutConsentNothingIsSent)
{
    for (const char* const answer : {"n\n", "\n", "", "yess\n", "y"}) {
        Scene scene;
        const MaintOutcome outcome = scene.run({"set-network", "--host-name", "x"}, answer);
        EXPECT_EQ(outcome.status, 6) << answer;
        EXPECT_TRUE(has(outcome.err, "not agreed to, and nothing is sent; --yes agrees in advance"));
        EXPECT_EQ(scene.came(), "HEID");
    }
}

TEST(Maint, AnInterruptionInTheSearchSendsNothing)
{
    Scene scene;
    const int stop = eventfd(1, EFD_CLOEXEC);
    const MaintOutcome outcome = scene.run({"set-network", "--host-name", "x"}, "y\n", stop);
    EXPECT_EQ(outcome.status, 6);
    EXPECT_TRUE(has(outcome.err, "interrupted"));
    EXPECT_TRUE(scene.model.written.empty());
    close(stop);
}

TEST(Maint, AnInterruptionAtTheQuestionIsNoConsent)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "y\n", 2), 2);
    const int own_input = dup(STDIN_FILENO);
    dup2(ends[0], STDIN_FILENO);
    const int stop = eventfd(1, EFD_CLOEXEC);
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_THROW(orvan_maint::agree({"plan"}, false, stop), orvan_maint::Interrupted);
    }
    dup2(own_input, STDIN_FILENO);
    for (const int fd : {own_input, ends[0], ends[1], stop})
        close(fd);
}

TEST(Maint, AChangeWithoutAnAnswerIsNotCalledDone)
{
    Scene scene;
    scene.wait = "150";
    scene.answers = [](size_t number) { return number == 0 ? 1 : 0; };
    const MaintOutcome outcome = scene.run({"set-factory", "--yes", "--serial-number", "7"});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_TRUE(has(outcome.err, "it may have taken the change or not"));
    EXPECT_EQ(scene.came(), "HEID HEOT HEOT HEOT");
}

TEST(Maint, SetFactorySendsItsRows)
{
    Scene scene;
    const MaintOutcome outcome =
        scene.run({"set-factory", "--yes", "--model", "OVX9999B", "--serial-number", "241108",
                   "--calibration-date", "271020", "--host-name", "b", "--pld-version", "1.2"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(has(outcome.out, "  model: OVX3654B -> OVX9999B\n"));
    EXPECT_FALSE(has(outcome.out, "Go on?"));
    EXPECT_EQ(scene.came(), "HEID HEOT");
    EXPECT_EQ(scene.model.written, (std::map<char, std::string>{{'I', padded("OVX9999B")},
                                                                {'S', padded("241108")},
                                                                {'C', padded("271020")},
                                                                {'H', padded("b")},
                                                                {'P', padded("1.2")}}));
    EXPECT_TRUE(
        has(scene.run({"set-factory", "--yes", "--model", "XYZ"}).out, "XYZ is no model that is known here"));
}

TEST(Maint, OptionsAreShownByTheInstrumentsOwnTable)
{
    Scene scene;
    EXPECT_EQ(scene.run({"options"}).out, "option          bits  value\n"
                                          "frequency code  0-3   14\n"
                                          "MOD             4     1\n"
                                          "PLS             5     0\n"
                                          "FIX             6     0      cannot be changed\n"
                                          "LP              7     1\n"
                                          "ULNX            12    0\n"
                                          "word 0x009E\n");
    const MaintOutcome json = scene.run({"options", "--json"});
    EXPECT_TRUE(has(json.out, "\"word\":\t158"));
    EXPECT_EQ(scene.came(), "HEID HECT");
}

TEST(Maint, OptionsAreChangedInOneWord)
{
    Scene scene;
    const MaintOutcome outcome = scene.run({"options", "--set", "PLS,ulnx", "--clear", "MOD"}, "y\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(has(outcome.out, "  option MOD: 1 -> 0\n  option PLS: 0 -> 1\n  option ULNX: 0 -> 1\n"
                                 "  word: 0x009E -> 0x10AE\n"));
    EXPECT_EQ(scene.came(), "HEID HECT HEOT");
    // 0xAE: bits 7 and 5 in the low half mirrored, the code 14 in the high half.
    EXPECT_EQ(scene.model.written.at('O').substr(0, 3), (std::string{'\xE5', '\x08', '\0'}));
}

TEST(Maint, AnOptionThatTheInstrumentHasNotIsRefusedBeforeAnythingIsSent)
{
    Scene scene;
    const MaintOutcome outcome = scene.run({"options", "--yes", "--set", "BAT"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(has(outcome.err, "the instrument has no option BAT"));
    EXPECT_EQ(scene.came(), "HEID HECT");
}

// ---- downloads

TEST(Maint, UpdateBringsAPackageAndWaitsUntilTheInstrumentAnswersAgain)
{
    const TestFolder folder;
    const std::string package = good_package();
    Scene scene;
    scene.model.software_after = "1.20.3";
    const MaintOutcome outcome = scene.run({"update", folder.put("p.tar", package)}, "y\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(scene.model.file == package);
    EXPECT_EQ(scene.model.ended, 1);
    for (const char* const line :
         {"  software: 1.19.145 -> Orvan_Benchtop_FW of ", "  controller: 1 files of benchtop_fw.tar\n",
          "  modules: 3000 bytes of ovx_module, and a restart\n", "Go on? [y/N] ",
          "the package has arrived whole",
          "the instrument has taken the package: its software was 1.19.145 and is 1.20.3\n"})
        EXPECT_TRUE(has(outcome.out, line)) << line << "\n" << outcome.out;
    EXPECT_TRUE(has(outcome.err, "[####################]  100 %")) << outcome.err;
}

TEST(Maint, UpdateThatLeavesTheVersionAsItWasIsNotCalledDone)
{
    const TestFolder folder;
    Scene scene;
    const MaintOutcome outcome =
        scene.run({"update", "--yes", "--after", "1", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 5) << outcome.out;
    EXPECT_EQ(scene.model.ended, 1);
    EXPECT_TRUE(
        has(outcome.out, "dealt with the package and answers again; its software is still 1.19.145\n"))
        << outcome.out;
    EXPECT_TRUE(has(outcome.err, "whether it has taken the package is not known")) << outcome.err;
}

TEST(Maint, UpdateThatIsNotWaitedForIsNotCalledDone)
{
    const TestFolder folder;
    Scene scene;
    scene.model.software_after = "1.20.3";
    const MaintOutcome outcome =
        scene.run({"update", "--yes", "--after", "0", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_EQ(scene.model.ended, 1);
    EXPECT_TRUE(has(outcome.err, "whether the instrument takes the package, show tells")) << outcome.err;
}

TEST(Maint, UpdateThatIsInterruptedBehindItsEndSaysThatAllWasSent)
{
    const TestFolder folder;
    Scene scene;
    const int stop = eventfd(0, EFD_CLOEXEC);
    scene.answers = [stop](size_t number) {
        if (number == 12)
            eventfd_write(stop, 1);
        return number < 12 ? 1 : 0;
    };
    const MaintOutcome outcome =
        scene.run({"update", "--yes", folder.put("p.tar", good_package())}, "", stop);
    EXPECT_EQ(outcome.status, 5) << outcome.err;
    EXPECT_TRUE(has(outcome.err, "the package was sent whole")) << outcome.err;
    EXPECT_EQ(scene.model.ended, 1);
    close(stop);
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
    EXPECT_TRUE(has(outcome.err, "is no tar archive"));
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

TEST(Maint, UpdateGoesByThePackageWhereTheModelTellsNoPlatform)
{
    const TestFolder folder;
    Scene scene;
    scene.model.rows['I'] = "";
    scene.model.software_after = "1.20.3";
    EXPECT_EQ(scene.run({"update", "--yes", folder.put("p.tar", good_package())}).status, 0);
    EXPECT_EQ(scene.model.ended, 1);
}

TEST(Maint, UpdateEndsATransferThatWasBrokenOffBefore)
{
    const TestFolder folder;
    const std::string package = good_package();
    Scene scene;
    scene.wait = "150";
    scene.model.wait_for_block(7);
    scene.model.software_after = "1.20.3";
    const MaintOutcome outcome = scene.run({"update", "--yes", folder.put("p.tar", package)});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(has(outcome.err, "it may be in a download that was broken off"));
    EXPECT_TRUE(scene.model.file == package);
}

TEST(Maint, UpdateThatIsInterruptedLeavesAnInstrumentThatAnswers)
{
    const TestFolder folder;
    Scene scene;
    const int stop = eventfd(0, EFD_CLOEXEC);
    // Identified twice, then the header; the wish for an end comes with the third block.
    scene.answers = [stop](size_t number) {
        if (number == 5)
            eventfd_write(stop, 1);
        return number == 5 ? 0 : 1;
    };
    const MaintOutcome outcome =
        scene.run({"update", "--yes", folder.put("p.tar", good_package())}, "", stop);
    EXPECT_EQ(outcome.status, 6);
    EXPECT_TRUE(has(outcome.err, "interrupted; the instrument has dropped what it had of the package"))
        << outcome.err;
    EXPECT_FALSE(scene.model.in_transfer());
    EXPECT_EQ(scene.model.file.substr(0, 1024), std::string(1024, '\xA5'));
    close(stop);
}

TEST(Maint, UpdateThatIsNotAnsweredAnyMoreIsNotCalledDone)
{
    const TestFolder folder;
    Scene scene;
    scene.answers = [](size_t number) { return number < 12 ? 1 : 0; };
    const MaintOutcome outcome =
        scene.run({"update", "--yes", "--after", "1", folder.put("p.tar", good_package())});
    EXPECT_EQ(outcome.status, 5) << outcome.out << outcome.err;
    EXPECT_EQ(scene.model.ended, 1);
    EXPECT_TRUE(has(outcome.err, "the package has arrived, and the instrument does not answer yet"));
}

TEST(Maint, ProgramTellsOfEveryModule)
{
    const TestFolder folder;
    const std::string image(5000, 'i');
    Scene scene;
    const MaintOutcome outcome = scene.run({"program", folder.put("image", image)}, "y\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(scene.model.image == image);
    EXPECT_TRUE(has(outcome.out, "  modules: all 4 are programmed with "));
    EXPECT_TRUE(has(outcome.out, "module 1: is at work on the image\nmodule 1: done\nmodule 2: is at work"));
    EXPECT_TRUE(
        has(outcome.out, "all modules have taken the image; frames sent again: 0\nrestart the instrument\n"));
}

TEST(Maint, ProgramTellsWhichModuleFailed)
{
    const TestFolder folder;
    Scene scene;
    scene.model.module_ends = {0, LXI_ERROR_TIMEOUT, 0, 0};
    const MaintOutcome outcome = scene.run({"program", "--yes", folder.put("image", "i")});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_TRUE(
        has(outcome.out, "module 1: done\nmodule 2: failed, a module did not answer in time (0x8000010A)\n"));
    EXPECT_TRUE(has(outcome.err, "not every module has taken the image"));
    Scene refused;
    refused.model.module_ends = {0, 0, 0, IF_ERROR_INV_BIN_HEADER_FORMAT};
    EXPECT_EQ(refused.run({"program", "--yes", folder.put("image", "i")}).status, 4);
    Scene silent;
    silent.model.module_silent_from = 1;
    const MaintOutcome aborted = silent.run({"program", "--yes", folder.put("image", "i")});
    EXPECT_EQ(aborted.status, 4);
    EXPECT_TRUE(has(aborted.err, "the instrument gave the stream up at block 1"));
}

TEST(Maint, ProgramNeedsToKnowHowManyModulesThereAre)
{
    const TestFolder folder;
    const std::string image = folder.put("image", "i");
    Scene scene;
    scene.model.rows['I'] = "";
    MaintOutcome outcome = scene.run({"program", "--yes", image});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(has(outcome.err, "does not tell how many modules it has; --channels does"));
    EXPECT_EQ(scene.came(), "HEID");
    scene.model.rows['I'] = "OVX3652B";
    outcome = scene.run({"program", "--yes", "--channels", "4", image});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(has(outcome.err, "OVX3652B has 2 modules"));
    EXPECT_EQ(scene.model.streams, 0);
}

TEST(Maint, ProgramCanGoWithoutAnIdentification)
{
    const TestFolder folder;
    Scene scene;
    const MaintOutcome outcome =
        scene.run({"program", "--yes", "--no-identify", "--channels", "4", folder.put("image", "i")});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(scene.came(), "HEPD HEPD");
    EXPECT_EQ(scene.peer->requests[0][8], 0xFF);
}

TEST(Maint, ProgramThatIsInterruptedSaysHowTheInstrumentIsLeft)
{
    const TestFolder folder;
    Scene scene;
    const int stop = eventfd(0, EFD_CLOEXEC);
    scene.answers = [stop](size_t number) {
        if (number == 2)
            eventfd_write(stop, 1);
        return number == 2 ? 0 : 1;
    };
    const MaintOutcome outcome =
        scene.run({"program", "--yes", folder.put("image", std::string(9000, 'i'))}, "", stop);
    EXPECT_EQ(outcome.status, 6);
    EXPECT_TRUE(has(outcome.err, "the instrument waits for the rest of the image, and answers nothing else"));
    close(stop);
}

TEST(Maint, ProgramThatIsInterruptedInTheBurningDoesNotAskForARestartAtOnce)
{
    const TestFolder folder;
    Scene scene;
    scene.model.module_ends = {0, 0};
    scene.model.confirms = false;
    const int stop = eventfd(0, EFD_CLOEXEC);
    scene.answers = [stop](size_t number) {
        if (number == 2) // behind the search and the only block
            eventfd_write(stop, 1);
        return 1;
    };
    const MaintOutcome outcome = scene.run({"program", "--yes", folder.put("image", "i")}, "", stop);
    EXPECT_EQ(outcome.status, 5);
    EXPECT_TRUE(has(outcome.err, "do not switch off yet")) << outcome.err;
    EXPECT_FALSE(has(outcome.err, "waits for the rest")) << outcome.err;
    close(stop);
}

TEST(Maint, SetNetworkHoldsAValueAgainstThoseThatStay)
{
    Scene scene;
    scene.model.rows['G'] = "10.0.0.1";
    EXPECT_TRUE(has(scene.run({"set-network", "--yes", "--ip", "10.1.0.9"}).out,
                    "  careful: the gateway 10.0.0.1 is not in the network of 10.1.0.9"));
    EXPECT_FALSE(has(scene.run({"set-network", "--yes", "--ip", "10.0.0.9"}).out, "careful"));
}

TEST(Maint, OptionsWithoutATableEndWithAReason)
{
    Scene scene;
    scene.wait = "150";
    scene.answers = [](size_t number) { return number == 0 ? 1 : 0; };
    const MaintOutcome outcome = scene.run({"options"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(has(outcome.err, "the instrument gives no table of options")) << outcome.err;
    EXPECT_EQ(scene.came(), "HEID HECT HECT HECT");
}
