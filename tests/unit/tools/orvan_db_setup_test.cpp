// orvan-db on setup files, alone and against live records.
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>
#include <sys/wait.h>

#include "channel_records/setup_file.h"
#include "orvan_db_bench.h"
#include "support/loopback.h"
#include <orvan_element_names.h>

using namespace orvan_db;
using namespace orvan_records;
using namespace orvan_test;

namespace {

class SetupFile : public testing::Test {
protected:
    SetupFile() { std::filesystem::create_directory(folder); }
    ~SetupFile() override { std::filesystem::remove_all(folder); }

    const std::string& with(const std::string& text) const
    {
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    Outcome show(std::vector<std::string> arguments, const char* object = "/orvan-db-test-none") const
    {
        arguments.insert(arguments.begin(), {"--setup", path});
        return run_on(object, arguments);
    }
    Outcome diff(const SharedRecords& records, std::vector<std::string> arguments = {}) const
    {
        arguments.insert(arguments.begin(), "--diff");
        return show(arguments, records.name());
    }

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("orvan-db-setup-" + std::to_string(::getpid()));
    const std::string path = folder / "preset-3.json";
};

constexpr const char* kFour = R"({
    "CHANNEL": {"SetupNo": 3},
    "RUNMODE": {"TriggerSrc": "BUS"},
    "ANALOGOUTPUT": {"RfOutput": true, "Frequency": 2500000000}
})";

} // namespace

// ---- alone

TEST_F(SetupFile, IsShownLikeTheRecordsButWithoutAChannel)
{
    with(kFour);
    const Outcome outcome = show({});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "-  ODT_SETUP_NO            CHANNEL.SetupNo                   3\n"
                           "-  ODT_TRG_SRC             RUNMODE.TriggerSrc                \"BUS\"\n"
                           "-  ODT_RF_OUT              ANALOGOUTPUT.RfOutput             ON\n"
                           "-  ODT_FREQ                ANALOGOUTPUT.Frequency            2500000000\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(SetupFile, IsShownUnderTheNamedChannel)
{
    with(kFour);
    EXPECT_EQ(show({"--channel", "3", "--tag", "freq"}).out,
              "3  ODT_FREQ                ANALOGOUTPUT.Frequency            2500000000\n");
}

TEST_F(SetupFile, AMissingElementHasNoRow)
{
    with(kFour);
    const Outcome outcome = show({"--tag", "pwr"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
}

TEST_F(SetupFile, IsShownAsJsonOnRequest)
{
    with(R"({"ANALOGOUTPUT": {"RfOutput": false, "Power": -12.5}})");
    EXPECT_EQ(show({"--json"}).out,
              "{\n\t\"channels\":\t[{\n\t\t\t\"channel\":\tnull,\n\t\t\t\"ODT_RF_OUT\":\tfalse,\n"
              "\t\t\t\"ODT_PWR\":\t-12.5\n\t\t}]\n}\n");
    with("{}");
    EXPECT_EQ(show({"--json"}).out, "{\n\t\"channels\":\t[]\n}\n");
}

TEST_F(SetupFile, AStoredRecordIsShownAsTheLiveOneWas)
{
    ORVAN_CONFIG record{};
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        auto* const place = reinterpret_cast<char*>(&record) + element.pos;
        const double number = -1.5 - static_cast<double>(tag);
        const int32_t whole = static_cast<int32_t>(tag);
        if (element.type == TYPE_STRING) {
            std::snprintf(place, element.size, "text \"%zu\" \xe4", tag);
        } else if (element.type == TYPE_DOUBLE) {
            std::memcpy(place, &number, sizeof number);
        } else {
            std::memcpy(place, &whole, sizeof whole);
        }
    }
    ASSERT_EQ(OrvanData().save_cmd_config(path.c_str(), &record), 0);
    SharedRecords records(2);
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        std::array<char, 32> bytes{};
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        std::memcpy(bytes.data(), reinterpret_cast<char*>(&record) + element.pos, element.size);
        records.put_bytes(2, static_cast<int>(tag), bytes.data());
    }
    const std::string live = run_on(records.name(), {"--channel", "2"}).out;
    EXPECT_EQ(show({"--channel", "2"}).out, live);
    EXPECT_EQ(lines_of(live).size(), kOrvanElementCount);
    EXPECT_EQ(diff(records, {"--channel", "2"}).out, "");
}

TEST_F(SetupFile, OfTheFactoryIsShown)
{
    const Outcome outcome = run_on("/orvan-db-test-none", {"--setup", ORVAN_FACTORY_SETUP});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_NE(outcome.out.find("-  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000\n"),
              std::string::npos);
    EXPECT_EQ(outcome.out.find("ODT_INF_MODEL"), std::string::npos) << "the factory's has no model";
}

TEST_F(SetupFile, EveryElementIsFoundByItsNameOnly)
{
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const orvan_common::ElementName& name = orvan_common::kElementNames[tag];
        const bool is_text = OrvanData::orvanMap[tag].type == TYPE_STRING;
        with(std::string("{\"") + name.section + "\": {\"" + name.field + "\": " + (is_text ? "\"\"" : "0") +
             "}}");
        std::string complaint;
        const auto setup = read_setup(path, complaint);
        ASSERT_TRUE(setup) << complaint;
        EXPECT_EQ(setup->present.count(), 1u) << name.tag;
        EXPECT_TRUE(setup->present[tag]) << name.tag;
    }
}

TEST_F(SetupFile, UnknownEntriesAreReportedAndTheRestIsShown)
{
    with(R"({"EXTRA": 1, "SYSTEM": {"Foo": 2, "Model": "M", "Bar": {}}, "ANALOGOUTPUT": {"frequency": 1}})");
    const Outcome outcome = show({});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "-  ODT_INF_MODEL           SYSTEM.Model                      \"M\"\n");
    EXPECT_EQ(outcome.err,
              "orvan-db: " + path + ": ignored: EXTRA, SYSTEM.Foo, SYSTEM.Bar, ANALOGOUTPUT.frequency\n");
}

// ---- what cannot be used

TEST_F(SetupFile, ThatARecallWouldRefuseEndsWithThreeAndAReason)
{
    using namespace std::string_literals;
    const struct {
        std::string text;
        const char* complaint;
    } cases[] = {
        {"", "is not JSON"},
        {"{", "is not JSON"},
        {"no JSON", "is not JSON"},
        {R"({"ANALOGOUTPUT": {"Frequency": 77)", "is not JSON"},
        {R"({"ANALOGOUTPUT": {"Frequency": 77}} and more)", "is not JSON"},
        {std::string(100'000, '['), "is not JSON"},
        {"[]", "is not a JSON object"},
        {"null", "is not a JSON object"},
        {"\"text\"", "is not a JSON object"},
        {R"({"ANALOGOUTPUT": 77})", "ANALOGOUTPUT is not a JSON object: 77"},
        {R"({"SYSTEM": ["a"]})", "SYSTEM is not a JSON object: [\"a\"]"},
        {R"({"ANALOGOUTPUT": {"Frequency": 77, "Power": "5"}})", "ANALOGOUTPUT.Power does not fit: \"5\""},
        {R"({"RUNMODE": {"TriggerCount": 0.5}})", "RUNMODE.TriggerCount does not fit: 0.5"},
        {R"({"RUNMODE": {"TriggerCount": 3000000000}})", "RUNMODE.TriggerCount does not fit: 3000000000"},
        {R"({"RUNMODE": {"TriggerSrc": "0123456789abcdef0123456789abcdef"}})",
         "RUNMODE.TriggerSrc does not fit: \"0123456789abcdef0123456789abcdef\""},
        {R"({"SYSTEM": {"Model": null}})", "SYSTEM.Model does not fit: null"},
        {R"({"SYSTEM": {"Model": ")" + std::string(80, 'm') + "\"}}",
         "SYSTEM.Model does not fit: \"mmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmmm..."},
        {R"({"SYSTEM": {"Model": "a\u0000b"}})", "contains a NUL character"},
        {std::string(1'100'000, ' ') + "{}", "is larger than a setup can be"},
    };
    for (const auto& [text, complaint] : cases) {
        with(text);
        ORVAN_CONFIG record{};
        EXPECT_EQ(OrvanData().init_cmd_config(path.c_str(), &record), -1) << complaint;
        for (const std::vector<std::string>& arguments :
             std::vector<std::vector<std::string>>{{}, {"--json"}, {"--diff"}}) {
            const Outcome outcome = show(arguments);
            EXPECT_EQ(outcome.status, 3) << complaint;
            EXPECT_EQ(outcome.out, "");
            EXPECT_EQ(outcome.err, "orvan-db: " + path + ": " + complaint + "\n");
        }
    }
}

TEST_F(SetupFile, ThatIsInvalidEndsWithThreeAndAReason)
{
    const auto complaint = [&](const std::string& file) {
        const Outcome outcome = run_on("/orvan-db-test-none", {"--setup", file});
        EXPECT_EQ(outcome.status, 3);
        EXPECT_EQ(outcome.out, "");
        return outcome.err;
    };
    EXPECT_EQ(complaint(path), "orvan-db: " + path + ": No such file or directory\n");
    EXPECT_EQ(complaint(folder), "orvan-db: " + folder.string() + ": is not a file\n");
    EXPECT_EQ(complaint(with("{}") + "/x"), "orvan-db: " + path + "/x: Not a directory\n");
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(complaint(pipe), "orvan-db: " + pipe + ": is not a file\n");
}

TEST_F(SetupFile, NeverLeaksADescriptor)
{
    const size_t before = open_descriptors();
    for (const char* text : {"{}", "{", "[]"}) {
        with(text);
        std::string complaint;
        read_setup(path, complaint);
    }
    std::string complaint;
    read_setup(folder, complaint);
    EXPECT_EQ(open_descriptors(), before);
}

// ---- against live records

TEST_F(SetupFile, DiffShowsWhatARecallWouldChangeOfEveryChannel)
{
    SharedRecords records(2);
    records.put(1, ODT_FREQ, 2.5e9);
    records.put(2, ODT_FREQ, 1e9);
    records.put(1, ODT_TRG_SRC, Text{"EXTernal"});
    records.put(2, ODT_TRG_SRC, Text{"BUS"});
    records.put(2, ODT_RF_OUT, 1);
    records.put(2, ODT_SETUP_NO, 3);
    records.put(2, ODT_PWR, 7.0); // not in the setup
    with(kFour);
    const Outcome outcome = diff(records);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "1  ODT_SETUP_NO            CHANNEL.SetupNo                   0 -> 3\n"
              "1  ODT_TRG_SRC             RUNMODE.TriggerSrc                \"EXTernal\" -> \"BUS\"\n"
              "1  ODT_RF_OUT              ANALOGOUTPUT.RfOutput             OFF -> ON\n"
              "2  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000 -> 2500000000\n");
}

TEST_F(SetupFile, DiffOfAChannelAndATagShowsOnlyThose)
{
    SharedRecords records(2);
    with(kFour);
    EXPECT_EQ(diff(records, {"--channel", "2", "--tag", "freq"}).out,
              "2  ODT_FREQ                ANALOGOUTPUT.Frequency            0 -> 2500000000\n");
}

TEST_F(SetupFile, DiffIsShownAsJsonOnRequest)
{
    SharedRecords records(1);
    with(R"({"ANALOGOUTPUT": {"Power": -12.5}})");
    EXPECT_EQ(diff(records, {"--json"}).out,
              "{\n\t\"channels\":\t[{\n\t\t\t\"channel\":\t1,\n\t\t\t\"ODT_PWR\":\t{\n\t\t\t\t\"live\":\t0,\n"
              "\t\t\t\t\"setup\":\t-12.5\n\t\t\t}\n\t\t}]\n}\n");
}

TEST_F(SetupFile, DiffOmitsElementsThatARecallTakesFromTheInstrument)
{
    const SharedRecords records(1);
    with(R"({"CHANNEL": {"Enabled": true, "State": true},
             "SYSTEM": {"Interface": "e", "Address": "e", "Mask": "e", "GATeway": "e", "Port": "e", "Dns1": "e",
                        "Dns2": "e", "MACaddr": "e", "DHCP": true, "BOOTp": true, "HOSTname": "e"}})");
    EXPECT_EQ(diff(records).out,
              "1  ODT_CHAN_ENA            CHANNEL.Enabled                   OFF -> ON\n"
              "1  ODT_BOOT_P              SYSTEM.BOOTp                      OFF -> ON\n"
              "1  ODT_HOST                SYSTEM.HOSTname                   \"\" -> \"e\"\n");
    EXPECT_EQ(lines_of(show({}).out).size(), 13u) << "the file still has them";
}

TEST_F(SetupFile, BytesAfterATextsEndAreNoDifference)
{
    SharedRecords records(1);
    records.put(1, ODT_TRG_SRC, Text{"BUS\0rnal"});
    with(R"({"RUNMODE": {"TriggerSrc": "BUS"}})");
    EXPECT_EQ(diff(records).out, "");
}

TEST_F(SetupFile, DiffNeedsAnInstrumentThatHasTheChannel)
{
    with("{}");
    const Outcome none = show({"--diff"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.err, "orvan-db: no instrument: no service keeps channel records here\n");
    const SharedRecords records(2);
    const Outcome third = diff(records, {"--channel", "3"});
    EXPECT_EQ(third.status, 1);
    EXPECT_EQ(third.err, "orvan-db: channel 3 is not fitted: the instrument has 2\n");
}

// ---- the options

TEST_F(SetupFile, ConflictingOptionsExitWithTwo)
{
    with("{}");
    const std::vector<std::vector<std::string>> mistakes = {{"--diff"},
                                                            {"--setup"},
                                                            {"--setup", ""},
                                                            {"--setup", path, "--watch"},
                                                            {"--setup", path, "--tag", "x"}};
    for (const auto& arguments : mistakes) {
        const Outcome outcome = run_on("/orvan-db-test-none", arguments);
        EXPECT_EQ(outcome.status, 2) << arguments.back();
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err, "");
    }
}

TEST_F(SetupFile, TheHelpDescribesSetups)
{
    const Outcome help = run_on("/orvan-db-test-none", {"--help"});
    for (const char* word : {"--setup FILE", "--diff", "3 a setup file that cannot be used"}) {
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    }
}

TEST_F(SetupFile, TheProgramExitsWithTheCodeInItsHelp)
{
    const int status = std::system((ORVAN_DB_PROGRAM " --setup " + with("{") + " 2>/dev/null").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 3);
}
