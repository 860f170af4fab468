#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "scpi/parser.h"

namespace {

bool matches(const char* pattern, std::string_view header)
{
    return SCPI_Match(pattern, header.data(), header.size());
}

TEST(Match, ShortAndLongFormMatch)
{
    EXPECT_TRUE(matches(":TRIGger:SOURce", ":TRIG:SOUR"));
    EXPECT_TRUE(matches(":TRIGger:SOURce", ":TRIGGER:SOURCE"));
    EXPECT_TRUE(matches(":TRIGger:SOURce", ":TRIG:SOURCE"));
    EXPECT_TRUE(matches(":TRIGger:SOURce", ":TRIGGER:SOUR"));
}

TEST(Match, FormsBetweenShortAndLongDoNotMatch)
{
    EXPECT_FALSE(matches(":TRIGger", ":TRIGG"));
    EXPECT_FALSE(matches(":TRIGger", ":TRIGGE"));
    EXPECT_FALSE(matches(":TRIGger", ":TRI"));
    EXPECT_FALSE(matches(":TRIGger", ":T"));
    EXPECT_FALSE(matches(":TRIGger", ":TRIGGERS"));
}

TEST(Match, IgnoresCase)
{
    EXPECT_TRUE(matches(":TRIGger:SOURce", ":trig:source"));
    EXPECT_TRUE(matches(":TRIGger:SOURce", ":tRiGgEr:SoUr"));
}

TEST(Match, LeadingColonMayBeLeftOut)
{
    EXPECT_TRUE(matches(":TRIGger:SOURce", "TRIG:SOUR"));
    EXPECT_TRUE(matches("[:SOURce]:FREQuency", "FREQ"));
    EXPECT_TRUE(matches("TRIGger:SOURce", ":TRIG:SOUR"));
}

TEST(Match, OptionalNodeMayBeLeftOut)
{
    EXPECT_TRUE(matches(":OUTPut[:STATe]", ":OUTP"));
    EXPECT_TRUE(matches(":OUTPut[:STATe]", ":OUTP:STAT"));
    EXPECT_TRUE(matches(":OUTPut[:STATe]", ":OUTPUT:state"));
    EXPECT_FALSE(matches(":OUTPut[:STATe]", ":STAT"));
    EXPECT_TRUE(matches("[:SOURce]:LIST[:STATe]", ":LIST"));
    EXPECT_TRUE(matches("[:SOURce]:LIST[:STATe]", ":SOUR:LIST"));
    EXPECT_TRUE(matches("[:SOURce]:LIST[:STATe]", ":LIST:STATE"));
    EXPECT_TRUE(matches("[:SOURce]:LIST[:STATe]", ":SOURCE:LIST:STAT"));
    EXPECT_FALSE(matches("[:SOURce]:LIST[:STATe]", ":SOUR"));
    EXPECT_FALSE(matches("[:SOURce]:LIST[:STATe]", ":SOUR:STAT"));
}

TEST(Match, OptionalNodeThatEqualsTheNextIsTriedBothWays)
{
    EXPECT_TRUE(matches("[:SOURce]:SOURce", ":SOUR"));
    EXPECT_TRUE(matches("[:SOURce]:SOURce", ":SOUR:SOUR"));
    EXPECT_FALSE(matches("[:SOURce]:SOURce", ":SOUR:SOUR:SOUR"));
    EXPECT_TRUE(matches("[:INTernal]:AM[:INTernal]:FREQ", "int:am:freq"));
    EXPECT_TRUE(matches("[:INTernal]:AM[:INTernal]:FREQ", "am:int:freq"));
}

TEST(Match, OptionalNodeBeforeAnother)
{
    EXPECT_TRUE(matches(":A[:B][:C]:D", "A:D"));
    EXPECT_TRUE(matches(":A[:B][:C]:D", "A:B:D"));
    EXPECT_TRUE(matches(":A[:B][:C]:D", "A:C:D"));
    EXPECT_TRUE(matches(":A[:B][:C]:D", "A:B:C:D"));
    EXPECT_FALSE(matches(":A[:B][:C]:D", "A:C:B:D"));
}

TEST(Match, QueryNeedsItsQuestionMark)
{
    EXPECT_TRUE(matches(":FREQuency?", ":FREQ?"));
    EXPECT_FALSE(matches(":FREQuency?", ":FREQ"));
    EXPECT_FALSE(matches(":FREQuency", ":FREQ?"));
    EXPECT_FALSE(matches(":FREQuency?", ":FREQ??"));
    EXPECT_FALSE(matches(":FREQuency?", ":FREQ?:A"));
    EXPECT_TRUE(matches(":OUTPut[:STATe]?", ":OUTP?"));
    EXPECT_FALSE(matches(":OUTPut[:STATe]?", ":OUTP?:STAT"));
}

TEST(Match, CommonCommandMatchesItsAsterisk)
{
    EXPECT_TRUE(matches("*IDN?", "*IDN?"));
    EXPECT_TRUE(matches("*IDN?", "*idn?"));
    EXPECT_FALSE(matches("*IDN?", "*IDN"));
    EXPECT_FALSE(matches("*IDN?", "IDN?"));
    EXPECT_FALSE(matches("*IDN?", ":*IDN?"));
    EXPECT_FALSE(matches("*IDN?", "*:IDN?"));
    EXPECT_FALSE(matches(":IDN?", "*IDN?"));
    EXPECT_FALSE(matches("IDN?", "*IDN?"));
}

TEST(Match, MissingOrAdditionalNodesDoNotMatch)
{
    EXPECT_FALSE(matches(":TRIGger:SOURce", ":TRIG"));
    EXPECT_FALSE(matches(":TRIGger:SOURce", ":TRIG:SOUR:A"));
    EXPECT_FALSE(matches(":TRIGger:SOURce", ":A:TRIG:SOUR"));
    EXPECT_FALSE(matches(":TRIGger:SOURce", ":TRIGSOUR"));
}

TEST(Match, EmptyNodesDoNotMatch)
{
    EXPECT_FALSE(matches(":TRIGger", ""));
    EXPECT_FALSE(matches(":TRIGger", ":"));
    EXPECT_FALSE(matches(":TRIGger", "?"));
    EXPECT_FALSE(matches(":TRIGger", "*"));
    EXPECT_FALSE(matches(":TRIGger", ":TRIG:"));
    EXPECT_FALSE(matches(":TRIGger", "::TRIG"));
    EXPECT_FALSE(matches(":TRIGger:SOURce", ":TRIG::SOUR"));
    EXPECT_FALSE(matches(":TRIGger?", ":TRIG:?"));
    EXPECT_FALSE(matches("[:SOURce]", ""));
    EXPECT_FALSE(matches("[:SOURce]", ":"));
    EXPECT_FALSE(matches("[:SOURce]?", "?"));
    EXPECT_FALSE(matches("*", "*"));
}

TEST(Match, LengthBoundsTheHeader)
{
    EXPECT_TRUE(SCPI_Match(":FREQuency", ":FREQ 100", 5));
    EXPECT_TRUE(SCPI_Match(":FREQuency", ":FREQuency", 5));
    EXPECT_FALSE(SCPI_Match(":FREQuency", ":FREQ 100", 6));
    EXPECT_TRUE(SCPI_Match(":FREQuency", ":FREQ?", 5));
}

TEST(Match, NodeWithOnlyCapitalsHasOneForm)
{
    EXPECT_TRUE(matches(":ROSCillator:OUTP:FREQuency", ":ROSC:OUTP:FREQ"));
    EXPECT_FALSE(matches(":ROSCillator:OUTP:FREQuency", ":ROSC:OUTPUT:FREQ"));
}

TEST(Match, DigitsAndUnderscoreBelongToBothForms)
{
    EXPECT_TRUE(matches(":CHannel1", ":CH1"));
    EXPECT_TRUE(matches(":CHannel1", ":CHANNEL1"));
    EXPECT_FALSE(matches(":CHannel1", ":CH"));
    EXPECT_FALSE(matches(":CHannel1", ":CH2"));
    EXPECT_TRUE(matches(":MY_node", ":MY_"));
    EXPECT_TRUE(matches(":MY_node", ":my_NODE"));
}

TEST(Match, NodeWithoutCapitalsHasNoShortForm)
{
    EXPECT_TRUE(matches(":A:b", ":A:B"));
    EXPECT_FALSE(matches(":A:b", ":A:"));
    EXPECT_FALSE(matches(":A:b?", ":A:?"));
    EXPECT_FALSE(matches(":A:b", ":A"));
    EXPECT_FALSE(matches(":b", ":"));
}

TEST(Match, PatternPunctuationInAHeaderIsNotSyntax)
{
    EXPECT_FALSE(matches(":OUTPut[:STATe]", ":OUTP[:STAT]"));
    EXPECT_FALSE(matches(":OUTPut[:STATe]", "[:OUTP]"));
    EXPECT_FALSE(matches(":FREQ", std::string_view(":FREQ\0", 6)));
    EXPECT_FALSE(matches(":FREQ", ":FR\xc5Q"));
    EXPECT_FALSE(matches(":FREQ", " :FREQ"));
}

TEST(Match, MalformedPatternMatchesNothing)
{
    EXPECT_FALSE(matches(":A[:B", "A"));
    EXPECT_FALSE(matches(":A[:B", "A:B"));
    EXPECT_FALSE(matches("[", "A"));
    EXPECT_FALSE(matches("[:]:A", "A"));
    EXPECT_FALSE(matches(":A::B", "A:B"));
    EXPECT_FALSE(matches(":A]", "A"));
    EXPECT_FALSE(matches(":A??", "A?"));
    EXPECT_FALSE(matches(":A?:B", "A?"));
    EXPECT_FALSE(matches("", "A"));
    EXPECT_FALSE(matches("", ""));
    EXPECT_FALSE(matches("?", "?"));
    EXPECT_FALSE(matches("**A", "*A"));
}

TEST(Match, NullMatchesNothing)
{
    EXPECT_FALSE(SCPI_Match(nullptr, "A", 1));
    EXPECT_FALSE(SCPI_Match(":A", nullptr, 0));
}

} // namespace
