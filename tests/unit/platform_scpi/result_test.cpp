#include <cmath>
#include <cstring>
#include <limits>

#include "data_fixture.h"

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct Result : ScpiData {
    template <typename... Parameters, typename... Args>
    std::string of(size_t (*function)(scpi_t*, Parameters...), Args... args)
    {
        parameters("");
        const size_t bytes = function(&context, static_cast<Parameters>(args)...);
        EXPECT_EQ(bytes, output().size());
        EXPECT_EQ(writes.size(), bytes == 0 ? 0u : 1u);
        EXPECT_EQ(context.output_count, bytes == 0 ? 0 : 1);
        return output();
    }
};

TEST_F(Result, CharactersAreOneWrite)
{
    EXPECT_EQ(SCPI_ResultCharacters(&context, "a;b\"\0c", 6), 6u);
    EXPECT_THAT(writes, ElementsAre("a;b\"\0c"s));
}

TEST_F(Result, SecondIsPrecededByACommaInItsOwnWrite)
{
    EXPECT_EQ(SCPI_ResultCharacters(&context, "abc", 3), 3u);
    EXPECT_EQ(SCPI_ResultInt32(&context, -5), 3u);
    EXPECT_EQ(SCPI_ResultText(&context, "x"), 4u);
    EXPECT_THAT(writes, ElementsAre("abc", ",", "-5", ",", "\"x\""));
    EXPECT_EQ(context.output_count, 3);
}

TEST_F(Result, EmptyCharactersAreNoResultAndNoComma)
{
    EXPECT_EQ(SCPI_ResultCharacters(&context, "", 0), 0u);
    EXPECT_EQ(SCPI_ResultCharacters(&context, nullptr, 5), 0u);
    EXPECT_EQ(SCPI_ResultMnemonic(&context, ""), 0u);
    EXPECT_EQ(SCPI_ResultMnemonic(&context, nullptr), 0u);
    EXPECT_THAT(writes, IsEmpty());
    EXPECT_EQ(context.output_count, 0);
    SCPI_ResultCharacters(&context, "a", 1);
    EXPECT_EQ(SCPI_ResultCharacters(&context, "", 0), 0u);
    SCPI_ResultCharacters(&context, "b", 1);
    EXPECT_THAT(writes, ElementsAre("a", ",", "b"));
}

TEST_F(Result, RefusedByWriteIsAFailureAndNotCounted)
{
    writes_taken = 0;
    EXPECT_EQ(SCPI_ResultCharacters(&context, "a", 1), 0u);
    EXPECT_EQ(context.output_count, 0);
    writes_taken = 1;
    EXPECT_EQ(SCPI_ResultCharacters(&context, "a", 1), 1u);
    EXPECT_EQ(SCPI_ResultCharacters(&context, "b", 1), 0u);
    writes_taken = 2;
    EXPECT_EQ(SCPI_ResultCharacters(&context, "b", 1), 0u) << "the comma was taken, the result was not";
    EXPECT_EQ(context.output_count, 1);
    EXPECT_EQ(error(), 0);
}

TEST_F(Result, WithoutAWriteCallbackIsDiscarded)
{
    const scpi_interface_t none{};
    context.interface = &none;
    EXPECT_EQ(SCPI_ResultCharacters(&context, "abc", 3), 3u);
    context.interface = nullptr;
    EXPECT_EQ(SCPI_ResultCharacters(&context, "abc", 3), 4u);
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, "abc", 3), 7u);
}

TEST_F(Result, MnemonicIsTheTextToItsNul)
{
    EXPECT_EQ(of(SCPI_ResultMnemonic, "NONE"), "NONE");
}

TEST_F(Result, TextIsQuotedAndItsQuotesAreDoubled)
{
    EXPECT_EQ(of(SCPI_ResultText, "abc"), "\"abc\"");
    EXPECT_EQ(of(SCPI_ResultText, ""), "\"\"");
    EXPECT_EQ(of(SCPI_ResultText, nullptr), "\"\"");
    EXPECT_EQ(of(SCPI_ResultText, "a\"b"), "\"a\"\"b\"");
    EXPECT_EQ(of(SCPI_ResultText, "\""), "\"\"\"\"");
    EXPECT_EQ(of(SCPI_ResultText, "it's"), "\"it's\"");
}

TEST_F(Result, TextHasALimitAndFailsPastIt)
{
    const std::string longest(SCPI_RESULT_TEXT_MAX - 2, 'x');
    EXPECT_EQ(of(SCPI_ResultText, longest.c_str()), '"' + longest + '"');
    EXPECT_EQ(of(SCPI_ResultText, (longest + 'x').c_str()), "");
    const std::string quotes(SCPI_RESULT_TEXT_MAX / 2, '"');
    EXPECT_EQ(of(SCPI_ResultText, quotes.c_str()), "");
    EXPECT_EQ(of(SCPI_ResultText, quotes.c_str() + 1).size(), size_t{SCPI_RESULT_TEXT_MAX});
}

TEST_F(Result, BoolIsOneOrZero)
{
    EXPECT_EQ(of(SCPI_ResultBool, true), "1");
    EXPECT_EQ(of(SCPI_ResultBool, false), "0");
}

TEST_F(Result, IntegersHaveTheirLimits)
{
    EXPECT_EQ(of(SCPI_ResultInt8, INT8_MIN), "-128");
    EXPECT_EQ(of(SCPI_ResultInt8, INT8_MAX), "127");
    EXPECT_EQ(of(SCPI_ResultInt16, INT16_MIN), "-32768");
    EXPECT_EQ(of(SCPI_ResultInt16, INT16_MAX), "32767");
    EXPECT_EQ(of(SCPI_ResultInt32, INT32_MIN), "-2147483648");
    EXPECT_EQ(of(SCPI_ResultInt32, INT32_MAX), "2147483647");
    EXPECT_EQ(of(SCPI_ResultInt64, INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(of(SCPI_ResultInt64, INT64_MAX), "9223372036854775807");
    EXPECT_EQ(of(SCPI_ResultUInt8, UINT8_MAX), "255");
    EXPECT_EQ(of(SCPI_ResultUInt16, UINT16_MAX), "65535");
    EXPECT_EQ(of(SCPI_ResultUInt32, UINT32_MAX), "4294967295");
    EXPECT_EQ(of(SCPI_ResultUInt64, UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(of(SCPI_ResultInt32, 0), "0");
    EXPECT_EQ(of(SCPI_ResultUInt8, 0), "0");
}

TEST_F(Result, BaseHasItsPrefix)
{
    EXPECT_EQ(of(SCPI_ResultUInt32Base, 48879u, 10), "48879");
    EXPECT_EQ(of(SCPI_ResultUInt32Base, 48879u, 16), "#HBEEF");
    EXPECT_EQ(of(SCPI_ResultUInt32Base, 63u, 8), "#Q77");
    EXPECT_EQ(of(SCPI_ResultUInt32Base, 5u, 2), "#B101");
    EXPECT_EQ(of(SCPI_ResultUInt32Base, 0u, 16), "#H0");
    EXPECT_EQ(of(SCPI_ResultUInt64Base, UINT64_MAX, 2), "#B" + std::string(64, '1'));
    EXPECT_EQ(of(SCPI_ResultUInt64Base, UINT64_MAX, 16), "#HFFFFFFFFFFFFFFFF");
    EXPECT_EQ(of(SCPI_ResultUInt64Base, UINT64_MAX, 8), "#Q1777777777777777777777");
    EXPECT_EQ(of(SCPI_ResultUInt8Base, UINT8_MAX, 16), "#HFF");
    EXPECT_EQ(of(SCPI_ResultUInt16Base, UINT16_MAX, 16), "#HFFFF");
}

TEST_F(Result, NegativeNumberToABaseIsTheTwosComplementOfItsWidth)
{
    EXPECT_EQ(of(SCPI_ResultInt8Base, -1, 16), "#HFF");
    EXPECT_EQ(of(SCPI_ResultInt16Base, -1, 16), "#HFFFF");
    EXPECT_EQ(of(SCPI_ResultInt32Base, -1, 16), "#HFFFFFFFF");
    EXPECT_EQ(of(SCPI_ResultInt64Base, INT64_MIN, 16), "#H8000000000000000");
    EXPECT_EQ(of(SCPI_ResultInt8Base, -128, 2), "#B10000000");
    EXPECT_EQ(of(SCPI_ResultInt32Base, -1, 10), "-1");
}

TEST_F(Result, AnyOtherBaseIsAFailure)
{
    for (const int base : {0, 1, 3, 36, -16, 17}) {
        EXPECT_EQ(of(SCPI_ResultUInt32Base, 5u, base), "");
        EXPECT_EQ(of(SCPI_ResultInt64Base, 5, base), "");
    }
}

TEST_F(Result, DoubleHasTheFewestDigitsThatReadBack)
{
    EXPECT_EQ(of(SCPI_ResultDouble, 0.0), "0");
    EXPECT_EQ(of(SCPI_ResultDouble, -0.0), "-0");
    EXPECT_EQ(of(SCPI_ResultDouble, 5.0), "5");
    EXPECT_EQ(of(SCPI_ResultDouble, 0.1), "0.1");
    EXPECT_EQ(of(SCPI_ResultDouble, -2.5), "-2.5");
    EXPECT_EQ(of(SCPI_ResultDouble, 0.30000000000000004), "0.30000000000000004");
    EXPECT_EQ(of(SCPI_ResultDouble, 1234567890.0), "1234567890");
    EXPECT_EQ(of(SCPI_ResultDouble, 1e9), "1.0E+09");
    EXPECT_EQ(of(SCPI_ResultDouble, -1e-9), "-1.0E-09");
    EXPECT_EQ(of(SCPI_ResultDouble, 1.5e300), "1.5E+300");
    EXPECT_EQ(of(SCPI_ResultDouble, 5e-324), "5.0E-324");
    EXPECT_EQ(of(SCPI_ResultDouble, -1.7976931348623157e308), "-1.7976931348623157E+308");
    EXPECT_EQ(of(SCPI_ResultDouble, -2.2250738585072014e-308), "-2.2250738585072014E-308");
}

TEST_F(Result, FloatHasTheFewestDigitsOfAFloat)
{
    EXPECT_EQ(of(SCPI_ResultFloat, 0.1f), "0.1");
    EXPECT_EQ(of(SCPI_ResultFloat, 3.4028235e38f), "3.4028235E+38");
    EXPECT_EQ(of(SCPI_ResultFloat, 1e10f), "1.0E+10");
}

TEST_F(Result, FloatingPointReadsBackTheSame)
{
    uint64_t random = 88172645463325252u;
    for (int i = 0; i < 20000; ++i) {
        random ^= random << 13;
        random ^= random >> 7;
        random ^= random << 17;
        double value;
        std::memcpy(&value, &random, sizeof value);
        if (!std::isfinite(value)) {
            continue;
        }
        const std::string text = of(SCPI_ResultDouble, value);
        parameters(text);
        double back = 0;
        ASSERT_TRUE(SCPI_ParamDouble(&context, &back, true)) << text;
        ASSERT_EQ(back, value) << text;
    }
}

TEST_F(Result, InfinityAndNotANumberHaveStandardValues)
{
    EXPECT_EQ(of(SCPI_ResultDouble, std::numeric_limits<double>::infinity()), "9.9E+37");
    EXPECT_EQ(of(SCPI_ResultDouble, -std::numeric_limits<double>::infinity()), "-9.9E+37");
    EXPECT_EQ(of(SCPI_ResultDouble, std::numeric_limits<double>::quiet_NaN()), "9.91E+37");
    EXPECT_EQ(of(SCPI_ResultDouble, -std::numeric_limits<double>::quiet_NaN()), "9.91E+37");
    EXPECT_EQ(of(SCPI_ResultFloat, std::numeric_limits<float>::infinity()), "9.9E+37");
    EXPECT_EQ(of(SCPI_ResultFloat, -std::numeric_limits<float>::infinity()), "-9.9E+37");
    EXPECT_EQ(of(SCPI_ResultFloat, std::numeric_limits<float>::quiet_NaN()), "9.91E+37");
}

/* Blocks */

TEST_F(Result, BlockHeaderIsItsOwnWriteAndTheRemainingBytesAreAlreadyKnown)
{
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, "a\n#;\0", 5), 8u);
    EXPECT_THAT(writes, ElementsAre("#15", "a\n#;\0"s));
    EXPECT_THAT(remaining_at_write, ElementsAre(5, 5));
    EXPECT_EQ(context.arbitrary_remaining, 0u);
    EXPECT_EQ(context.output_count, 1);
}

TEST_F(Result, BlockOf300BytesHasThreeDigits)
{
    const std::string data(300, '\xA5');
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, data.data(), data.size()), 305u);
    EXPECT_EQ(output(), "#3300" + data);
}

TEST_F(Result, BlockAfterAnotherResultHasItsComma)
{
    SCPI_ResultInt32(&context, 1);
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, "ab", 2), 6u);
    SCPI_ResultInt32(&context, 2);
    EXPECT_THAT(writes, ElementsAre("1", ",", "#12", "ab", ",", "2"));
    EXPECT_EQ(remaining_at_write[1], 0u) << "the comma is not part of the block";
}

TEST_F(Result, EmptyBlockIsItsHeader)
{
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, "", 0), 3u);
    EXPECT_THAT(writes, ElementsAre("#10"));
    EXPECT_EQ(context.output_count, 1);
}

TEST_F(Result, BlockOfNullDataIsAFailureAndWritesNothing)
{
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, nullptr, 0), 0u);
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, nullptr, 5), 0u);
    EXPECT_THAT(writes, IsEmpty());
    EXPECT_EQ(context.output_count, 0);
    EXPECT_EQ(context.arbitrary_remaining, 0u);
}

TEST_F(Result, BlockLengthHasNineDigitsAtMost)
{
    EXPECT_EQ(SCPI_ResultArbitraryBlockHeader(&context, 1000000000), 0u);
    EXPECT_THAT(writes, IsEmpty());
    EXPECT_EQ(context.arbitrary_remaining, 0u);
    EXPECT_EQ(SCPI_ResultArbitraryBlockHeader(&context, 999999999), 11u);
    EXPECT_THAT(writes, ElementsAre("#9999999999"));
}

TEST_F(Result, BlockDataInPiecesCountDown)
{
    EXPECT_EQ(SCPI_ResultArbitraryBlockHeader(&context, 5), 3u);
    EXPECT_EQ(context.arbitrary_remaining, 5u);
    EXPECT_EQ(SCPI_ResultArbitraryBlockData(&context, "ab", 2), 2u);
    EXPECT_EQ(context.arbitrary_remaining, 3u);
    EXPECT_EQ(SCPI_ResultArbitraryBlockData(&context, "cdef", 4), 0u) << "more than announced";
    EXPECT_EQ(context.arbitrary_remaining, 3u);
    EXPECT_EQ(SCPI_ResultArbitraryBlockData(&context, "cde", 3), 3u);
    EXPECT_EQ(context.arbitrary_remaining, 0u);
    EXPECT_EQ(SCPI_ResultArbitraryBlockData(&context, "f", 1), 0u);
    EXPECT_THAT(writes, ElementsAre("#15", "ab", "cde"));
    EXPECT_EQ(context.output_count, 1);
}

TEST_F(Result, BlockDataWithoutAHeaderIsAFailure)
{
    EXPECT_EQ(SCPI_ResultArbitraryBlockData(&context, "a", 1), 0u);
    EXPECT_EQ(SCPI_ResultArbitraryBlockData(&context, nullptr, 0), 0u);
    EXPECT_THAT(writes, IsEmpty());
}

TEST_F(Result, BlockThatWriteRefusesIsAFailureAndEnds)
{
    for (size_t taken = 0; taken < 2; ++taken) {
        parameters("");
        writes_taken = taken;
        EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, "abc", 3), 0u) << taken;
        EXPECT_EQ(context.arbitrary_remaining, 0u);
    }
}

TEST_F(Result, PartiallyAcceptedBlockIsAFailure)
{
    scpi_interface_t half{};
    half.write = [](scpi_t*, const char*, size_t len) { return len > 3 ? len / 2 : len; };
    context.interface = &half;
    EXPECT_EQ(SCPI_ResultArbitraryBlock(&context, "abcdefgh", 8), 0u);
    EXPECT_EQ(context.arbitrary_remaining, 0u);
}

/* Error entries */

TEST_F(Result, ErrorIsItsNumberAndItsTextInQuotes)
{
    const scpi_error_t error{-113, nullptr};
    const size_t bytes = SCPI_ResultError(&context, &error);
    EXPECT_EQ(bytes, output().size());
    EXPECT_THAT(writes, ElementsAre("-113", ",", "\"Undefined header\""));
}

TEST_F(Result, ErrorHasItsInfoAfterASemicolonWithQuotesDoubled)
{
    char info[] = "the \"x\"";
    const scpi_error_t error{-200, info};
    SCPI_ResultError(&context, &error);
    EXPECT_EQ(output(), "-200,\"Execution error;the \"\"x\"\"\"");
}

TEST_F(Result, ErrorTextIsCutTo255Characters)
{
    std::string info(400, 'x');
    const scpi_error_t error{-200, info.data()};
    SCPI_ResultError(&context, &error);
    EXPECT_EQ(output(), "-200,\"Execution error;" + std::string(255 - 16, 'x') + "\"");
}

TEST_F(Result, ErrorThatIsRefusedIsAFailure)
{
    const scpi_error_t error{-113, nullptr};
    writes_taken = 0;
    EXPECT_EQ(SCPI_ResultError(&context, &error), 0u);
    writes_taken = 2;
    EXPECT_EQ(SCPI_ResultError(&context, &error), 0u);
}

} // namespace
