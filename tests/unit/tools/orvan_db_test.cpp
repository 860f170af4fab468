// orvan-db on a private shared memory object.
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>
#include <thread>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "channel_records/element_text.h"
#include "channel_records/records.h"
#include "orvan-db/options.h"
#include "orvan_db_bench.h"
#include "support/loopback.h"
#include <orvan_element_names.h>

using namespace orvan_db;
using namespace orvan_records;
using namespace orvan_test;

// ---- the options

TEST(OrvanDbOptions, ATagIsAcceptedWithoutItsPrefixAndInAnyCase)
{
    for (const char* name : {"ODT_FREQ", "FREQ", "freq", "odt_freq", "Odt_Freq"}) {
        EXPECT_EQ(tag_of_name(name), ODT_FREQ) << name;
    }
    for (const char* name : {"", "ODT_", "ODT_NO_TAG", "FRE", "FREQU", "Frequency", "20"}) {
        EXPECT_EQ(tag_of_name(name), -1) << name;
    }
}

TEST(OrvanDbOptions, EveryTagIsFoundByItsName)
{
    for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
        EXPECT_TRUE(std::string(orvan_common::kElementNames[tag].tag).starts_with("ODT_"));
        EXPECT_EQ(tag_of_name(orvan_common::kElementNames[tag].tag), tag);
    }
}

TEST(OrvanDbOptions, MistakesExitWithTwoAndAReason)
{
    const SharedRecords records(1);
    const std::vector<std::vector<std::string>> mistakes = {
        {"--channel", "0"}, {"--channel", "5"}, {"--channel", "x"},
        {"--channel"},      {"--tag", "nope"},  {"--interval", "0"},
        {"--wrong"},        {"stray"},          {"--interval", "60001"}};
    for (const auto& arguments : mistakes) {
        const Outcome outcome = run_on(records.name(), arguments);
        EXPECT_EQ(outcome.status, 2) << arguments.front();
        EXPECT_EQ(outcome.out, "") << arguments.front();
        EXPECT_NE(outcome.err, "") << arguments.front();
    }
    EXPECT_NE(run_on(records.name(), {"--tag", "nope"}).err.find("there is no element nope"),
              std::string::npos);
}

TEST(OrvanDbOptions, HelpAndVersionNeedNoInstrument)
{
    const Outcome help = run_on("/orvan-db-test-none", {"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* word :
         {"--channel", "--tag", "--json", "--watch", "--interval", "Exit codes: 0 printed, 1 "}) {
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    }
    const Outcome version = run_on("/orvan-db-test-none", {"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "orvan-db " ORVAN_VERSION "\n");
}

// ---- no instrument

TEST(OrvanDb, WithoutAnObjectThereIsNoInstrument)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{}, {"--json"}, {"--watch"}}) {
        const Outcome outcome = run_on("/orvan-db-test-none", arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, "orvan-db: no instrument: no service keeps channel records here\n");
    }
}

TEST(OrvanDb, AnObjectWithoutAWholeRecordIsNoInstrument)
{
    SharedRecords records(0);
    EXPECT_EQ(run_on(records.name(), {}).status, 1);
    records.cut_to(sizeof(ORVAN_CONFIG) - 1);
    EXPECT_EQ(run_on(records.name(), {}).status, 1);
    records.cut_to(sizeof(ORVAN_CONFIG));
    EXPECT_EQ(run_on(records.name(), {}).status, 0);
}

TEST(OrvanDb, AChannelThatIsNotInstalledIsReportedClearly)
{
    const SharedRecords records(2);
    const Outcome outcome = run_on(records.name(), {"--channel", "3"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "orvan-db: channel 3 is not fitted: the instrument has 2\n");
    EXPECT_EQ(run_on(records.name(), {"--channel", "2"}).status, 0);
}

TEST(OrvanDb, ReadingLeaksNoDescriptorAndChangesNothing)
{
    SharedRecords records(4);
    records.put(4, ODT_FREQ, 5.0);
    const size_t before = open_descriptors();
    const Records copy = read_records(records.name());
    EXPECT_EQ(open_descriptors(), before);
    ASSERT_EQ(copy.size(), 4u);
    EXPECT_EQ(copy[3].ANALOGOUTPUT.Frequency, 5.0);
    EXPECT_EQ(read_records(records.name())[3].ANALOGOUTPUT.Frequency, 5.0);
}

// ---- the table

TEST(OrvanDb, TheTableHasARowForEachElementOfEachChannel)
{
    const SharedRecords records(3);
    const auto rows = lines_of(run_on(records.name(), {}).out);
    ASSERT_EQ(rows.size(), 3 * kOrvanElementCount);
    for (size_t row = 0; row < rows.size(); ++row) {
        const orvan_common::ElementName& name = orvan_common::kElementNames[row % kOrvanElementCount];
        std::istringstream words(rows[row]);
        std::string channel, tag, field;
        words >> channel >> tag >> field;
        EXPECT_EQ(channel, std::to_string(row / kOrvanElementCount + 1));
        EXPECT_EQ(tag, name.tag);
        EXPECT_EQ(field, std::string(name.section) + "." + name.field);
    }
}

TEST(OrvanDb, AChannelAndATagSelectOneRow)
{
    SharedRecords records(4);
    records.put(3, ODT_FREQ, 2.5e9);
    EXPECT_EQ(run_on(records.name(), {"--channel", "3", "--tag", "freq"}).out,
              "3  ODT_FREQ                ANALOGOUTPUT.Frequency            2500000000\n");
}

TEST(OrvanDb, ATagAloneIsShownForAllChannels)
{
    SharedRecords records(2);
    records.put(2, ODT_RF_OUT, 1);
    EXPECT_EQ(run_on(records.name(), {"--tag", "ODT_RF_OUT"}).out,
              "1  ODT_RF_OUT              ANALOGOUTPUT.RfOutput             OFF\n"
              "2  ODT_RF_OUT              ANALOGOUTPUT.RfOutput             ON\n");
}

TEST(OrvanDb, TheColumnsAreAligned)
{
    const SharedRecords records(1);
    for (const std::string& row : lines_of(run_on(records.name(), {}).out)) {
        EXPECT_EQ(row.find("ODT_"), 3u);
        EXPECT_EQ(row[26], ' ') << row;
        EXPECT_NE(row[27], ' ') << row;
        EXPECT_EQ(row[60], ' ') << row;
        EXPECT_NE(row[61], ' ') << row;
    }
}

// ---- values

namespace {

template <typename T>
struct Rendered {
    std::string text;
    std::string json;

    Rendered(ValueTypes type, const T& value, double factor = 1.0)
    {
        ORVAN_CONFIG record{};
        std::memcpy(reinterpret_cast<char*>(&record) + 8, &value, sizeof value);
        const OrvanElementData element{8, factor, type, sizeof value, eSendNone};
        text = element_text(element, record);
        cJSON* const form = element_json(element, record);
        char* const printed = cJSON_PrintUnformatted(form);
        json = printed;
        cJSON_free(printed);
        cJSON_Delete(form);
    }
};

} // namespace

TEST(OrvanDbValue, ASwitchIsAWordAndAJsonBoolean)
{
    EXPECT_EQ(Rendered(TYPE_BOOL, 0).text, "OFF");
    EXPECT_EQ(Rendered(TYPE_BOOL, 0).json, "false");
    EXPECT_EQ(Rendered(TYPE_BOOL, 2).text, "ON");
    EXPECT_EQ(Rendered(TYPE_BOOL, 2).json, "true");
}

TEST(OrvanDbValue, NumbersAreInTheUnitOfTheLanguage)
{
    EXPECT_EQ(Rendered(TYPE_INT32, int32_t{-5}).text, "-5");
    EXPECT_EQ(Rendered(TYPE_UINT32, uint32_t{4000000000}).json, "4000000000");
    EXPECT_EQ(Rendered(TYPE_INT64, int64_t{-5000}, 1000.0).text, "-5");
    EXPECT_EQ(Rendered(TYPE_UINT64, uint64_t{5000}, 1000.0).json, "5");
    EXPECT_EQ(Rendered(TYPE_FLOAT, 2.5f).text, "2.5");
    EXPECT_EQ(Rendered(TYPE_DOUBLE, 20000000000.0).text, "20000000000");
    EXPECT_EQ(Rendered(TYPE_DOUBLE, -12.5).json, "-12.5");
    EXPECT_EQ(Rendered(TYPE_DOUBLE, 0.000001).text, "1e-06");
}

TEST(OrvanDbValue, NotANumberIsNullInJson)
{
    EXPECT_EQ(Rendered(TYPE_DOUBLE, std::numeric_limits<double>::infinity()).text, "inf");
    EXPECT_EQ(Rendered(TYPE_DOUBLE, std::numeric_limits<double>::infinity()).json, "null");
    EXPECT_EQ(Rendered(TYPE_DOUBLE, std::nan("")).json, "null");
}

TEST(OrvanDbValue, ATextIsQuotedAndEscaped)
{
    EXPECT_EQ(Rendered(TYPE_STRING, Text{"EXTernal"}).text, "\"EXTernal\"");
    EXPECT_EQ(Rendered(TYPE_STRING, Text{""}).text, "\"\"");
    EXPECT_EQ(Rendered(TYPE_STRING, Text{"a\"b\\c\n\x1b[m\xe4~ "}).text,
              "\"a\\\"b\\\\c\\x0a\\x1b[m\\xe4~ \"");
    EXPECT_EQ(Rendered(TYPE_STRING, Text{"a\"b\xe4"}).json, "\"a\\\"b\xc3\xa4\"");
}

TEST(OrvanDbValue, ATextWithoutAnEndStopsAtItsField)
{
    Text full;
    std::memset(full.bytes, 'x', sizeof full.bytes);
    EXPECT_EQ(Rendered(TYPE_STRING, full).text, '"' + std::string(32, 'x') + '"');
    EXPECT_EQ(Rendered(TYPE_STRING, full).json, '"' + std::string(32, 'x') + '"');
}

// ---- JSON

TEST(OrvanDb, TheDocumentHoldsEveryElementByItsTag)
{
    SharedRecords records(2);
    records.put(2, ODT_FREQ, 2.5e9);
    records.put(2, ODT_TRG_SRC, Text{"BUS"});
    const Outcome outcome = run_on(records.name(), {"--json"});
    EXPECT_EQ(outcome.status, 0);
    const std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(outcome.out.c_str()), cJSON_Delete);
    const cJSON* const channels = cJSON_GetObjectItem(root.get(), "channels");
    ASSERT_EQ(cJSON_GetArraySize(channels), 2);
    for (int index = 0; index < 2; ++index) {
        const cJSON* const channel = cJSON_GetArrayItem(channels, index);
        EXPECT_EQ(cJSON_GetObjectItem(channel, "channel")->valueint, index + 1);
        for (const orvan_common::ElementName& name : orvan_common::kElementNames) {
            EXPECT_NE(cJSON_GetObjectItemCaseSensitive(channel, name.tag), nullptr) << name.tag;
        }
    }
    const cJSON* const second = cJSON_GetArrayItem(channels, 1);
    EXPECT_EQ(cJSON_GetObjectItem(second, "ODT_FREQ")->valuedouble, 2.5e9);
    EXPECT_STREQ(cJSON_GetObjectItem(second, "ODT_TRG_SRC")->valuestring, "BUS");
    EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(second, "ODT_RF_OUT")));
}

TEST(OrvanDb, TheDocumentHoldsOnlySelectedElements)
{
    const SharedRecords records(4);
    const Outcome outcome = run_on(records.name(), {"--json", "--channel", "2", "--tag", "pwr"});
    const std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(outcome.out.c_str()), cJSON_Delete);
    const std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(root.get()), cJSON_free);
    EXPECT_STREQ(printed.get(), R"({"channels":[{"channel":2,"ODT_PWR":0}]})");
}

// ---- watching

namespace {

// orvan-db --watch on its own thread, with its output to a socket.
class Watch {
public:
    Watch(const SharedRecords& records, std::vector<std::string> arguments)
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, m_output), 0);
        m_saved = ::dup(STDOUT_FILENO);
        std::fflush(stdout);
        ::dup2(m_output[1], STDOUT_FILENO);
        ::close(m_output[1]);
        arguments.insert(arguments.begin(), {"orvan-db", "--watch", "--interval", "2"});
        m_thread = std::thread([this, arguments, name = std::string(records.name())] {
            std::vector<const char*> argv;
            for (const std::string& argument : arguments) {
                argv.push_back(argument.c_str());
            }
            m_status = run(static_cast<int>(argv.size()), argv.data(), name.c_str(), m_stop);
        });
    }
    ~Watch() { end(); }

    std::string line() { return read_until(m_output[0], "\n"); }

    int end()
    {
        if (m_thread.joinable()) {
            ::eventfd_write(m_stop, 1);
            m_thread.join();
            std::fflush(stdout);
            ::dup2(m_saved, STDOUT_FILENO);
            for (int fd : {m_saved, m_output[0], m_stop}) {
                ::close(fd);
            }
        }
        return m_status;
    }
    int wait_for_end()
    {
        m_thread.join();
        m_thread = std::thread([] {});
        return m_status;
    }

private:
    int m_output[2];
    int m_saved;
    const int m_stop = ::eventfd(0, 0);
    int m_status = -1;
    std::thread m_thread;
};

} // namespace

TEST(OrvanDbWatch, ShowsEverySelectedElementOnceAndThenChanges)
{
    SharedRecords records(2);
    Watch watch(records, {"--tag", "freq"});
    EXPECT_EQ(watch.line(), "1  ODT_FREQ                ANALOGOUTPUT.Frequency            0\n");
    EXPECT_EQ(watch.line(), "2  ODT_FREQ                ANALOGOUTPUT.Frequency            0\n");
    records.put(2, ODT_PWR, 7.0); // not chosen
    records.put(2, ODT_FREQ, 5.0);
    EXPECT_EQ(watch.line(), "2  ODT_FREQ                ANALOGOUTPUT.Frequency            5\n");
    records.put(1, ODT_FREQ, 6.0);
    EXPECT_EQ(watch.line(), "1  ODT_FREQ                ANALOGOUTPUT.Frequency            6\n");
    EXPECT_EQ(watch.end(), 0);
}

TEST(OrvanDbWatch, BytesAfterATextsEndAreNoChange)
{
    SharedRecords records(1);
    records.put(1, ODT_TRG_SRC, Text{"EXTernal"});
    Watch watch(records, {"--tag", "trg_src"});
    watch.line();
    records.put(1, ODT_TRG_SRC, Text{"EXTernal\0rest"});
    records.put(1, ODT_TRG_SRC, Text{"BUS\0rnal"});
    EXPECT_EQ(watch.line(), "1  ODT_TRG_SRC             RUNMODE.TriggerSrc                \"BUS\"\n");
}

TEST(OrvanDbWatch, InJsonEachLineIsAnObject)
{
    SharedRecords records(1);
    Watch watch(records, {"--tag", "freq", "--json"});
    EXPECT_EQ(watch.line(), "{\"channel\":1,\"tag\":\"ODT_FREQ\",\"value\":0}\n");
    records.put(1, ODT_FREQ, 1e9);
    EXPECT_EQ(watch.line(), "{\"channel\":1,\"tag\":\"ODT_FREQ\",\"value\":1000000000}\n");
}

TEST(OrvanDbWatch, ARemovedObjectEndsIt)
{
    SharedRecords records(1);
    const OutputCapture errors(STDERR_FILENO);
    Watch watch(records, {"--tag", "freq"});
    watch.line();
    records.remove();
    EXPECT_EQ(watch.wait_for_end(), 1);
    EXPECT_EQ(errors.text(), "orvan-db: the instrument is gone\n");
}

TEST(OrvanDbWatch, AShrinkingObjectIsStillRead)
{
    SharedRecords records(4);
    Watch watch(records, {"--tag", "freq"});
    for (int channel = 1; channel <= 4; ++channel) {
        watch.line();
    }
    records.cut_to(sizeof(ORVAN_CONFIG));
    records.put(1, ODT_FREQ, 3.0);
    EXPECT_EQ(watch.line(), "1  ODT_FREQ                ANALOGOUTPUT.Frequency            3\n");
}

// ---- the program

TEST(OrvanDbProgram, ExitsWithTheCodeInItsHelp)
{
    int status = std::system(ORVAN_DB_PROGRAM " --version >/dev/null");
    EXPECT_EQ(WEXITSTATUS(status), 0);
    status = std::system(ORVAN_DB_PROGRAM " --wrong 2>/dev/null");
    EXPECT_EQ(WEXITSTATUS(status), 2);
}
