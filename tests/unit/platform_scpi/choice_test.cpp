// Booleans and choices.
#include "parameter_fixture.h"

namespace {

constexpr scpi_choice_def_t kSources[] = {
    {"INTernal", 1}, {"EXTernal", 2}, {"CHANnel1", 3}, {"CH1", 4}, {"MANUAL", 5}, {"4Wire", 6}, {nullptr, -1},
};

/* ParamBool */

struct BoolRow {
    const char* text;
    bool read;
    bool value;
    int error;
};

class ParamBool : public ScpiData, public ::testing::WithParamInterface<BoolRow> {};

TEST_P(ParamBool, TakesWordsAndNumbers)
{
    parameters(GetParam().text);
    scpi_bool_t value = !GetParam().value;
    EXPECT_EQ(SCPI_ParamBool(&context, &value, true), GetParam().read);
    EXPECT_EQ(value, GetParam().value);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ParamBool,
    ::testing::Values(BoolRow{"ON", true, true, 0}, BoolRow{"on", true, true, 0},
                      BoolRow{"OFF", true, false, 0}, BoolRow{"oFf", true, false, 0},
                      BoolRow{"1", true, true, 0}, BoolRow{"0", true, false, 0}, BoolRow{"-2", true, true, 0},
                      BoolRow{"0.4", true, false, 0}, BoolRow{"0.5", true, true, 0},
                      BoolRow{"-0.4", true, false, 0}, BoolRow{"1E30", true, true, 0},
                      BoolRow{"0E30", true, false, 0}, BoolRow{"#H10", true, true, 0},
                      BoolRow{"#B000", true, false, 0}, BoolRow{"#HFFFFFFFFFFFFFFFFFF", true, true, 0},
                      BoolRow{"OF", false, false, -224}, BoolRow{"TRUE", false, false, -224},
                      BoolRow{"'ON'", false, false, -104}, BoolRow{"1V", false, false, -104},
                      BoolRow{"(1)", false, false, -104}, BoolRow{"#11A", false, false, -104},
                      BoolRow{"1E99999", false, false, -123}, BoolRow{"", false, false, -109}));

/* ParamChoice */

struct ChoiceRow {
    const char* text;
    int tag; // 0 when refused
    int error;
};

class ParamChoice : public ScpiData, public ::testing::WithParamInterface<ChoiceRow> {};

TEST_P(ParamChoice, MatchesShortAndLongForm)
{
    parameters(GetParam().text);
    int32_t tag = 77;
    EXPECT_EQ(SCPI_ParamChoice(&context, kSources, &tag, true), GetParam().error == 0);
    EXPECT_EQ(tag, GetParam().tag);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ParamChoice,
    ::testing::Values(ChoiceRow{"INT", 1, 0}, ChoiceRow{"int", 1, 0}, ChoiceRow{"INTERNAL", 1, 0},
                      ChoiceRow{"Internal", 1, 0}, ChoiceRow{"EXT", 2, 0}, ChoiceRow{"CHAN1", 3, 0},
                      ChoiceRow{"CHANNEL1", 3, 0}, ChoiceRow{"ch1", 4, 0}, ChoiceRow{"MANUAL", 5, 0},
                      ChoiceRow{"4WIRE", 6, 0}, ChoiceRow{"4w", 6, 0}, ChoiceRow{"IN", 0, -224},
                      ChoiceRow{"INTE", 0, -224}, ChoiceRow{"INTERNALS", 0, -224}, ChoiceRow{"CHAN", 0, -224},
                      ChoiceRow{"MAN", 0, -224}, ChoiceRow{"IMM", 0, -224}, ChoiceRow{"1", 0, -224},
                      ChoiceRow{"4V", 0, -224}, ChoiceRow{"'INT'", 0, -104}, ChoiceRow{"(1)", 0, -104},
                      ChoiceRow{"#13INT", 0, -104}, ChoiceRow{"#H1", 0, -224}, ChoiceRow{"", 0, -109}));

class ParamChoiceOfNumbers : public ScpiData, public ::testing::WithParamInterface<ChoiceRow> {};

TEST_P(ParamChoiceOfNumbers, MatchesEveryFormOfTheWholeNumber)
{
    parameters(GetParam().text);
    int32_t tag = 77;
    EXPECT_EQ(SCPI_ParamChoice(&context, kNumbered, &tag, true), GetParam().error == 0);
    EXPECT_EQ(tag, GetParam().tag);
    EXPECT_EQ(error(), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ParamChoiceOfNumbers,
    ::testing::Values(ChoiceRow{"1", 1, 0}, ChoiceRow{"2", 2, 0}, ChoiceRow{"CH2", 2, 0},
                      ChoiceRow{"+2", 2, 0}, ChoiceRow{"02", 2, 0}, ChoiceRow{"2.000", 2, 0},
                      ChoiceRow{"2E0", 2, 0}, ChoiceRow{"0.2E1", 2, 0}, ChoiceRow{"0", 0, 0},
                      ChoiceRow{"-0", 0, 0}, ChoiceRow{"-1.0", 0, -224}, ChoiceRow{"1.5", 0, -224},
                      ChoiceRow{"0.2", 0, -224}, ChoiceRow{"3", 0, -224}, ChoiceRow{"12", 0, -224},
                      ChoiceRow{"-2", 0, -224}, ChoiceRow{"2V", 0, -224}, ChoiceRow{"CH3", 0, -224},
                      ChoiceRow{"1E300", 0, -224}, ChoiceRow{"18446744073709551618", 0, -224}));

TEST_F(Parameter, AbsentOptionalChoiceIsNoError)
{
    parameters("");
    int32_t tag = 77;
    EXPECT_FALSE(SCPI_ParamChoice(&context, kSources, &tag, false));
    EXPECT_EQ(error(), 0);
}

TEST(ChoiceToName, ReturnsTheFirstEntryWithTheTagAsTheListSpellsIt)
{
    const char* name = nullptr;
    EXPECT_TRUE(SCPI_ChoiceToName(kSources, 1, &name));
    EXPECT_STREQ(name, "INTernal");
    EXPECT_TRUE(SCPI_ChoiceToName(kNumbered, 1, &name));
    EXPECT_STREQ(name, "CH1");
    EXPECT_TRUE(SCPI_ChoiceToName(kNumbered, 0, &name));
    EXPECT_STREQ(name, "NONE");
}

TEST(ChoiceToName, OfATagThatTheListDoesNotHaveFails)
{
    const char* name = "x";
    EXPECT_FALSE(SCPI_ChoiceToName(kSources, 99, &name));
    EXPECT_EQ(name, nullptr);
    EXPECT_FALSE(SCPI_ChoiceToName(kSources, -1, &name));
}

} // namespace
