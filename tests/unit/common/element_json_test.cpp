#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <element_json.h>

namespace {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

template <typename T>
OrvanElementData element_of(ValueTypes type)
{
    return {0, 1.0, type, sizeof(T), eSendNone};
}

template <typename T>
std::string printed(ValueTypes type, const T& value)
{
    const Json json(
        orvan_common::element_to_json(element_of<T>(type), reinterpret_cast<const uint8_t*>(&value)));
    char* text = cJSON_PrintUnformatted(json.get());
    std::string result = text;
    cJSON_free(text);
    return result;
}

template <typename T>
bool parsed(ValueTypes type, const std::string& text, T& value)
{
    const Json json(cJSON_Parse(text.c_str()));
    return json && orvan_common::element_from_json(element_of<T>(type), json.get(),
                                                   reinterpret_cast<uint8_t*>(&value));
}

template <typename T>
T through_json(ValueTypes type, T value)
{
    T back{};
    EXPECT_TRUE(parsed(type, printed(type, value), back)) << printed(type, value);
    return back;
}

template <typename T>
void expect_refused(ValueTypes type, const std::string& text)
{
    T value{};
    std::memset(static_cast<void*>(&value), 0x5A, sizeof value);
    const T before = value;
    EXPECT_FALSE(parsed(type, text, value)) << text;
    EXPECT_EQ(std::memcmp(&value, &before, sizeof value), 0) << text;
}

// --- switches --------------------------------------------------------------------------------

TEST(ElementJson, SwitchIsABoolean)
{
    EXPECT_EQ(printed(TYPE_BOOL, 0), "false");
    EXPECT_EQ(printed(TYPE_BOOL, 1), "true");
}

TEST(ElementJson, SwitchThatIsNeitherOnNorOffIsItsNumber)
{
    EXPECT_EQ(printed(TYPE_BOOL, 2), "2");
    EXPECT_EQ(through_json(TYPE_BOOL, 2), 2);
    EXPECT_EQ(through_json(TYPE_BOOL, INT32_MIN), INT32_MIN);
}

TEST(ElementJson, SwitchRejectsAnythingElse)
{
    for (const char* text : {"null", "\"ON\"", "\"true\"", "[]", "{}", "0.5", "2147483648", "1e999"}) {
        expect_refused<int>(TYPE_BOOL, text);
    }
}

// --- integers --------------------------------------------------------------------------------

TEST(ElementJson, IntegersKeepTheirLimits)
{
    for (int32_t value : {0, 1, -1, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(through_json<int32_t>(TYPE_INT32, value), value);
    }
    for (uint32_t value : {0u, 1u, UINT32_MAX}) {
        EXPECT_EQ(through_json<uint32_t>(TYPE_UINT32, value), value);
    }
    EXPECT_EQ(printed<uint32_t>(TYPE_UINT32, UINT32_MAX), "4294967295");
}

TEST(ElementJson, IntegersOutOfRangeAreRefused)
{
    expect_refused<int32_t>(TYPE_INT32, "2147483648");
    expect_refused<int32_t>(TYPE_INT32, "-2147483649");
    expect_refused<uint32_t>(TYPE_UINT32, "-1");
    expect_refused<uint32_t>(TYPE_UINT32, "4294967296");
    expect_refused<uint64_t>(TYPE_UINT64, "-1");
    expect_refused<uint64_t>(TYPE_UINT64, "\"-1\"");
    expect_refused<uint64_t>(TYPE_UINT64, "\"18446744073709551616\"");
    expect_refused<int64_t>(TYPE_INT64, "\"9223372036854775808\"");
}

TEST(ElementJson, IntegersTakeWholeNumbersInAnySpellingAndNothingElse)
{
    int32_t value = 0;
    EXPECT_TRUE(parsed(TYPE_INT32, "1e3", value) && value == 1000);
    EXPECT_TRUE(parsed(TYPE_INT32, "-7.0", value) && value == -7);
    for (const char* text : {"null", "true", "\"1\"", "[1]", "{}", "1.5", "1e-1", "1e999", "-1e999"}) {
        expect_refused<int32_t>(TYPE_INT32, text);
        expect_refused<uint32_t>(TYPE_UINT32, text);
    }
}

TEST(ElementJson, LongIntegersBeyondTheExactRangeOfNumbersAreDigits)
{
    constexpr int64_t kExact = int64_t{1} << 53;
    EXPECT_EQ(printed<int64_t>(TYPE_INT64, kExact), "9007199254740992");
    EXPECT_EQ(printed<int64_t>(TYPE_INT64, kExact + 1), "\"9007199254740993\"");
    EXPECT_EQ(printed<int64_t>(TYPE_INT64, -kExact - 1), "\"-9007199254740993\"");
    for (int64_t value : {kExact - 1, kExact, kExact + 1, -kExact, -kExact - 1, INT64_MIN, INT64_MAX}) {
        EXPECT_EQ(through_json<int64_t>(TYPE_INT64, value), value);
    }
    for (uint64_t value : {uint64_t{0}, uint64_t{1} << 53, (uint64_t{1} << 53) + 1, UINT64_MAX}) {
        EXPECT_EQ(through_json<uint64_t>(TYPE_UINT64, value), value);
    }
    // Parsed as a double it would become its even neighbour.
    expect_refused<int64_t>(TYPE_INT64, "9007199254740994");
    for (const char* text : {"\"\"", "\" 1\"", "\"1 \"", "\"0x1\"", "\"1.0\"", "true"}) {
        expect_refused<int64_t>(TYPE_INT64, text);
    }
}

// --- numbers ---------------------------------------------------------------------------------

uint64_t bits(double value)
{
    return std::bit_cast<uint64_t>(value);
}

TEST(ElementJson, NumbersAreAcceptedAsPeopleWriteThem)
{
    EXPECT_EQ(printed(TYPE_DOUBLE, 1e9), "1000000000");
    EXPECT_EQ(printed(TYPE_DOUBLE, 20e9), "20000000000");
    EXPECT_EQ(printed(TYPE_DOUBLE, 0.1), "0.1");
    EXPECT_EQ(printed(TYPE_DOUBLE, -30.0), "-30");
    EXPECT_EQ(printed(TYPE_DOUBLE, 0.0), "0");
    EXPECT_EQ(printed(TYPE_DOUBLE, 1e-7), "1e-07");
    EXPECT_EQ(printed(TYPE_DOUBLE, 0.1 + 0.2), "0.30000000000000004");
}

TEST(ElementJson, NumbersKeepEveryBit)
{
    using Limits = std::numeric_limits<double>;
    for (double value : {0.0, -0.0, 0.1 + 0.2, 0.12345678901234566, Limits::max(), Limits::lowest(),
                         Limits::min(), Limits::denorm_min(), -Limits::denorm_min(), 1e16, 9999999999999998.0,
                         1e-6, std::nextafter(1e-6, 0.0), std::nextafter(1e9, 2e9), Limits::infinity(),
                         -Limits::infinity(), Limits::quiet_NaN(), -Limits::quiet_NaN()}) {
        EXPECT_EQ(bits(through_json(TYPE_DOUBLE, value)), bits(value)) << printed(TYPE_DOUBLE, value);
    }
}

TEST(ElementJson, RandomNumbersKeepEveryBit)
{
    std::mt19937_64 random(3);
    for (int round = 0; round < 20000; ++round) {
        const auto value = std::bit_cast<double>(random());
        EXPECT_EQ(bits(through_json(TYPE_DOUBLE, value)), bits(value));
        const double ordinary = static_cast<double>(static_cast<int64_t>(random())) * 1e-6;
        EXPECT_EQ(bits(through_json(TYPE_DOUBLE, ordinary)), bits(ordinary));
    }
}

TEST(ElementJson, ShortNumbersKeepEveryBit)
{
    std::mt19937 random(4);
    for (int round = 0; round < 20000; ++round) {
        const auto value = std::bit_cast<float>(static_cast<uint32_t>(random()));
        if (!std::isnan(value)) {
            EXPECT_EQ(through_json(TYPE_FLOAT, value), value);
        }
    }
    expect_refused<float>(TYPE_FLOAT, "1e39");
    expect_refused<float>(TYPE_FLOAT, "true");
}

TEST(ElementJson, NotANumberIsStoredAsItsBits)
{
    EXPECT_EQ(printed(TYPE_DOUBLE, std::numeric_limits<double>::infinity()), "\"0x7ff0000000000000\"");
    EXPECT_EQ(printed(TYPE_DOUBLE, -std::numeric_limits<double>::infinity()), "\"0xfff0000000000000\"");
    const auto marked = std::bit_cast<double>(uint64_t{0x7ff8000000001234});
    EXPECT_EQ(bits(through_json(TYPE_DOUBLE, marked)), bits(marked));
}

TEST(ElementJson, NumbersRejectAnythingElse)
{
    for (const char* text : {"null", "true", "[]", "{}", "\"1\"", "\"\"", "1e999", "-1e999", "\"inf\"",
                             "\"0x7ff000000000000\"", "\"0x07ff0000000000000\"", "\"0x3ff0000000000000\"",
                             "\"0x7ff000000000000g\"", "\"7ff0000000000000\"", "\"0x-7ff000000000000\""}) {
        expect_refused<double>(TYPE_DOUBLE, text);
    }
}

// --- texts -----------------------------------------------------------------------------------

struct Text {
    char bytes[kOrvanTextSize] = {};
};

Text text_of(const std::string& bytes)
{
    Text text;
    std::memcpy(text.bytes, bytes.data(), bytes.size());
    return text;
}

TEST(ElementJson, EachByteOfATextSurvives)
{
    for (int byte = 1; byte < 256; ++byte) {
        const Text text = text_of(std::string("<") + static_cast<char>(byte) + ">");
        const Text back = through_json(TYPE_STRING, text);
        EXPECT_EQ(std::memcmp(back.bytes, text.bytes, kOrvanTextSize), 0) << "byte " << byte;
    }
}

TEST(ElementJson, TextIsValidUtf8WhateverItsBytes)
{
    EXPECT_EQ(printed(TYPE_STRING, text_of("a\xFF\x80")), "\"a\xC3\xBF\xC2\x80\"");
    EXPECT_EQ(printed(TYPE_STRING, text_of("\"\\\n\x01")), "\"\\\"\\\\\\n\\u0001\"");
}

TEST(ElementJson, TextTakesEscapesAndPlainCharacters)
{
    Text text;
    EXPECT_TRUE(parsed(TYPE_STRING, "\"\\u00b5s\"", text));
    EXPECT_STREQ(text.bytes, "\xB5s");
    EXPECT_TRUE(parsed(TYPE_STRING, "\"\xC2\xB5s\"", text));
    EXPECT_STREQ(text.bytes, "\xB5s");
}

TEST(ElementJson, TextFillsItsFieldWithZeros)
{
    Text text;
    std::memset(text.bytes, 'x', sizeof text.bytes);
    EXPECT_TRUE(parsed(TYPE_STRING, "\"ab\"", text));
    const Text expected = text_of("ab");
    EXPECT_EQ(std::memcmp(text.bytes, expected.bytes, sizeof text.bytes), 0);
    EXPECT_TRUE(parsed(TYPE_STRING, "\"\"", text));
    EXPECT_EQ(std::memcmp(text.bytes, Text().bytes, sizeof text.bytes), 0);
}

TEST(ElementJson, TextTakes31BytesAndNoMore)
{
    const std::string longest(31, 'x');
    EXPECT_STREQ(through_json(TYPE_STRING, text_of(longest)).bytes, longest.c_str());
    expect_refused<Text>(TYPE_STRING, '"' + longest + "x\"");
    std::string accents = "\"";
    for (int i = 0; i < 31; ++i) {
        accents += "\xC3\xA9";
    }
    Text text;
    EXPECT_TRUE(parsed(TYPE_STRING, accents + '"', text));
    EXPECT_EQ(std::string(text.bytes), std::string(31, '\xE9'));
    expect_refused<Text>(TYPE_STRING, accents + "\xC3\xA9\"");
}

TEST(ElementJson, TextWithoutItsZeroLosesItsLastByte)
{
    EXPECT_EQ(printed(TYPE_STRING, text_of(std::string(32, 'x'))), '"' + std::string(31, 'x') + '"');
}

TEST(ElementJson, TextRejectsAnythingElse)
{
    for (const char* text :
         {"null", "true", "1", "[]", "{}", "\"\xE2\x84\xA6\"", "\"\\u2126\"", "\"\\u0100\"", "\"\xFF\"",
          "\"\xC3\"", "\"\xC3(\"", "\"\x80\"", "\"\xC1\x81\"", "\"\xF0\x9F\x98\x80\""}) {
        expect_refused<Text>(TYPE_STRING, text);
    }
}

TEST(ElementJson, UnknownTypeHasNoJsonForm)
{
    const OrvanElementData element = {0, 1.0, static_cast<ValueTypes>(8), 4, eSendNone};
    uint8_t record[8] = {};
    EXPECT_EQ(orvan_common::element_to_json(element, record), nullptr);
    const Json one(cJSON_CreateNumber(1));
    EXPECT_FALSE(orvan_common::element_from_json(element, one.get(), record));
}

} // namespace
