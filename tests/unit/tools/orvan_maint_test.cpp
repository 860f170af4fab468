// The commands of orvan-maint that show and change settings, on the machine's own network.
#include <sys/eventfd.h>

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "orvan-maint/console.h"
#include "orvan-maint/failure.h"
#include "orvan_maint_scene.h"

using namespace HaldeElec::Orvan;
using namespace orvan_test;

// ---- showing

TEST(Maint, DiscoverListsTheInstrumentsThatAnswer)
{
    Scene scene;
    const MaintOutcome outcome = scene.run({"discover"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "address    hardware address   model     serial number  host name  software\n"
                           "127.0.0.1  02:00:0a:00:00:02  OVX3654B  241107         bench-4    1.19.145\n");
    EXPECT_EQ(scene.came(), "HEID");
    EXPECT_EQ(scene.peer->requests[0].size(), 22U);
}

TEST(Maint, DiscoverPrintsJson)
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
                                     {"pld_version", ""}}) {
        EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(first, key)), value) << key;
    }
    scene.model.is_silent = true;
    scene.wait = "100";
    EXPECT_EQ(scene.run({"discover", "--json"}).out, "[]\n");
}

TEST(Maint, ShowPrintsEveryRowInOrder)
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

TEST(Maint, ALostRequestIsRepeated)
{
    Scene scene;
    scene.answers = [](size_t number) { return number == 0 ? 0 : 1; };
    scene.wait = "600";
    EXPECT_EQ(scene.run({"show"}).status, 0);
    EXPECT_EQ(scene.came(), "HEID HEID");
}

TEST(Maint, NoAnswerFailsAfterThreeRequestsWithAReason)
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

TEST(Maint, ErrorsInTheCommandLineAreReported)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
        {{}, "subcommand is required"},
        {{"nope"}, "subcommand is required"},
        // Too long for a name server query.
        {{"show", "--address", std::string(300, 'x')}, "there is no address xxx"},
        {{"show", "--address", "127.0.0.1", "--interface", "lo"}, "--interface"},
        {{"show", "--mac", "2:3"}, "2:3 is not a hardware address"},
        {{"show", "--port", "0"}, "--port"},
        {{"show", "--wait", "99"}, "--wait"},
        {{"set-network", "--address", "127.0.0.1"}, "nothing to change is given"},
        {{"set-factory", "--yes"}, "nothing to change is given"},
        {{"set-network", "--ip", "10.0.0.256"}, "10.0.0.256 is not an IPv4 address"},
        {{"set-network", "--ip", "10.0.0.9", "--mask", "255.255.255.0", "--gateway", "10.0.1.1"},
         "is not in the network"},
        {{"set-network", "--host-name", "a b"}, "is not a host name"},
        {{"set-factory", "--serial-number", std::string(31, '1')}, "is longer than 30 characters"},
        {{"set-factory", "--model", ""}, "is not printable ASCII text"},
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

TEST(Maint, SetNetworkShowsWhatItChangesAndSendsOnlyThat)
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
                           "Continue? [y/N] \n"
                           "stored; show reports it after the instrument's next start\n");
    EXPECT_EQ(scene.came(), "HEID HEIP");
    const Bytes& request = scene.peer->requests[1];
    EXPECT_EQ(request.size(), 22U + 544U);
    EXPECT_EQ(Bytes(request.begin() + 8, request.begin() + 14), (Bytes{2, 0, 10, 0, 0, 2}));
    EXPECT_EQ(scene.model.written,
              (std::map<char, std::string>{
                  {'A', padded("10.0.0.9")}, {'G', padded("10.0.0.1")}, {'H', padded("bench-5")}}));
}

TEST(Maint, SetNetworkAcceptsBothFormsOfTheAnswer)
{
    Scene scene;
    EXPECT_EQ(scene.run({"set-network", "--yes", "--scpi-port", "5999"}).status, 0);
    EXPECT_EQ(scene.model.written.at('W'), padded("5999"));
    EXPECT_EQ(scene.run({"set-network", "--yes", "--mask", "255.255.0.0"}).status, 0);
    EXPECT_EQ(scene.run({"set-network", "--yes", "--hardware-address", "02:00:5e:10:00:01"}).status, 0);
    EXPECT_EQ(scene.model.written.at('E'), padded("02:00:5e:10:00:01"));
}

TEST(Maint, DhcpIsALetterAndItsConsequencesAreExplained)
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
    EXPECT_TRUE(has(outcome.out, "DHCP assigns the address again: discover shows it"));
    EXPECT_FALSE(has(outcome.out, "will answer at"));
    EXPECT_FALSE(has(scene.run({"set-network", "--yes", "--scpi-port", "5026"}).out, "assigns the address"));
}

TEST(Maint, WithoutConsentNothingIsSent)
{
    for (const char* const answer : {"n\n", "\n", "", "yess\n", "y"}) {
        Scene scene;
        const MaintOutcome outcome = scene.run({"set-network", "--host-name", "x"}, answer);
        EXPECT_EQ(outcome.status, 6) << answer;
        EXPECT_TRUE(has(outcome.err, "not confirmed, nothing was sent; --yes skips the question"));
        EXPECT_EQ(scene.came(), "HEID");
    }
}

TEST(Maint, AnInterruptionInTheSearchSendsNothing)
{
    Scene scene;
    const int stop = ::eventfd(1, EFD_CLOEXEC);
    const MaintOutcome outcome = scene.run({"set-network", "--host-name", "x"}, "y\n", stop);
    EXPECT_EQ(outcome.status, 6);
    EXPECT_TRUE(has(outcome.err, "interrupted"));
    EXPECT_TRUE(scene.model.written.empty());
    ::close(stop);
}

TEST(Maint, AnInterruptionAtTheQuestionIsNoConsent)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "y\n", 2), 2);
    const int own_input = ::dup(STDIN_FILENO);
    ::dup2(ends[0], STDIN_FILENO);
    const int stop = ::eventfd(1, EFD_CLOEXEC);
    {
        OutputCapture out(STDOUT_FILENO);
        EXPECT_THROW(orvan_maint::agree({"plan"}, false, stop), orvan_maint::Interrupted);
    }
    ::dup2(own_input, STDIN_FILENO);
    for (const int fd : {own_input, ends[0], ends[1], stop}) {
        ::close(fd);
    }
}

TEST(Maint, AChangeWithoutAnAnswerIsNotReportedAsDone)
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
    EXPECT_FALSE(has(outcome.out, "Continue?"));
    EXPECT_EQ(scene.came(), "HEID HEOT");
    EXPECT_EQ(scene.model.written, (std::map<char, std::string>{{'I', padded("OVX9999B")},
                                                                {'S', padded("241108")},
                                                                {'C', padded("271020")},
                                                                {'H', padded("b")},
                                                                {'P', padded("1.2")}}));
    EXPECT_TRUE(
        has(scene.run({"set-factory", "--yes", "--model", "XYZ"}).out, "XYZ is no model that is known here"));
}

TEST(Maint, OptionsAreShownFromTheInstrumentsOwnTable)
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

TEST(Maint, OptionsAreChangedAsOneWord)
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

TEST(Maint, AnOptionUnknownToTheInstrumentIsRefusedBeforeAnythingIsSent)
{
    Scene scene;
    const MaintOutcome outcome = scene.run({"options", "--yes", "--set", "BAT"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(has(outcome.err, "the instrument has no option BAT"));
    EXPECT_EQ(scene.came(), "HEID HECT");
}

TEST(Maint, SetNetworkChecksAValueAgainstTheUnchangedOnes)
{
    Scene scene;
    scene.model.rows['G'] = "10.0.0.1";
    EXPECT_TRUE(has(scene.run({"set-network", "--yes", "--ip", "10.1.0.9"}).out,
                    "  careful: the gateway 10.0.0.1 is not in the network of 10.1.0.9"));
    EXPECT_FALSE(has(scene.run({"set-network", "--yes", "--ip", "10.0.0.9"}).out, "careful"));
}

TEST(Maint, OptionsWithoutATableFailWithAReason)
{
    Scene scene;
    scene.wait = "150";
    scene.answers = [](size_t number) { return number == 0 ? 1 : 0; };
    const MaintOutcome outcome = scene.run({"options"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(has(outcome.err, "the instrument sends no table of options")) << outcome.err;
    EXPECT_EQ(scene.came(), "HEID HECT HECT HECT");
}
