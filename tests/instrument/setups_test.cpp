// Stored setups end to end: from the records to files, and back to the records and every module.
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "orvan_db.h"
#include "support/sent_setup.h"

using namespace orvan_test;
namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;

bool holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

size_t count(const std::string& text, const std::string& part)
{
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

/** Runs steps on the controller; `around` is shell text that runs the driver as "$@". */
std::string drive(const Instrument& instrument, const Lines& steps, const std::string& around = "\"$@\"")
{
    Lines command{"bash", "-c", around, "drive", program("orvan-setup-driver")};
    command.insert(command.end(), steps.begin(), steps.end());
    const Outcome outcome = instrument.exec("controller", command);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    return outcome.output;
}

constexpr const char* kAllModules = "modules 4 20";

/** Setting one of these also switches a signal on the controller, for which the driver has no device. */
bool needs_a_device(int tag)
{
    return tag == ODT_TRG_SRC || tag == ODT_AM_SRC || tag == ODT_FM_SRC || tag == ODT_RF_OUT;
}

/** A line that sets every element that needs no device; frequency and power differ by channel. */
std::string setting_line(int channel)
{
    std::string line;
    const auto add = [&](const SentElement& element) {
        if (!needs_a_device(element.tag)) {
            line += std::string(element.header) + " " +
                    (element.tag == ODT_FREQ  ? std::to_string(channel) + "500000000"
                     : element.tag == ODT_PWR ? "-1" + std::to_string(channel) + ".5"
                                              : element.value) +
                    ";";
        }
    };
    for (const SentElement& element : kSentValues) {
        add(element);
    }
    for (const SentElement& element : kSentStates) {
        add(element);
    }
    line.pop_back();
    return line;
}

/** A module's answers to the queries of all sent elements. */
std::string state_of_module(const Instrument& instrument, int module)
{
    std::string line;
    for (const SentElement& element : kSentValues) {
        line += std::string(element.header) + "?;";
    }
    for (const SentElement& element : kSentStates) {
        line += std::string(element.header) + "?;";
    }
    line.pop_back();
    return instrument.ask_module(module, line);
}

Lines states_of_modules(const Instrument& instrument)
{
    Lines states;
    for (int module = 1; module <= 4; ++module) {
        states.push_back(state_of_module(instrument, module));
    }
    return states;
}

/** The headers of a module's setup requests, in order. */
Lines setup_headers(const Lines& requests)
{
    Lines headers;
    for (const std::string& request : requests) {
        if (const size_t blank = request.find(' ');
            blank != std::string::npos) { // a query of the start has none
            headers.push_back(request.substr(0, blank));
        }
    }
    return headers;
}

/** Expects this many recalls at a module, each with all values before all states. */
void expect_recalls(const Instrument& instrument, int module, int recalls)
{
    Lines expected;
    for (int i = 0; i < recalls; ++i) {
        for (const SentElement& element : kSentValues) {
            expected.emplace_back(element.header);
        }
        for (const SentElement& element : kSentStates) {
            expected.emplace_back(element.header);
        }
    }
    EXPECT_EQ(setup_headers(instrument.requests(module)), expected) << "module " << module;
}

void expect_result(const std::string& report, const std::string& line)
{
    EXPECT_TRUE(holds(report, "\n" + line + "\n") || report.starts_with(line + "\n")) << line << " in\n"
                                                                                      << report;
}

fs::path preset(const Instrument& instrument, int channel, int setup)
{
    return instrument.state() / "halde/preset" / std::to_string(channel) /
           ("preset-" + std::to_string(setup) + ".json");
}

std::string contents(const fs::path& path)
{
    std::ostringstream all;
    all << std::ifstream(path).rdbuf();
    return all.str();
}

} // namespace

TEST(Setups, AllModulesHoldTheStoredValuesAgainAfterARecall)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Lines steps{kAllModules, "load 0", "restore 1"};
    for (int channel = 1; channel <= 4; ++channel) {
        const std::string number = std::to_string(channel);
        steps.push_back("ch " + number + " " + setting_line(channel));
        for (const auto& [tag, value] : std::map<int, const char*>{{ODT_TRG_SRC, "TIMer"},
                                                                   {ODT_AM_SRC, "EXTernal"},
                                                                   {ODT_FM_SRC, "EXTernal"},
                                                                   {ODT_RF_OUT, "ON"}}) {
            steps.push_back("set " + number + " " + std::to_string(tag) + " " + value);
        }
    }
    steps.emplace_back("store 3");
    steps.emplace_back("recall 3");
    const std::string stored = drive(instrument, steps);
    expect_result(stored, "modules 4 20: 1111");
    EXPECT_EQ(count(stored, ": +OK\n"), 4u) << stored;
    expect_result(stored, "store 3: 0");
    const Lines of_the_setup = states_of_modules(instrument);
    for (int module = 1; module <= 4; ++module) {
        const std::string& state = of_the_setup[static_cast<size_t>(module) - 1];
        EXPECT_TRUE(
            holds(state, ";" + std::to_string(module) + "500000000;-1" + std::to_string(module) + ".5;"))
            << state;
        EXPECT_FALSE(holds(state, "ERR")) << state;
        EXPECT_TRUE(fs::exists(preset(instrument, module, 3)));
        EXPECT_EQ(instrument.ask_module(module, ":TRIG:SOUR?;:AM:SOUR?;:FM:SOUR?;:OUTP?"),
                  "TIM;EXT;EXT;1;+OK");
    }

    // Everything changes: to the factory values, and some elements to values of neither setup.
    Lines change{kAllModules, "load 0"};
    for (int channel = 1; channel <= 4; ++channel) {
        change.push_back("ch " + std::to_string(channel) + " :FREQ 123456;:AM:DEPT 77;:PM ON;:INIT:CONT OFF");
    }
    EXPECT_EQ(count(drive(instrument, change), ": +OK\n"), 4u);
    const Lines changed = states_of_modules(instrument);
    for (size_t module = 0; module < 4; ++module) {
        EXPECT_NE(changed[module], of_the_setup[module]);
    }
    const auto diff = [&](int channel) {
        const std::string file = "/home/orvan/halde/preset/" + std::to_string(channel) + "/preset-3.json";
        const Outcome outcome =
            orvan_db(instrument, {"--setup", file, "--diff", "--channel", std::to_string(channel)});
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        // The temperature is polled repeatedly, whatever was recalled.
        static const std::regex temperature("[^\n]* ODT_TEMP [^\n]*\n");
        return std::regex_replace(outcome.output, temperature, "");
    };
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_TRUE(holds(diff(channel), "123456 -> " + std::to_string(channel) + "500000000\n"));
    }

    for (int module = 1; module <= 4; ++module) {
        instrument.clear_requests(module);
    }
    const std::string recalled = drive(instrument, {kAllModules, "load 0", "recall 3"});
    expect_result(recalled, "recall 3: 0");
    for (int module = 1; module <= 4; ++module) {
        expect_recalls(instrument, module, 2);
    }
    EXPECT_EQ(states_of_modules(instrument), of_the_setup);
    for (int channel = 1; channel <= 4; ++channel) {
        EXPECT_EQ(element(instrument, channel, "freq"), std::to_string(channel) + "500000000");
        EXPECT_EQ(element(instrument, channel, "setup_no"), "3");
        EXPECT_EQ(element(instrument, channel, "chan_stat"), "ON");
        EXPECT_EQ(element(instrument, channel, "if_name"), "\"eth0\"");
        EXPECT_EQ(diff(channel), "");
    }
}

TEST(Setups, AreStoredRecalledAndClearedByClients)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    EXPECT_EQ(client.ask(":INST 2;:FREQ 5000000;:AM:DEPT 77;:AM ON;:INST 4;:FREQ 6000000"), "+OK\r\n");
    EXPECT_EQ(client.ask(":SYST:SET:STOR 3"), "+OK\r\n");
    EXPECT_EQ(client.ask(":FREQ 7000000;:INST 2;:FREQ 8000000;:AM:DEPT 1;:AM OFF"), "+OK\r\n");
    for (int module = 1; module <= 4; ++module) {
        instrument.clear_requests(module);
    }
    EXPECT_EQ(client.ask(":SYST:SET:REC 3"), "+OK\r\n");
    for (int module = 1; module <= 4; ++module) {
        expect_recalls(instrument, module, 1);
    }
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?;:AM:DEPT?;:AM?"), "5000000;77;1;+OK");
    EXPECT_EQ(instrument.ask_module(4, ":FREQ?"), "6000000;+OK");
    EXPECT_EQ(client.ask(":INST?"), "2;+OK\r\n") << "the selection outlives a recall";
    EXPECT_EQ(client.ask(":SYST:SET:CLE 3"), "+OK\r\n");
    EXPECT_FALSE(fs::exists(preset(instrument, 2, 3)));
    EXPECT_EQ(client.ask(":SYST:SET:REC 3").substr(0, 4), "-ERR");
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?"), "5000000;+OK");
}

TEST(Setups, AreLoadedAtStartUpOrTheFactorySetupIfAFileIsMissing)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    drive(instrument, {kAllModules, "load 0", "ch 1 :FREQ 5000000", "ch 4 :FREQ 6000000", "store 2",
                       "ch 1 :FREQ 7000000"});
    expect_result(drive(instrument, {kAllModules, "load 2"}), "load 2: 0");
    EXPECT_EQ(instrument.ask_module(1, ":FREQ?"), "5000000;+OK");
    EXPECT_EQ(instrument.ask_module(4, ":FREQ?"), "6000000;+OK");

    fs::remove(preset(instrument, 3, 2));
    const std::string report = drive(instrument, {kAllModules, "load 2"});
    expect_result(report, "load 2: 0");
    EXPECT_TRUE(holds(report, "Validation Failed: Config 2 missing for Module 3\n")) << report;
    for (int module = 1; module <= 4; ++module) {
        EXPECT_EQ(instrument.ask_module(module, ":FREQ?"), "1000000000;+OK");
    }
}

TEST(Setups, TheServiceSendsTheFactorySetupToTheModulesThatAnswer)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--model", "OVX3652B"});
    for (int module = 1; module <= 2; ++module) {
        expect_recalls(instrument, module, 1);
        instrument.clear_requests(module);
    }
    ASSERT_TRUE(instrument.reboot());
    for (int module = 1; module <= 2; ++module) {
        expect_recalls(instrument, module, 1);
    }
}

TEST(Setups, ADeadModuleIsMarkedAndSkippedAndTheOthersGetTheirs)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    drive(instrument, {kAllModules, "load 0", "ch 2 :FREQ 5000000", "ch 3 :FREQ 6000000", "store 1"});
    ASSERT_EQ(instrument.ctl({"module", "2", "kill"}).status, 0);
    for (int module : {1, 3, 4}) {
        instrument.clear_requests(module);
    }
    const std::string report = drive(instrument, {"modules 4 1", "load 1"});
    expect_result(report, "modules 4 1: 1011");
    expect_result(report, "load 1: 0");
    for (int module : {1, 3, 4}) {
        expect_recalls(instrument, module, 1);
        EXPECT_EQ(element(instrument, module, "chan_stat"), "ON");
    }
    EXPECT_EQ(count(report, "sent: -ERR Unable to connect"), 0u) << report;
    EXPECT_EQ(element(instrument, 2, "chan_stat"), "OFF");
    EXPECT_EQ(element(instrument, 2, "freq"), "5000000") << "still loaded";

    // It returns with its own state, and gets the setup with the next recall.
    ASSERT_EQ(instrument.ctl({"module", "2", "start"}).status, 0);
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?"), "1000000000;+OK");
    drive(instrument, {kAllModules, "load 1"});
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?"), "5000000;+OK");
    EXPECT_EQ(element(instrument, 2, "chan_stat"), "ON");
}

TEST(Setups, AModuleThatDiedUnnoticedCostsARequestPerElementAndIsReported)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    ASSERT_EQ(instrument.ctl({"module", "2", "kill"}).status, 0);
    for (int module : {1, 3, 4}) {
        instrument.clear_requests(module);
    }
    const std::string report = drive(instrument, {"modules 4 1", "believe 2", "load 0"});
    expect_result(report, "load 0: 0");
    const size_t sent_to_one = setup_headers(instrument.requests(1)).size();
    EXPECT_EQ(count(report, " sent: -ERR Unable to connect\n"), sent_to_one) << report;
    EXPECT_EQ(sent_to_one, std::size(kSentValues) + std::size(kSentStates));
    for (int module : {1, 3, 4}) {
        expect_recalls(instrument, module, 1);
    }
    EXPECT_EQ(element(instrument, 2, "chan_stat"), "ON");
}

// ---- places that cannot be written

namespace {

/** Runs the driver with changed mounts that only it sees. */
std::string drive_with_mounts(const Instrument& instrument, const std::string& mounts, const Lines& steps)
{
    return drive(instrument, steps, "unshare --mount sh -e -c '" + mounts + "\nexec \"$@\"' mounts \"$@\"");
}

constexpr const char* kSecond = "/home/orvan/halde/preset/2";

} // namespace

TEST(Setups, AMissingFolderIsReportedAndTheOtherChannelsAreStored)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    fs::remove(instrument.state() / "halde/preset/2");
    const std::string report = drive(instrument, {kAllModules, "load 0", "store 3", "recall 3", "clear 3"});
    expect_result(report, "store 3: -1");
    EXPECT_EQ(count(report, "Store failed: Mod 2, Index 3\n"), 1u);
    EXPECT_EQ(count(report, "Store failed"), 1u);
    expect_result(report, "recall 3: -1");
    EXPECT_EQ(count(report, "Recall failed: Mod 2, Index 3\n"), 1u);
    EXPECT_EQ(count(report, "Recall failed"), 1u);
    expect_result(report, "clear 3: 0");
    EXPECT_EQ(count(report, "Deleted: "), 3u);
    EXPECT_FALSE(fs::exists(instrument.state() / "halde/preset/2"));
}

TEST(Setups, AReadOnlyFolderKeepsItsFilesAndIsReported)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    drive(instrument, {kAllModules, "load 0", "ch 2 :FREQ 5000000", "store 3"});
    const std::string former = contents(preset(instrument, 2, 3));
    const std::string bind =
        std::string("mount --bind ") + kSecond + " " + kSecond + " && mount -o remount,bind,ro " + kSecond;
    const std::string report =
        drive_with_mounts(instrument, bind, {kAllModules, "load 0", "store 3", "recall 3", "clear 3"});
    expect_result(report, "store 3: -1");
    EXPECT_EQ(count(report, "Store failed: Mod 2, Index 3\n"), 1u) << report;
    EXPECT_EQ(count(report, "Store failed"), 1u);
    expect_result(report, "recall 3: 0");
    expect_result(report, "clear 3: -1");
    EXPECT_EQ(
        count(report, "Clear failed: /home/orvan/halde/preset/2/preset-3.json (Read-only file system)\n"), 1u)
        << report;
    EXPECT_EQ(contents(preset(instrument, 2, 3)), former);
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?"), "5000000;+OK");
    EXPECT_FALSE(fs::exists(preset(instrument, 1, 3)));
}

TEST(Setups, AFullDiskKeepsTheFormerFileAndLeavesNoDraft)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    drive(instrument, {kAllModules, "load 0", "ch 2 :FREQ 5000000", "store 3"});
    const std::string folder = kSecond;
    const std::string fill = "cp -r " + folder + " /dev/shm/former && mount -t tmpfs -o size=64k tmpfs " +
                             folder + " && cp /dev/shm/former/preset-3.json " + folder +
                             "\nhead -c 100k /dev/zero >" + folder + "/rest 2>/dev/null || true";
    const std::string after = "\n\"$@\"; ls -A " + folder + "; cmp " + folder +
                              "/preset-3.json /dev/shm/former/preset-3.json && echo the same\nexit 0";
    const std::string report =
        drive_with_mounts(instrument, fill + after, {kAllModules, "load 0", "store 3", "recall 3"});
    expect_result(report, "store 3: -1");
    EXPECT_EQ(count(report, "Store failed: Mod 2, Index 3\n"), 1u) << report;
    EXPECT_EQ(count(report, "Store failed"), 1u);
    expect_result(report, "recall 3: 0");
    EXPECT_TRUE(holds(report, "\npreset-3.json\nrest\nthe same\n")) << report;
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?"), "5000000;+OK");
    EXPECT_EQ(instrument.ask_module(1, ":FREQ?"), "1000000000;+OK");
}

// ---- foreign files

TEST(Setups, InvalidFilesAreReportedAndLeaveRecordAndModuleUnchanged)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const std::string broken[] = {
        "",
        "{\"ANALOGOUTPUT\": {\"Frequency\": 77",
        "[{\"ANALOGOUTPUT\": {\"Frequency\": 77}}]",
        R"({"ANALOGOUTPUT": 77})",
        R"({"ANALOGOUTPUT": {"Frequency": "77"}})",
        R"({"ANALOGOUTPUT": {"Frequency": 77}, "RUNMODE": {"TriggerCount": 0.5}})",
        std::string(100'000, '['),
        "{\"ANALOGOUTPUT\": {\"Frequency\": 77}}" + std::string(2'000'000, ' '),
    };
    // Two for each setup, on channels 1 and 2; channels 3 and 4 have valid files.
    Lines steps{kAllModules, "load 0"};
    int setup = 0;
    for (size_t i = 0; i < std::size(broken); i += 2) {
        ++setup;
        for (int channel = 1; channel <= 2; ++channel) {
            std::ofstream(preset(instrument, channel, setup)) << broken[i + static_cast<size_t>(channel) - 1];
        }
        for (int channel = 3; channel <= 4; ++channel) {
            std::ofstream(preset(instrument, channel, setup))
                << R"({"ANALOGOUTPUT": {"Frequency": )" << setup << "000000}}";
        }
        steps.push_back("recall " + std::to_string(setup));
    }
    for (int module = 1; module <= 4; ++module) {
        instrument.clear_requests(module);
    }
    const std::string report = drive(instrument, steps);
    for (int index = 1; index <= setup; ++index) {
        expect_result(report, "recall " + std::to_string(index) + ": -1");
        for (int channel = 1; channel <= 2; ++channel) {
            EXPECT_EQ(count(report, "Recall failed: Mod " + std::to_string(channel) + ", Index " +
                                        std::to_string(index) + "\n"),
                      1u)
                << report;
        }
    }
    EXPECT_EQ(count(report, "Recall failed"), std::size(broken));
    for (int channel = 1; channel <= 2; ++channel) {
        expect_recalls(instrument, channel, 1); // of setup 0
        EXPECT_EQ(element(instrument, channel, "freq"), "1000000000");
    }
    for (int channel = 3; channel <= 4; ++channel) {
        expect_recalls(instrument, channel, 1 + setup);
        EXPECT_EQ(element(instrument, channel, "freq"), std::to_string(setup) + "000000");
        EXPECT_EQ(instrument.ask_module(channel, ":FREQ?"), std::to_string(setup) + "000000;+OK");
    }
}

TEST(Setups, OfAnotherModelAreLoadedAndRefusedOnlyByItsModule)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    for (int channel = 1; channel <= 4; ++channel) {
        std::ofstream(preset(instrument, channel, 1))
            << R"({"FUTURE": {"Thing": 1}, "SYSTEM": {"Model": "OVX5354B", "Colour": "blue"},
                   "ANALOGOUTPUT": {"Frequency": 40000000000, "FrequencyMax": 40000000000, "Power": 7}})";
    }
    const std::string report = drive(instrument, {kAllModules, "load 0", "recall 1"});
    expect_result(report, "recall 1: 0");
    EXPECT_EQ(count(report, "command :FREQuency sent: -ERR -222, \"Data out of range\""), 4u) << report;
    EXPECT_EQ(element(instrument, 2, "freq"), "40000000000") << "the record holds the file's value";
    EXPECT_EQ(element(instrument, 2, "freq_max"), "40000000000");
    EXPECT_EQ(element(instrument, 2, "inf_model"), "\"OVX5354B\"");
    EXPECT_EQ(instrument.ask_module(2, ":FREQ?;:POW?"), "1000000000;7;+OK");
}

// ---- orvan-db on an instrument's files

TEST(Setups, AreShownByOrvanDbOnTheController)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    drive(instrument, {kAllModules, "load 0", "ch 3 :FREQ 5000000", "store 2"});
    const std::string file = "/home/orvan/halde/preset/3/preset-2.json";
    EXPECT_EQ(orvan_db(instrument, {"--setup", file, "--tag", "freq"}).output,
              "-  ODT_FREQ                ANALOGOUTPUT.Frequency            5000000\n");
    EXPECT_EQ(orvan_db(instrument, {"--setup", file, "--diff", "--tag", "freq"}).output,
              "1  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000 -> 5000000\n"
              "2  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000 -> 5000000\n"
              "4  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000 -> 5000000\n");
    const Outcome missing = orvan_db(instrument, {"--setup", "/home/orvan/halde/preset/3/preset-4.json"});
    EXPECT_EQ(missing.status, 3);
    EXPECT_EQ(missing.output,
              "orvan-db: /home/orvan/halde/preset/3/preset-4.json: No such file or directory\n");
}
