#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <gtest/gtest.h>

#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi-bypass.h"

using namespace orvan_test;

namespace {

// ---- text helpers

TEST(SkipWhiteSpace, StopsAtTheFirstOtherCharacterOrTheEnd)
{
    const std::string text = " \t :x";
    const char* const begin = text.data();
    EXPECT_EQ(skip_ws_(begin, begin + text.size()), begin + 3);
    EXPECT_EQ(skip_ws_(begin, begin + 2), begin + 2);
    EXPECT_EQ(skip_ws_(begin, begin), begin);
    const std::string line_end = "\r\n";
    EXPECT_EQ(skip_ws_(line_end.data(), line_end.data() + 2), line_end.data());
}

struct ScanCase {
    const char* name;
    const char* text;
    const char* header; // null: none
    size_t after;       // position after the header

    friend void PrintTo(const ScanCase& tested, std::ostream* out) { *out << tested.name; }
};

class ScanNextHeader : public testing::TestWithParam<ScanCase> {};

TEST_P(ScanNextHeader, FindsAbsoluteHeadersOnly)
{
    // A heap copy without a NUL: reading past the end would be seen.
    const std::string text = GetParam().text;
    const std::unique_ptr<char[]> copy(new char[text.size()]);
    text.copy(copy.get(), text.size());
    const char* hdr = nullptr;
    size_t hlen = 99;
    const char* const after = scan_next_header(copy.get(), copy.get() + text.size(), &hdr, &hlen);
    if (GetParam().header == nullptr) {
        EXPECT_EQ(after, nullptr);
        EXPECT_EQ(hdr, nullptr);
        EXPECT_EQ(hlen, 99u);
        return;
    }
    ASSERT_NE(after, nullptr);
    EXPECT_EQ(std::string(hdr, hlen), GetParam().header);
    EXPECT_EQ(static_cast<size_t>(after - copy.get()), GetParam().after);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Texts, ScanNextHeader, testing::Values(
    ScanCase{"Plain",               ":FREQ 1",           ":FREQ",          5},
    ScanCase{"Query",               ":FREQ?\r\n",        ":FREQ?",         6},
    ScanCase{"QueryAtTheEnd",       ":FREQ?",            ":FREQ?",         6},
    ScanCase{"Common",              "*IDN?;",            "*IDN?",          5},
    ScanCase{"AfterSeparator",      ";:POW 2",           ":POW",           5},
    ScanCase{"AfterBlanksAndOne",   " \t; \t:POW 2",     ":POW",           9},
    ScanCase{"SecondSeparator",     ";;:POW 2",          nullptr,          0},
    ScanCase{"SeveralNodes",        ":SOUR:AM:DEPT 3",   ":SOUR:AM:DEPT", 13},
    ScanCase{"DigitsAndUnderscore", ":CH1_a:x9_? ",      ":CH1_a:x9_?",   11},
    ScanCase{"ColonWithoutLetter",  ":FREQ:1",           ":FREQ",          5},
    ScanCase{"ColonAtTheEnd",       ":FREQ:",            ":FREQ",          5},
    ScanCase{"Relative",            ";POW 2",            nullptr,          0},
    ScanCase{"Nothing",             "",                  nullptr,          0},
    ScanCase{"OnlyBlanks",          "  ",                nullptr,          0},
    ScanCase{"OnlySeparator",       ";",                 nullptr,          0},
    ScanCase{"LoneColon",           ":",                 nullptr,          0},
    ScanCase{"ColonDigit",          ":1",                nullptr,          0},
    ScanCase{"StarDigit",           "*1",                nullptr,          0},
    ScanCase{"CarriageReturn",      "\r:POW 2",          nullptr,          0},
    ScanCase{"LineFeed",            "\n:POW 2",          nullptr,          0}),
    [](const auto& tested) { return std::string(tested.param.name); });
// clang-format on

struct StripCase {
    const char* name;
    const char* reply;
    const char* left;

    friend void PrintTo(const StripCase& tested, std::ostream* out) { *out << tested.name; }
};

class StripTrailingOk : public testing::TestWithParam<StripCase> {};

TEST_P(StripTrailingOk, CutsAtTheLastSuccessWord)
{
    std::string text = GetParam().reply;
    strip_trailing_ok(text);
    EXPECT_EQ(text, GetParam().left);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Replies, StripTrailingOk, testing::Values(
    StripCase{"SuccessWordAlone",     "+OK\r\n",         ""          },
    StripCase{"Value",                "5.0;+OK\r\n",     "5.0"       },
    StripCase{"OneSeparatorOnly",     "5.0;;+OK\r\n",    "5.0;"      },
    StripCase{"NoSeparator",          "5.0+OK",          "5.0"       },
    StripCase{"LastSuccessWord",      "+OK;a;+OK\r\n",   "+OK;a"     },
    StripCase{"TextAfter",            "a;+OK trailing",  "a"         },
    StripCase{"NoSuccessWord",        "-ERR x\r\n",      "-ERR x\r\n"},
    StripCase{"SeparatorAtTheEnd",    "5.0;",            "5.0"       },
    StripCase{"LoneSeparator",        ";",               ""          },
    StripCase{"Empty",                "",                ""          }),
    [](const auto& tested) { return std::string(tested.param.name); });
// clang-format on

TEST(SegmentError, StartsWithTheErrorWord)
{
    EXPECT_TRUE(is_seg_error("-ERR"));
    EXPECT_TRUE(is_seg_error("-ERR -113, \"Undefined header\""));
    EXPECT_FALSE(is_seg_error("-ER"));
    EXPECT_FALSE(is_seg_error(" -ERR"));
    EXPECT_FALSE(is_seg_error("1.0;-ERR"));
    EXPECT_FALSE(is_seg_error(""));
}

// ---- the run's text, on a separate context

class RunText : public testing::Test {
protected:
    ~RunText() override { end_bypass_run(&user); }

    /** Points the context at one sub-command in `input`. */
    void stand_at(size_t header, size_t header_len, size_t param, size_t param_len)
    {
        context.buffer = {input.size(), input.size(), input.data()};
        context.param_list.cmd_raw = {0, header_len, input.data() + header};
        context.param_list.lex_state = {input.data() + param, input.data() + param, param_len};
    }

    std::string text() const { return {user.bypass_accum_buf, user.bypass_accum_len}; }

    std::string input = ":FREQ   10;:POW?\n";
    scpi_t context{};
    userContext_t user{};
};

TEST_F(RunText, AllocationSpansFromTheHeaderToTheEndOfTheInput)
{
    stand_at(11, 5, 16, 0);
    ASSERT_TRUE(start_bypass_run(&context, &user));
    EXPECT_EQ(user.bypass_accum_active, 1);
    EXPECT_EQ(user.bypass_accum_len, 0u);
    EXPECT_EQ(user.bypass_accum_cap, 6u);
    EXPECT_NE(user.bypass_accum_buf, nullptr);
}

TEST_F(RunText, AllocationIsNeverEmpty)
{
    stand_at(input.size(), 0, input.size(), 0);
    ASSERT_TRUE(start_bypass_run(&context, &user));
    EXPECT_EQ(user.bypass_accum_cap, 1u);
}

TEST_F(RunText, FailedAllocationLeavesNoRun)
{
    stand_at(0, 5, 8, 2);
    // More than there is, of 32 bits too, and not past the end of the address space where a sanitizer looks.
    context.buffer.position = static_cast<size_t>(std::min<uint64_t>(uint64_t{1} << 46, SIZE_MAX / 16 * 15));
    user.bypass_accum_len = 3;
    EXPECT_FALSE(start_bypass_run(&context, &user));
    EXPECT_EQ(user.bypass_accum_active, 0);
    EXPECT_EQ(user.bypass_accum_buf, nullptr);
    EXPECT_EQ(user.bypass_accum_len, 0u);
    EXPECT_EQ(user.bypass_accum_cap, 0u);
}

TEST_F(RunText, HeaderOneSeparatorAndParametersAreAppended)
{
    stand_at(0, 5, 8, 2);
    ASSERT_TRUE(start_bypass_run(&context, &user));
    EXPECT_TRUE(append_current_subcmd(&context, &user));
    EXPECT_EQ(text(), ":FREQ 10;");
    stand_at(11, 5, 16, 0);
    EXPECT_TRUE(append_current_subcmd(&context, &user));
    EXPECT_EQ(text(), ":FREQ 10;:POW?;");
}

TEST_F(RunText, SeparatorIsTheByteAfterTheHeader)
{
    input[5] = '\t';
    stand_at(0, 5, 8, 2);
    ASSERT_TRUE(start_bypass_run(&context, &user));
    EXPECT_TRUE(append_current_subcmd(&context, &user));
    EXPECT_EQ(text(), ":FREQ\t10;");
}

TEST_F(RunText, WithoutARunNothingIsAppended)
{
    stand_at(0, 5, 8, 2);
    EXPECT_FALSE(append_current_subcmd(&context, &user));
}

TEST_F(RunText, AppendFillsUpToTheLastByteAndNotBeyond)
{
    stand_at(11, 5, 16, 0); // six bytes left for the six of ":POW?;"
    ASSERT_TRUE(start_bypass_run(&context, &user));
    EXPECT_TRUE(append_current_subcmd(&context, &user));
    EXPECT_EQ(user.bypass_accum_len, user.bypass_accum_cap);
    EXPECT_FALSE(append_current_subcmd(&context, &user));
    EXPECT_EQ(text(), ":POW?;");
}

TEST_F(RunText, ClosingARunZeroesItsFieldsAndTheErrorMark)
{
    stand_at(0, 5, 8, 2);
    ASSERT_TRUE(start_bypass_run(&context, &user));
    append_current_subcmd(&context, &user);
    user.bypass_item_count = 1;
    user.had_error_line = 1;
    end_bypass_run(&user);
    EXPECT_EQ(user.bypass_accum_active, 0);
    EXPECT_EQ(user.bypass_accum_buf, nullptr);
    EXPECT_EQ(user.bypass_accum_len, 0u);
    EXPECT_EQ(user.bypass_accum_cap, 0u);
    EXPECT_EQ(user.bypass_item_count, 0);
    EXPECT_EQ(user.had_error_line, 0);
    end_bypass_run(&user); // closing a closed run is harmless
}

} // namespace
