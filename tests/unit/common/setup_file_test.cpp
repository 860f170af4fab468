#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orvan_element_names.h"
#include "temp_folder.h"
#include <dataorvan.h>

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

uint8_t* bytes_of(ORVAN_CONFIG& config)
{
    return reinterpret_cast<uint8_t*>(&config);
}

ORVAN_CONFIG record_filled_with(int byte)
{
    ORVAN_CONFIG config;
    std::memset(&config, byte, sizeof config);
    return config;
}

bool same_bytes(const ORVAN_CONFIG& a, const ORVAN_CONFIG& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Anything a record can hold: numbers of any bits, texts of any bytes followed by zeros.
ORVAN_CONFIG random_record(std::mt19937_64& random)
{
    ORVAN_CONFIG config = record_filled_with(0);
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        uint8_t* place = bytes_of(config) + element.pos;
        if (element.type == TYPE_STRING) {
            const size_t length = random() % kOrvanTextSize;
            for (size_t i = 0; i < length; ++i) {
                place[i] = static_cast<uint8_t>(1 + random() % 255);
            }
        } else if (element.type == TYPE_BOOL && random() % 8 != 0) {
            place[0] = static_cast<uint8_t>(random() % 2);
        } else {
            const uint64_t value = random();
            std::memcpy(place, &value, element.size);
        }
    }
    return config;
}

class SetupFile : public ::testing::Test {
protected:
    int load(const std::string& contents, ORVAN_CONFIG& config)
    {
        write_file(path, contents);
        return data.init_cmd_config(path.c_str(), &config);
    }

    void expect_refused(const std::string& contents)
    {
        ORVAN_CONFIG config = record_filled_with(0x5A);
        EXPECT_EQ(load(contents, config), -1) << contents;
        EXPECT_TRUE(same_bytes(config, record_filled_with(0x5A))) << contents;
    }

    TempFolder folder;
    std::string path = folder / "preset-1.json";
    OrvanData data;
};

TEST_F(SetupFile, RandomRecordsAreReadBackBitForBit)
{
    std::mt19937_64 random(5);
    for (int round = 0; round < 100; ++round) {
        ORVAN_CONFIG saved = random_record(random);
        ORVAN_CONFIG back = record_filled_with(0);
        ASSERT_EQ(data.save_cmd_config(path.c_str(), &saved), 0);
        ASSERT_EQ(data.init_cmd_config(path.c_str(), &back), 0);
        ASSERT_TRUE(same_bytes(saved, back)) << "round " << round << "\n" << read_file(path);
    }
}

TEST_F(SetupFile, SavingLeavesTheRecordUnchanged)
{
    std::mt19937_64 random(6);
    ORVAN_CONFIG config = random_record(random);
    const ORVAN_CONFIG before = config;
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &config), 0);
    EXPECT_TRUE(same_bytes(config, before));
}

TEST_F(SetupFile, TheSameRecordMakesTheSameFile)
{
    std::mt19937_64 random(7);
    ORVAN_CONFIG config = random_record(random);
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &config), 0);
    const std::string first = read_file(path);
    ASSERT_EQ(data.init_cmd_config(path.c_str(), &config), 0);
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &config), 0);
    EXPECT_EQ(read_file(path), first);
}

TEST_F(SetupFile, HasAnObjectForEachSectionAndAKeyForEachField)
{
    ORVAN_CONFIG config = record_filled_with(0);
    config.CHANNEL.Enabled = On;
    config.RUNMODE.TriggerCount = -5;
    config.ANALOGOUTPUT.Frequency = 1234567890.125;
    std::strcpy(config.SYSTEM.Model, "OVX3651P");
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &config), 0);
    const std::string text = read_file(path);
    EXPECT_THAT(text, HasSubstr("\t\t\"Enabled\":\ttrue,\n"));
    EXPECT_THAT(text, HasSubstr("\t\t\"TriggerCount\":\t-5,\n"));
    EXPECT_THAT(text, HasSubstr("\t\t\"Frequency\":\t1234567890.125,\n"));
    EXPECT_THAT(text, HasSubstr("\t\t\"Model\":\t\"OVX3651P\",\n"));
    EXPECT_EQ(text.back(), '\n');

    cJSON* root = cJSON_Parse(text.c_str());
    std::vector<std::string> sections;
    int fields = 0;
    const cJSON* section = nullptr;
    cJSON_ArrayForEach(section, root)
    {
        sections.emplace_back(section->string);
        fields += cJSON_GetArraySize(section);
    }
    for (const orvan_common::ElementName& name : orvan_common::kElementNames) {
        EXPECT_TRUE(cJSON_HasObjectItem(cJSON_GetObjectItem(root, name.section), name.field)) << name.field;
    }
    cJSON_Delete(root);
    EXPECT_THAT(sections, ElementsAre("CHANNEL", "RUNMODE", "ANALOGOUTPUT", "LIST", "MODULATIONS", "SYSTEM"));
    EXPECT_EQ(fields, 144);
}

TEST_F(SetupFile, FileThatEndsEarlyAnywhereIsRefused)
{
    std::mt19937_64 random(8);
    ORVAN_CONFIG config = random_record(random);
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &config), 0);
    const std::string whole = read_file(path);
    const size_t last_brace = whole.rfind('}');
    ASSERT_EQ(last_brace, whole.size() - 2) << "only the line end may be missing without harm";
    for (size_t length = last_brace + 1; length-- > 0;) {
        ORVAN_CONFIG back = record_filled_with(0x5A);
        ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(length)), 0);
        ASSERT_EQ(data.init_cmd_config(path.c_str(), &back), -1) << length;
        ASSERT_TRUE(same_bytes(back, record_filled_with(0x5A))) << length;
    }
}

std::string file_with(const orvan_common::ElementName& name, const std::string& value)
{
    return std::string("{\"") + name.section + "\": {\"" + name.field + "\": " + value + "}}";
}

TEST_F(SetupFile, EachFieldIsReadByNameAndIntoItsOwnPlaceOnly)
{
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        ORVAN_CONFIG expected = record_filled_with(0x5A);
        uint8_t* place = bytes_of(expected) + element.pos;
        std::memset(place, 0, element.size);
        std::string value = "7";
        const double seven = 7;
        if (element.type == TYPE_STRING) {
            value = "\"7\"";
            place[0] = '7';
        } else if (element.type == TYPE_DOUBLE) {
            std::memcpy(place, &seven, sizeof seven);
        } else if (element.type == TYPE_BOOL) {
            value = "true";
            place[0] = 1;
        } else {
            place[0] = 7;
        }
        ORVAN_CONFIG config = record_filled_with(0x5A);
        EXPECT_EQ(load(file_with(orvan_common::kElementNames[tag], value), config), 0)
            << orvan_common::kElementNames[tag].field;
        EXPECT_TRUE(same_bytes(config, expected)) << orvan_common::kElementNames[tag].field;
    }
}

TEST_F(SetupFile, EachFieldRefusesAnotherTypeAndTheWholeFileWithIt)
{
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        std::vector<std::string> wrong = {"null", "[]", "{}", "1e999", "\"" + std::string(32, 'x') + "\""};
        switch (OrvanData::orvanMap[tag].type) {
        case TYPE_BOOL:
            wrong.insert(wrong.end(), {"\"ON\"", "0.5"});
            break;
        case TYPE_INT32:
            wrong.insert(wrong.end(), {"true", "\"1\"", "0.5", "2147483648"});
            break;
        case TYPE_UINT32:
            wrong.insert(wrong.end(), {"true", "\"1\"", "0.5", "-1", "4294967296"});
            break;
        case TYPE_DOUBLE:
            wrong.insert(wrong.end(), {"true", "\"1\""});
            break;
        default:
            wrong.insert(wrong.end(), {"true", "1"});
        }
        for (const std::string& value : wrong) {
            expect_refused(file_with(orvan_common::kElementNames[tag], value));
        }
    }
}

TEST_F(SetupFile, AWrongLastValueDiscardsTheValuesBeforeIt)
{
    expect_refused(R"({"CHANNEL": {"SetupNo": 1}, "SYSTEM": {"LowLevelBatAlarm": "10"}})");
}

TEST_F(SetupFile, MissingKeysKeepTheValuesOfTheRecord)
{
    ORVAN_CONFIG config = record_filled_with(0x5A);
    EXPECT_EQ(load("{}", config), 0);
    EXPECT_EQ(load(R"({"CHANNEL": {}, "LIST": {}})", config), 0);
    EXPECT_TRUE(same_bytes(config, record_filled_with(0x5A)));
}

TEST_F(SetupFile, UnknownKeysAreIgnored)
{
    ORVAN_CONFIG config = record_filled_with(0);
    EXPECT_EQ(load(R"({"version": 9, "NEWS": [1], "CHANNEL": {"Colour": null, "SetupNo": 4}})", config), 0);
    EXPECT_EQ(config.CHANNEL.SetupNo, 4);
}

TEST_F(SetupFile, KeysAreCaseSensitive)
{
    ORVAN_CONFIG config = record_filled_with(0);
    EXPECT_EQ(load(R"({"channel": {"SetupNo": 1}, "CHANNEL": {"setupno": 2}})", config), 0);
    EXPECT_TRUE(same_bytes(config, record_filled_with(0)));
}

TEST_F(SetupFile, NonObjectsAreRefused)
{
    for (const char* text :
         {"", " ", "null", "[]", "1", "\"x\"", "true", "{", "nonsense", "{} x", "{}{}", "{},"}) {
        expect_refused(text);
    }
    for (const char* section : {"null", "[]", "1", "\"\"", "true"}) {
        expect_refused(std::string("{\"LIST\": ") + section + "}");
    }
}

TEST_F(SetupFile, NullCharactersAreRefusedAndNotCutAt)
{
    expect_refused(R"({"SYSTEM": {"Model": "OVX\u0000P"}})");
    expect_refused(std::string(R"({"SYSTEM": {"Model": "OVX)") + '\0' + R"("}})");
    expect_refused(std::string("{}") + '\0' + "{}");
    // An escaped backslash before the same letters is no such character.
    ORVAN_CONFIG config = record_filled_with(0);
    EXPECT_EQ(load(R"({"SYSTEM": {"Model": "a\\u0000b"}})", config), 0);
    EXPECT_STREQ(config.SYSTEM.Model, "a\\u0000b");
}

TEST_F(SetupFile, DeepNestingAndOversizeAreRefused)
{
    expect_refused(std::string(100000, '['));
    expect_refused("{}" + std::string(1 << 20, ' '));
    ORVAN_CONFIG config = record_filled_with(0);
    EXPECT_EQ(load("{}" + std::string((1 << 20) - 2, ' '), config), 0);
}

TEST_F(SetupFile, NothingIsReadFromNonFiles)
{
    ORVAN_CONFIG config = record_filled_with(0x5A);
    EXPECT_EQ(data.init_cmd_config((folder / "none.json").c_str(), &config), -1);
    EXPECT_EQ(data.init_cmd_config(folder.path().c_str(), &config), -1);
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(data.init_cmd_config(pipe.c_str(), &config), -1);
    EXPECT_EQ(data.init_cmd_config("", &config), -1);
    EXPECT_TRUE(same_bytes(config, record_filled_with(0x5A)));
}

TEST_F(SetupFile, NullArgumentsAreRefused)
{
    ORVAN_CONFIG config = record_filled_with(0);
    EXPECT_EQ(data.init_cmd_config(nullptr, &config), -1);
    EXPECT_EQ(data.init_cmd_config(path.c_str(), nullptr), -1);
    EXPECT_EQ(data.save_cmd_config(nullptr, &config), -1);
    EXPECT_EQ(data.save_cmd_config(path.c_str(), nullptr), -1);
    EXPECT_TRUE(folder.names().empty());
}

TEST_F(SetupFile, AMissingFolderIsAFailureAndIsNotCreated)
{
    ORVAN_CONFIG config = record_filled_with(0);
    EXPECT_EQ(data.save_cmd_config((folder / "3/preset-1.json").c_str(), &config), -1);
    EXPECT_TRUE(folder.names().empty());
}

TEST_F(SetupFile, SavingReplacesTheFileAndLeavesNoDraft)
{
    write_file(path, std::string(100000, 'x'));
    ORVAN_CONFIG config = record_filled_with(0);
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &config), 0);
    EXPECT_EQ(data.init_cmd_config(path.c_str(), &config), 0);
    EXPECT_THAT(folder.names(), ElementsAre("preset-1.json"));
}

TEST_F(SetupFile, AFullDiskKeepsTheFormerSetup)
{
    std::mt19937_64 random(9);
    ORVAN_CONFIG config = random_record(random);
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &config), 0);
    ASSERT_GT(read_file(path).size(), 4096u) << "or it would fit beside the former file";
    if (const std::string reason = folder.mount_small(2 * 4096); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    write_file(path, "{}");
    EXPECT_EQ(data.save_cmd_config(path.c_str(), &config), -1);
    EXPECT_EQ(read_file(path), "{}");
    EXPECT_THAT(folder.names(), ElementsAre("preset-1.json"));
}

TEST_F(SetupFile, AReadOnlyFolderKeepsTheFormerSetup)
{
    if (const std::string reason = folder.mount_small(64 * 4096); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    write_file(path, "{}");
    ASSERT_TRUE(folder.make_read_only());
    ORVAN_CONFIG config = record_filled_with(0);
    EXPECT_EQ(data.save_cmd_config(path.c_str(), &config), -1);
    EXPECT_EQ(data.init_cmd_config(path.c_str(), &config), 0) << "reading continues";
    EXPECT_EQ(read_file(path), "{}");
    EXPECT_THAT(folder.names(), ElementsAre("preset-1.json"));
}

TEST_F(SetupFile, AReaderAmongWritersSeesOnlyWholeSetups)
{
    ORVAN_CONFIG first = record_filled_with(0);
    ORVAN_CONFIG second = record_filled_with(0);
    std::memset(second.SYSTEM.Model, 'x', kOrvanTextSize - 1);
    second.ANALOGOUTPUT.Frequency = 1.0 / 3;
    ASSERT_EQ(data.save_cmd_config(path.c_str(), &first), 0);
    std::vector<std::thread> writers;
    for (ORVAN_CONFIG* record : {&first, &second}) {
        writers.emplace_back([this, record] {
            for (int round = 0; round < 100; ++round) {
                EXPECT_EQ(data.save_cmd_config(path.c_str(), record), 0);
            }
        });
    }
    for (int round = 0; round < 300; ++round) {
        ORVAN_CONFIG seen = record_filled_with(0);
        ASSERT_EQ(data.init_cmd_config(path.c_str(), &seen), 0) << round;
        ASSERT_TRUE(same_bytes(seen, first) || same_bytes(seen, second)) << round;
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_THAT(folder.names(), ElementsAre("preset-1.json"));
}

} // namespace
