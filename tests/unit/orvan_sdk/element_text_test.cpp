#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include "dataorvan.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace {

// ---- update_orvan_DB

constexpr uint32_t kPos = 16; // of the element in the record below
constexpr uint8_t kUntouched = 0xA5;

// A record of 80 bytes after a text was stored; checks that nothing outside the element's bytes changed.
class Stored {
public:
    Stored(ValueTypes type, const char* text, double factor, uint32_t size)
    {
        std::memset(m_record, kUntouched, sizeof m_record);
        const OrvanElementData element{kPos, factor, type, size, eSendNone};
        update_orvan_DB(m_record, &element, text);
        for (uint32_t i = 0; i < sizeof m_record; ++i) {
            const bool inside = i >= kPos && i < kPos + size;
            EXPECT_TRUE(inside || m_record[i] == kUntouched) << "byte " << i << " for " << text;
        }
    }

    template <typename T>
    T as() const
    {
        T value;
        std::memcpy(&value, m_record + kPos, sizeof value);
        return value;
    }
    const char* text() const { return reinterpret_cast<const char*>(m_record + kPos); }
    uint8_t byte(size_t index) const { return m_record[kPos + index]; }

private:
    uint8_t m_record[80];
};

int switch_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_BOOL, text, factor, 4).as<int>();
}
int32_t int32_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_INT32, text, factor, 4).as<int32_t>();
}
uint32_t uint32_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_UINT32, text, factor, 4).as<uint32_t>();
}
int64_t int64_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_INT64, text, factor, 8).as<int64_t>();
}
uint64_t uint64_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_UINT64, text, factor, 8).as<uint64_t>();
}
float float_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_FLOAT, text, factor, 4).as<float>();
}
double double_of(const char* text, double factor = 1.0)
{
    return Stored(TYPE_DOUBLE, text, factor, 8).as<double>();
}

TEST(UpdateElement, OnlyThreeSpellingsAreOn)
{
    for (const char* on : {"ON", "On", "1"}) {
        EXPECT_EQ(switch_of(on), 1) << on;
    }
    for (const char* off : {"OFF", "0", "on", "oN", "", "2", "01", "1.0", "ON ", " ON", "TRUE", "-1"}) {
        EXPECT_EQ(switch_of(off), 0) << off;
    }
}

TEST(UpdateElement, ASwitchIsNotScaled)
{
    EXPECT_EQ(switch_of("ON", 5.0), 1);
}

TEST(UpdateElement, IntegersAreTakenInBaseTen)
{
    EXPECT_EQ(int32_of("-42"), -42);
    EXPECT_EQ(int32_of("010"), 10);
    EXPECT_EQ(int32_of("0x10"), 0);
    EXPECT_EQ(int32_of("2147483647"), 2147483647);
    EXPECT_EQ(uint32_of("4294967295"), 4294967295u);
    EXPECT_EQ(int64_of("-9223372036854775808"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(uint64_of("18446744073709551615"), std::numeric_limits<uint64_t>::max());
}

TEST(UpdateElement, IntegersAreScaledByTheTruncatedFactor)
{
    EXPECT_EQ(int32_of("3", 1000.9), 3000);
    EXPECT_EQ(int32_of("3", -2.9), -6);
    EXPECT_EQ(uint32_of("3", 1000.9), 3000u);
    EXPECT_EQ(int64_of("-3", 1e9), -3000000000);
    EXPECT_EQ(uint64_of("3", 1e9), 3000000000u);
}

TEST(UpdateElement, AFractionalFactorMakesAnIntegerZero)
{
    EXPECT_EQ(int32_of("1000", 0.999), 0);
    EXPECT_EQ(uint32_of("1000", 0.001), 0u);
    EXPECT_EQ(int64_of("1000", 0.5), 0);
    EXPECT_EQ(uint64_of("1000", 0.5), 0u);
}

TEST(UpdateElement, AProductOutOfRangeIsNoTrap)
{
    EXPECT_EQ(int32_of("2147483647", 2.0), -2);
    EXPECT_EQ(int64_of("9223372036854775807", 2.0), -2);
}

TEST(UpdateElement, FractionsOfAnIntegerAreNotRead)
{
    EXPECT_EQ(int32_of("1.9"), 1);
    EXPECT_EQ(uint32_of("1e3"), 1u);
    EXPECT_EQ(int64_of("-1.9"), -1);
}

TEST(UpdateElement, FloatsAndDoublesAreScaledExactly)
{
    EXPECT_EQ(float_of("0.1"), 0.1f);
    EXPECT_EQ(float_of("0.1", 3.0), 0.1f * 3.0f);
    EXPECT_EQ(float_of("7.61", 0.001), 7.61f * 0.001f);
    EXPECT_NE(7.61f * 0.001f, static_cast<float>(7.61 * 0.001)) << "or the line above shows nothing";
    EXPECT_EQ(double_of("-12.5"), -12.5);
    EXPECT_EQ(double_of("2.5e9"), 2.5e9);
    EXPECT_EQ(double_of("1.0E-06"), 1e-6);
    EXPECT_EQ(double_of("1000", 0.001), 1.0);
    EXPECT_EQ(double_of("0.1", 3.0), 0.1 * 3.0);
}

TEST(UpdateElement, ANumberEndsAtTheFirstCharacterThatDoesNotFit)
{
    EXPECT_EQ(double_of("1GHz"), 1.0);
    EXPECT_EQ(double_of("1GHz", 1e9), 1e9);
    EXPECT_EQ(double_of("5.5,6.5"), 5.5);
    EXPECT_EQ(int32_of("12dB"), 12);
    EXPECT_EQ(float_of(" 3 4"), 3.0f);
}

TEST(UpdateElement, ATextThatIsNoNumberIsZero)
{
    EXPECT_EQ(int32_of("MAX"), 0);
    EXPECT_EQ(uint32_of(""), 0u);
    EXPECT_EQ(int64_of("-"), 0);
    EXPECT_EQ(uint64_of("x"), 0u);
    EXPECT_EQ(float_of("DEF"), 0.0f);
    EXPECT_EQ(double_of("\"5\""), 0.0);
}

TEST(UpdateElement, ASmallerElementGetsAsManyBytesAsItHolds)
{
    EXPECT_EQ(Stored(TYPE_INT32, "16909060", 1.0, 2).byte(0), 4); // 0x01020304
    EXPECT_EQ(Stored(TYPE_INT32, "16909060", 1.0, 2).byte(1), 3);
    EXPECT_EQ(Stored(TYPE_BOOL, "ON", 1.0, 1).byte(0), 1);
    Stored(TYPE_DOUBLE, "1", 1.0, 0); // no byte at all
}

TEST(UpdateElement, ALargerElementGetsTheValuesWidth)
{
    struct {
        ValueTypes type;
        size_t width;
    } const rows[] = {{TYPE_BOOL, 4},   {TYPE_INT32, 4}, {TYPE_UINT32, 4}, {TYPE_INT64, 8},
                      {TYPE_UINT64, 8}, {TYPE_FLOAT, 4}, {TYPE_DOUBLE, 8}};
    for (const auto& row : rows) {
        const Stored stored(row.type, "0", 1.0, 16);
        EXPECT_EQ(stored.byte(row.width - 1), 0) << row.type;
        EXPECT_EQ(stored.byte(row.width), kUntouched) << row.type;
    }
}

TEST(UpdateElement, ATextIsStoredWithQuotesAndTerminator)
{
    const Stored stored(TYPE_STRING, "\"list one\"", 1.0, 32);
    EXPECT_STREQ(stored.text(), "\"list one\"");
    EXPECT_EQ(stored.byte(11), kUntouched);
    EXPECT_STREQ(Stored(TYPE_STRING, "", 1.0, 32).text(), "");
}

TEST(UpdateElement, ATextKeepsOneByteLessThanItsField)
{
    const std::string forty(40, 'x');
    EXPECT_EQ(Stored(TYPE_STRING, forty.c_str(), 1.0, 32).text(), std::string(31, 'x'));
    EXPECT_EQ(Stored(TYPE_STRING, forty.substr(0, 32).c_str(), 1.0, 32).text(), std::string(31, 'x'));
    EXPECT_EQ(Stored(TYPE_STRING, forty.substr(0, 31).c_str(), 1.0, 32).text(), std::string(31, 'x'));
    EXPECT_STREQ(Stored(TYPE_STRING, "x", 1.0, 1).text(), "");
}

TEST(UpdateElement, ATextIsReadNoFurtherThanItsFieldHolds)
{
    constexpr size_t kPage = 4096;
    void* const pages =
        ::mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(static_cast<char*>(pages) + kPage, kPage, PROT_NONE), 0);
    char* const without_end = static_cast<char*>(pages) + kPage - 31;
    std::memset(without_end, 'x', 31);
    uint8_t record[32];
    const OrvanElementData element{0, 1.0, TYPE_STRING, sizeof record, eSendNone};
    update_orvan_DB(record, &element, without_end);
    EXPECT_EQ(reinterpret_cast<const char*>(record), std::string(31, 'x'));
    ::munmap(pages, 2 * kPage);
}

TEST(UpdateElement, ATextFieldWithoutSizeIsNotTouched)
{
    Stored(TYPE_STRING, "x", 1.0, 0);
    Stored(TYPE_STRING, "", 1.0, 0);
}

TEST(UpdateElement, WithANullNothingHappens)
{
    uint8_t record[32];
    std::memset(record, kUntouched, sizeof record);
    const OrvanElementData element{0, 1.0, TYPE_INT32, 4, eSendNone};
    update_orvan_DB(nullptr, &element, "1");
    update_orvan_DB(record, nullptr, "1");
    update_orvan_DB(record, &element, nullptr);
    EXPECT_EQ(record[0], kUntouched);
}

TEST(UpdateElement, AnUnknownTypeStoresNothing)
{
    Stored(static_cast<ValueTypes>(8), "1", 1.0, 0);
}

// ---- format_element_value

template <typename T>
std::string formatted(ValueTypes type, T value, double factor = 1.0, size_t size = 64)
{
    char place[8 + 64] = {};
    std::memcpy(place + 8, &value, sizeof value);
    char buffer[64];
    std::memset(buffer, '#', sizeof buffer);
    const OrvanElementData element{8, factor, type, sizeof value, eSendNone};
    EXPECT_TRUE(format_element_value(place, element, buffer, size));
    return buffer;
}

TEST(FormatElement, SwitchesAreWords)
{
    EXPECT_EQ(formatted(TYPE_BOOL, 0), "OFF");
    EXPECT_EQ(formatted(TYPE_BOOL, 1), "ON");
    EXPECT_EQ(formatted(TYPE_BOOL, 2), "ON");
    EXPECT_EQ(formatted(TYPE_BOOL, -1), "ON");
    EXPECT_EQ(formatted(TYPE_BOOL, 1, 5.0), "ON");
}

TEST(FormatElement, IntegersAreDividedByTheTruncatedFactor)
{
    EXPECT_EQ(formatted(TYPE_INT32, int32_t{-7}), "-7");
    EXPECT_EQ(formatted(TYPE_INT32, int32_t{-7}, 2.9), "-3");
    EXPECT_EQ(formatted(TYPE_UINT32, uint32_t{4000000000}), "4000000000");
    EXPECT_EQ(formatted(TYPE_UINT32, uint32_t{4000000000}, 1000.9), "4000000");
    EXPECT_EQ(formatted(TYPE_INT64, int64_t{-9000000000000000000}), "-9000000000000000000");
    EXPECT_EQ(formatted(TYPE_INT64, int64_t{-9000000000}, 1e6), "-9000");
    EXPECT_EQ(formatted(TYPE_UINT64, uint64_t{18000000000000000000u}), "18000000000000000000");
    EXPECT_EQ(formatted(TYPE_UINT64, uint64_t{18000000000000000000u}, 1e3), "18000000000000000");
}

TEST(FormatElement, FloatsHaveSixAndDoublesTwelveDigits)
{
    EXPECT_EQ(formatted(TYPE_FLOAT, 0.1f), "0.1");
    EXPECT_EQ(formatted(TYPE_FLOAT, 1234567.0f), "1.23457e+06");
    EXPECT_EQ(formatted(TYPE_FLOAT, 5.0f, 2.0), "2.5");
    EXPECT_EQ(formatted(TYPE_DOUBLE, 1000000000.0), "1000000000");
    EXPECT_EQ(formatted(TYPE_DOUBLE, 1234567890123.0), "1.23456789012e+12");
    EXPECT_EQ(formatted(TYPE_DOUBLE, 0.000001), "1e-06");
    EXPECT_EQ(formatted(TYPE_DOUBLE, -12.5), "-12.5");
    EXPECT_EQ(formatted(TYPE_DOUBLE, 1.0, 0.001), "1000");
}

TEST(FormatElement, TextsAreUnchanged)
{
    struct Text {
        char bytes[32];
    };
    EXPECT_EQ(formatted(TYPE_STRING, Text{"EXTernal"}), "EXTernal");
    EXPECT_EQ(formatted(TYPE_STRING, Text{""}), "");
    EXPECT_EQ(formatted(TYPE_STRING, Text{"a %s \"b\""}), "a %s \"b\"");
}

TEST(FormatElement, LongTextsAreCut)
{
    EXPECT_EQ(formatted(TYPE_DOUBLE, 1000000000.0, 1.0, 4), "100");
    EXPECT_EQ(formatted(TYPE_BOOL, 1, 1.0, 1), "");
}

TEST(FormatElement, NullsAndUnknownTypesLeaveTheBuffer)
{
    const OrvanElementData element{0, 1.0, TYPE_INT32, 4, eSendNone};
    const OrvanElementData unknown{0, 1.0, static_cast<ValueTypes>(8), 4, eSendNone};
    const char place[8] = {};
    char buffer[8] = "kept";
    EXPECT_FALSE(format_element_value(nullptr, element, buffer, sizeof buffer));
    EXPECT_FALSE(format_element_value(place, element, nullptr, sizeof buffer));
    EXPECT_FALSE(format_element_value(place, unknown, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "kept");
}

// ---- each the other's inverse

// The rendering of a random value over the whole range of this type.
std::string drawn_text(std::mt19937_64& random, ValueTypes type, int64_t factor)
{
    const auto integer = [&](auto least, auto most) {
        return std::to_string(
            std::uniform_int_distribution(least / static_cast<decltype(least)>(factor),
                                          most / static_cast<decltype(most)>(factor))(random));
    };
    const auto real = [&](const char* format, double exponents) {
        const double exponent = std::uniform_real_distribution(-exponents, exponents)(random);
        const double sign = random() % 2 == 0 ? 1.0 : -1.0;
        char text[64];
        std::snprintf(text, sizeof text, format, sign * std::pow(10.0, exponent));
        return std::string(text);
    };
    switch (type) {
    case TYPE_BOOL:
        return random() % 2 == 0 ? "ON" : "OFF";
    case TYPE_INT32:
        return integer(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
    case TYPE_UINT32:
        return integer(uint32_t{0}, std::numeric_limits<uint32_t>::max());
    case TYPE_INT64:
        return integer(std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
    case TYPE_UINT64:
        return integer(uint64_t{0}, std::numeric_limits<uint64_t>::max());
    case TYPE_FLOAT:
        return real("%.6g", 30);
    case TYPE_DOUBLE:
        return real("%.12g", 290);
    case TYPE_STRING:
        break;
    }
    std::string text(random() % kOrvanTextSize, ' ');
    for (char& c : text) {
        c = static_cast<char>(std::uniform_int_distribution(1, 255)(random));
    }
    return text;
}

// What a record renders of an element that was written from the text.
std::string through_the_field(const OrvanElementData& element, const std::string& text)
{
    uint8_t record[sizeof(ORVAN_CONFIG)] = {};
    update_orvan_DB(record, &element, text.c_str());
    char shown[64] = "?";
    EXPECT_TRUE(format_element_value(reinterpret_cast<const char*>(record), element, shown, sizeof shown));
    return shown;
}

TEST(ElementText, OfEveryTypeAndFactorIsReadBackFromTheField)
{
    std::mt19937_64 random(20);
    for (const ValueTypes type : {TYPE_BOOL, TYPE_INT32, TYPE_UINT32, TYPE_INT64, TYPE_UINT64, TYPE_FLOAT,
                                  TYPE_DOUBLE, TYPE_STRING}) {
        for (const int64_t factor : {1, 3, 1000, 1000000}) {
            const uint32_t size = type == TYPE_STRING                        ? kOrvanTextSize
                                  : type >= TYPE_INT64 && type != TYPE_FLOAT ? 8
                                                                             : 4;
            // Misaligned, as a field may be.
            const OrvanElementData element{13, static_cast<double>(factor), type, size, eSendNone};
            for (int i = 0; i < 1000; ++i) {
                const std::string text = drawn_text(random, type, factor);
                ASSERT_EQ(through_the_field(element, text), text) << "type " << type << " factor " << factor;
            }
        }
    }
}

TEST(ElementText, OfEveryElementIsReadBackFromTheRecord)
{
    std::mt19937_64 random(21);
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        for (int i = 0; i < 20; ++i) {
            const std::string text = drawn_text(random, element.type, static_cast<int64_t>(element.factor));
            ASSERT_EQ(through_the_field(element, text), text) << "tag " << tag;
        }
    }
}

} // namespace
