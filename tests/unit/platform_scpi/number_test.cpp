#include <cmath>
#include <limits>
#include <locale>

#include "../../../platform/scpi/src/decimal.h"
#include "data_fixture.h"

namespace {

struct Number : ScpiData {
    template <typename T>
    T read(scpi_bool_t (*reader)(scpi_t*, T*, scpi_bool_t), const std::string& text)
    {
        parameters(text);
        T value = 77;
        const bool ok = reader(&context, &value, true);
        EXPECT_EQ(ok, errors.empty()) << text;
        EXPECT_TRUE(ok || value == T(0)) << text;
        return value;
    }
};

struct IntegerRow {
    const char* text;
    int64_t value;
    int error;
};

class Integer : public Number, public ::testing::WithParamInterface<IntegerRow> {};

TEST_P(Integer, IsReadInEveryForm)
{
    EXPECT_EQ(read(SCPI_ParamInt64, GetParam().text), GetParam().value);
    EXPECT_EQ(error(), GetParam().error);
    EXPECT_EQ(read(SCPI_ParamInt32, GetParam().text), GetParam().value);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Forms, Integer,
                         ::testing::Values(IntegerRow{"0", 0, 0}, IntegerRow{"1", 1, 0},
                                           IntegerRow{"+1.", 1, 0}, IntegerRow{"-12", -12, 0},
                                           IntegerRow{"007", 7, 0}, IntegerRow{"1E3", 1000, 0},
                                           IntegerRow{"1e+3", 1000, 0}, IntegerRow{"1 E 3", 1000, 0},
                                           IntegerRow{"1.25E+2", 125, 0}, IntegerRow{"1200E-2", 12, 0},
                                           IntegerRow{".5e1", 5, 0}, IntegerRow{"0.00012E5", 12, 0},
                                           IntegerRow{"0E32000", 0, 0}, IntegerRow{"0.000E-32000", 0, 0},
                                           IntegerRow{"1E-32000", 0, 0}, IntegerRow{"#H1f", 31, 0},
                                           IntegerRow{"#Q17", 15, 0}, IntegerRow{"#B1011", 11, 0},
                                           IntegerRow{"#H00000000000000000000FF", 255, 0}));

INSTANTIATE_TEST_SUITE_P(
    Rounding, Integer,
    ::testing::Values(IntegerRow{"0.4", 0, 0}, IntegerRow{"0.49999999999999999999", 0, 0},
                      IntegerRow{"0.5", 1, 0}, IntegerRow{"1.5", 2, 0}, IntegerRow{"2.5", 3, 0},
                      IntegerRow{"-0.4", 0, 0}, IntegerRow{"-0.5", -1, 0}, IntegerRow{"-2.5", -3, 0},
                      IntegerRow{"0.05", 0, 0}, IntegerRow{"0.05E1", 1, 0}, IntegerRow{"99.5", 100, 0},
                      IntegerRow{"5E-1", 1, 0}, IntegerRow{"9E-2", 0, 0}));

INSTANTIATE_TEST_SUITE_P(
    Refused, Integer,
    ::testing::Values(IntegerRow{"", 0, -109}, IntegerRow{"ABC", 0, -148}, IntegerRow{"MIN", 0, -148},
                      IntegerRow{"'1'", 0, -158}, IntegerRow{"\"1\"", 0, -158}, IntegerRow{"#111", 0, -168},
                      IntegerRow{"(1)", 0, -178}, IntegerRow{"1 V", 0, -138}, IntegerRow{"1E32001", 0, -123},
                      IntegerRow{"1E-32001", 0, -123}, IntegerRow{"1E99999999999999999999999", 0, -123},
                      IntegerRow{"0E99999", 0, -123}, IntegerRow{"1E20", 0, -222},
                      IntegerRow{"1E32000", 0, -222}, IntegerRow{"-1E20", 0, -222},
                      IntegerRow{"#HFFFFFFFFFFFFFFFFF", 0, -222}, IntegerRow{"1.2.3", 0, -121}));

TEST_F(Number, Int32HasItsLimits)
{
    EXPECT_EQ(read(SCPI_ParamInt32, "2147483647"), INT32_MAX);
    EXPECT_EQ(read(SCPI_ParamInt32, "-2147483648"), INT32_MIN);
    EXPECT_EQ(read(SCPI_ParamInt32, "2147483647.4"), INT32_MAX);
    EXPECT_EQ(read(SCPI_ParamInt32, "#H7FFFFFFF"), INT32_MAX);
    for (const char* text : {"2147483648", "-2147483649", "2147483647.5", "-2147483648.5", "#HFFFFFFFF"}) {
        read(SCPI_ParamInt32, text);
        EXPECT_EQ(error(), -222) << text;
    }
}

TEST_F(Number, UInt32HasItsLimits)
{
    EXPECT_EQ(read(SCPI_ParamUInt32, "4294967295"), UINT32_MAX);
    EXPECT_EQ(read(SCPI_ParamUInt32, "#HFFFFFFFF"), UINT32_MAX);
    EXPECT_EQ(read(SCPI_ParamUInt32, "0"), 0u);
    EXPECT_EQ(read(SCPI_ParamUInt32, "-0"), 0u);
    EXPECT_EQ(read(SCPI_ParamUInt32, "-0.4"), 0u);
    for (const char* text : {"4294967296", "4294967295.5", "-1", "-0.5", "#H100000000", "1E10"}) {
        read(SCPI_ParamUInt32, text);
        EXPECT_EQ(error(), -222) << text;
    }
}

TEST_F(Number, Int64HasItsLimits)
{
    EXPECT_EQ(read(SCPI_ParamInt64, "9223372036854775807"), INT64_MAX);
    EXPECT_EQ(read(SCPI_ParamInt64, "-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(read(SCPI_ParamInt64, "9223372036854775807.49"), INT64_MAX);
    EXPECT_EQ(read(SCPI_ParamInt64, "9.223372036854775807E18"), INT64_MAX);
    for (const char* text : {"9223372036854775808", "-9223372036854775809", "9223372036854775807.5",
                             "-9223372036854775808.5", "#H8000000000000000"}) {
        read(SCPI_ParamInt64, text);
        EXPECT_EQ(error(), -222) << text;
    }
}

TEST_F(Number, UInt64HasItsLimits)
{
    EXPECT_EQ(read(SCPI_ParamUInt64, "18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(read(SCPI_ParamUInt64, "18446744073709551615.4"), UINT64_MAX);
    EXPECT_EQ(read(SCPI_ParamUInt64, "#HFFFFFFFFFFFFFFFF"), UINT64_MAX);
    EXPECT_EQ(read(SCPI_ParamUInt64, "#Q1777777777777777777777"), UINT64_MAX);
    EXPECT_EQ(read(SCPI_ParamUInt64, "#B" + std::string(64, '1')), UINT64_MAX);
    EXPECT_EQ(read(SCPI_ParamUInt64, "1E19"), 10000000000000000000ull);
    for (const std::string& text :
         {std::string("18446744073709551616"), std::string("18446744073709551615.5"), std::string("1E20"),
          std::string("99999999999999999999"), std::string("-1"), std::string("#H10000000000000000"),
          "#B1" + std::string(64, '0'), std::string("#Q2000000000000000000000")}) {
        read(SCPI_ParamUInt64, text);
        EXPECT_EQ(error(), -222) << text;
    }
}

TEST_F(Number, MayHave255DigitsWithoutItsLeadingZeros)
{
    const std::string zeros(5000, '0');
    const std::string digits(254, '9');
    EXPECT_EQ(read(SCPI_ParamInt32, zeros + "12." + std::string(253, '0')), 12);
    EXPECT_EQ(read(SCPI_ParamInt32, "0." + zeros + "7E5001"), 7);
    EXPECT_DOUBLE_EQ(read(SCPI_ParamDouble, zeros + "1" + digits + "E-254"), 2.0);
    read(SCPI_ParamDouble, "1." + digits + "9");
    EXPECT_EQ(error(), -124);
    read(SCPI_ParamInt32, "12." + std::string(254, '0'));
    EXPECT_EQ(error(), -124);
    read(SCPI_ParamInt32, std::string(100000, '9'));
    EXPECT_EQ(error(), -124);
}

TEST_F(Number, AbsentOptionalIsNoErrorAndZero)
{
    parameters("");
    int32_t i = 7;
    double d = 7;
    EXPECT_FALSE(SCPI_ParamInt32(&context, &i, false));
    EXPECT_FALSE(SCPI_ParamDouble(&context, &d, false));
    EXPECT_EQ(i, 0);
    EXPECT_EQ(d, 0);
    EXPECT_EQ(error(), 0);
}

TEST_F(Number, SeveralAreReadInOrder)
{
    parameters("1 , #HFF,-2.5E0 ,1 E 3");
    uint32_t a = 0;
    uint64_t b = 0;
    float c = 0;
    double d = 0;
    EXPECT_TRUE(SCPI_ParamUInt32(&context, &a, true));
    EXPECT_TRUE(SCPI_ParamUInt64(&context, &b, true));
    EXPECT_TRUE(SCPI_ParamFloat(&context, &c, true));
    EXPECT_TRUE(SCPI_ParamDouble(&context, &d, true));
    EXPECT_EQ(a, 1u);
    EXPECT_EQ(b, 255u);
    EXPECT_EQ(c, -2.5f);
    EXPECT_EQ(d, 1000);
}

/* Floating point */

struct DoubleRow {
    const char* text;
    double value;
    int error;
};

class Double : public Number, public ::testing::WithParamInterface<DoubleRow> {};

TEST_P(Double, IsReadCorrectlyRounded)
{
    EXPECT_EQ(read(SCPI_ParamDouble, GetParam().text), GetParam().value);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Each, Double,
                         ::testing::Values(DoubleRow{"0", 0, 0}, DoubleRow{"1", 1, 0}, DoubleRow{"+1.", 1, 0},
                                           DoubleRow{"-.5", -0.5, 0}, DoubleRow{".5e-3", 0.5e-3, 0},
                                           DoubleRow{"1 E 3", 1e3, 0}, DoubleRow{"1 E -3", 1e-3, 0},
                                           DoubleRow{"0.1", 0.1, 0}, DoubleRow{"123456.789e3", 123456789, 0},
                                           DoubleRow{"0.30000000000000004", 0.30000000000000004, 0},
                                           DoubleRow{"9007199254740993", 9007199254740992.0, 0},
                                           DoubleRow{"1.7976931348623157E308", 1.7976931348623157e308, 0},
                                           DoubleRow{"4.9406564584124654E-324", 4.9406564584124654e-324, 0},
                                           DoubleRow{"1E-400", 0, 0}, DoubleRow{"-1E-32000", 0, 0},
                                           DoubleRow{"0E32000", 0, 0}, DoubleRow{"#HFF", 255, 0},
                                           DoubleRow{"#B11", 3, 0}, DoubleRow{"1.8E308", 0, -222},
                                           DoubleRow{"-1E309", 0, -222}, DoubleRow{"1E32000", 0, -222},
                                           DoubleRow{"#HFFFFFFFFFFFFFFFFF", 0, -222},
                                           DoubleRow{"1E32001", 0, -123}, DoubleRow{"1V", 0, -138},
                                           DoubleRow{"INF", 0, -148}, DoubleRow{"NAN", 0, -148},
                                           DoubleRow{"'1'", 0, -158}, DoubleRow{"#111", 0, -168},
                                           DoubleRow{"(1)", 0, -178}, DoubleRow{"", 0, -109}));

TEST_F(Number, FloatIsRoundedOnceFromTheText)
{
    EXPECT_EQ(read(SCPI_ParamFloat, "0.1"), 0.1f);
    // Just above the middle of 1 and its neighbour: via a double it would round to 1.
    EXPECT_EQ(read(SCPI_ParamFloat, "1.00000005960464477540"), std::nextafter(1.0f, 2.0f));
    EXPECT_EQ(read(SCPI_ParamFloat, "3.4028235E38"), std::numeric_limits<float>::max());
    read(SCPI_ParamFloat, "1E39");
    EXPECT_EQ(error(), -222);
    EXPECT_EQ(read(SCPI_ParamFloat, "1E-60"), 0.0f);
    EXPECT_EQ(error(), 0);
}

struct NumberInALocale : Number {
    void expect_decimal_points()
    {
        EXPECT_EQ(read(SCPI_ParamDouble, "1234.5"), 1234.5);
        SCPI_ResultDouble(&context, 1234.5);
        EXPECT_EQ(output(), "1234.5");
    }
};

TEST_F(NumberInALocale, OfTheStreamsStillHasADecimalPoint)
{
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale old = std::locale::global(std::locale(std::locale(), new Comma));
    expect_decimal_points();
    std::locale::global(old);
}

TEST_F(Number, ConvertersAcceptAnElementReadEarlier)
{
    parameters("12.5");
    scpi_parameter_t element;
    ASSERT_TRUE(SCPI_Parameter(&context, &element, true));
    int32_t i32 = 0;
    uint32_t u32 = 0;
    int64_t i64 = 0;
    uint64_t u64 = 0;
    float f = 0;
    double d = 0;
    EXPECT_TRUE(SCPI_ParamToInt32(&context, &element, &i32));
    EXPECT_TRUE(SCPI_ParamToUInt32(&context, &element, &u32));
    EXPECT_TRUE(SCPI_ParamToInt64(&context, &element, &i64));
    EXPECT_TRUE(SCPI_ParamToUInt64(&context, &element, &u64));
    EXPECT_TRUE(SCPI_ParamToFloat(&context, &element, &f));
    EXPECT_TRUE(SCPI_ParamToDouble(&context, &element, &d));
    EXPECT_EQ(i32, 13);
    EXPECT_EQ(u32, 13u);
    EXPECT_EQ(i64, 13);
    EXPECT_EQ(u64, 13u);
    EXPECT_EQ(f, 12.5f);
    EXPECT_EQ(d, 12.5);
}

TEST_F(Number, ConverterOfAnAbsentElementIsADataTypeError)
{
    const scpi_parameter_t none{};
    int32_t value = 7;
    EXPECT_FALSE(SCPI_ParamToInt32(&context, &none, &value));
    EXPECT_EQ(error(), -104);
}

/* ParamNumber */

struct NumberRow {
    const char* text;
    double value;
    scpi_unit_t unit;
    int8_t base;
    int error;
};

class NumberWithUnit : public Number, public ::testing::WithParamInterface<NumberRow> {};

TEST_P(NumberWithUnit, IsInTheBaseUnit)
{
    parameters(GetParam().text);
    scpi_number_t number;
    EXPECT_EQ(SCPI_ParamNumber(&context, scpi_special_numbers_def, &number, true), GetParam().error == 0);
    EXPECT_EQ(error(), GetParam().error);
    EXPECT_FALSE(number.special);
    EXPECT_EQ(number.value, GetParam().value);
    EXPECT_EQ(number.unit, GetParam().unit);
    EXPECT_EQ(number.base, GetParam().base);
}

INSTANTIATE_TEST_SUITE_P(
    Each, NumberWithUnit,
    ::testing::Values(
        NumberRow{"1.5", 1.5, SCPI_UNIT_NONE, 10, 0}, NumberRow{"1 GHZ", 1e9, SCPI_UNIT_HERTZ, 10, 0},
        NumberRow{"1.001kHz", 1001, SCPI_UNIT_HERTZ, 10, 0},
        NumberRow{"2.4 E 3 MHZ", 2.4e9, SCPI_UNIT_HERTZ, 10, 0},
        NumberRow{"-4.35MV", -4.35e-3, SCPI_UNIT_VOLT, 10, 0},
        NumberRow{"3us", 3e-6, SCPI_UNIT_SECOND, 10, 0}, NumberRow{"2 MIN", 120, SCPI_UNIT_SECOND, 10, 0},
        NumberRow{"0.1 HR", 360, SCPI_UNIT_SECOND, 10, 0}, NumberRow{"-10 DBM", -10, SCPI_UNIT_DBM, 10, 0},
        NumberRow{"50 PCT", 50, SCPI_UNIT_PERCENT, 10, 0}, NumberRow{"#HFF", 255, SCPI_UNIT_NONE, 16, 0},
        NumberRow{"#Q17", 15, SCPI_UNIT_NONE, 8, 0}, NumberRow{"#B101", 5, SCPI_UNIT_NONE, 2, 0},
        NumberRow{"1 E 3 S", 1000, SCPI_UNIT_SECOND, 10, 0},

        NumberRow{"1 XYZ", 0, SCPI_UNIT_NONE, 10, -131},
        NumberRow{"1 ABCDEFGHIJKLM", 0, SCPI_UNIT_NONE, 10, -134},
        NumberRow{"1E308 KHZ", 0, SCPI_UNIT_NONE, 10, -222},
        NumberRow{"1E308 MIN", 0, SCPI_UNIT_NONE, 10, -222},
        NumberRow{"1E99999 HZ", 0, SCPI_UNIT_NONE, 10, -123}, NumberRow{"'1'", 0, SCPI_UNIT_NONE, 10, -158},
        NumberRow{"#111", 0, SCPI_UNIT_NONE, 10, -168}, NumberRow{"(1)", 0, SCPI_UNIT_NONE, 10, -178},
        NumberRow{"FOO", 0, SCPI_UNIT_NONE, 10, -224}, NumberRow{"", 0, SCPI_UNIT_NONE, 10, -109}));

TEST_F(Number, SpecialsAreReadInShortAndLongForm)
{
    const std::pair<const char*, scpi_special_number_t> rows[] = {
        {"MIN", SCPI_NUM_MIN},     {"minimum", SCPI_NUM_MIN}, {"MAX", SCPI_NUM_MAX},
        {"MAXIMUM", SCPI_NUM_MAX}, {"DEF", SCPI_NUM_DEF},     {"DEFAULT", SCPI_NUM_DEF},
        {"UP", SCPI_NUM_UP},       {"DOWN", SCPI_NUM_DOWN},   {"NAN", SCPI_NUM_NAN},
        {"INF", SCPI_NUM_INF},     {"NINF", SCPI_NUM_NINF},   {"AUTO", SCPI_NUM_AUTO},
        {"Infinity", SCPI_NUM_INF}};
    for (const auto& [text, tag] : rows) {
        parameters(text);
        scpi_number_t number;
        EXPECT_TRUE(SCPI_ParamNumber(&context, scpi_special_numbers_def, &number, true)) << text;
        EXPECT_TRUE(number.special);
        EXPECT_EQ(number.tag, tag) << text;
        EXPECT_EQ(number.value, 0);
    }
}

TEST_F(Number, SpecialsAreTheCallersList)
{
    constexpr scpi_choice_def_t kOwn[] = {{"OVERload", 42}, {nullptr, -1}};
    parameters("over");
    scpi_number_t number;
    EXPECT_TRUE(SCPI_ParamNumber(&context, kOwn, &number, true));
    EXPECT_EQ(number.tag, 42);
    parameters("MIN");
    EXPECT_FALSE(SCPI_ParamNumber(&context, kOwn, &number, true));
    EXPECT_EQ(error(), -224);
}

TEST_F(Number, WithoutAListOfSpecialsAWordIsMinus148)
{
    parameters("MIN");
    scpi_number_t number;
    EXPECT_FALSE(SCPI_ParamNumber(&context, nullptr, &number, true));
    EXPECT_EQ(error(), -148);
}

TEST_F(Number, WithoutUnitsASuffixIsMinus138)
{
    context.units = nullptr;
    parameters("1 V");
    scpi_number_t number;
    EXPECT_FALSE(SCPI_ParamNumber(&context, nullptr, &number, true));
    EXPECT_EQ(error(), -138);
}

TEST_F(Number, AbsentOptionalWithUnitIsNoError)
{
    parameters("");
    scpi_number_t number{true, 1, 2, SCPI_UNIT_VOLT, 2};
    EXPECT_FALSE(SCPI_ParamNumber(&context, nullptr, &number, false));
    EXPECT_EQ(error(), 0);
    EXPECT_FALSE(number.special);
    EXPECT_EQ(number.value, 0);
}

TEST(Decimal, ExactnessReportsWhetherDigitsWereRoundedAway)
{
    const std::pair<std::string, bool> rows[] = {
        {"12", true},   {"12.000", true}, {"12.5", false}, {"12.0001", false}, {"0", true},
        {"0.00", true}, {"0.1", false},   {"0.01", false}, {"1.2E1", true},    {"120E-1", true}};
    for (const auto& [text, exact] : rows) {
        scpi::Decimal decimal;
        ASSERT_EQ(scpi::parse_decimal(text.data(), text.size(), &decimal), 0);
        EXPECT_EQ(scpi::to_magnitude(decimal).exact, exact) << text;
    }
}

} // namespace
