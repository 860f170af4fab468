#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "scpi/extensions.h"

namespace {

using std::string;
using std::string_view;
using namespace std::string_literals;

/** Ends of the messages in the stream, cut into pieces of at most `piece` bytes. */
std::vector<size_t> message_ends(string_view stream, size_t piece)
{
    scpi_framer_t framer;
    SCPI_FramerReset(&framer);
    std::vector<size_t> ends;
    for (size_t at = 0; at < stream.size();) {
        const string_view rest = stream.substr(at, piece - at % piece);
        const size_t n = SCPI_FramerScan(&framer, rest.data(), rest.size());
        at += n != 0 ? n : rest.size();
        if (n != 0) {
            ends.push_back(at);
        }
    }
    return ends;
}

void expect_ends(const string& stream, const std::vector<size_t>& ends)
{
    for (size_t piece = 1; piece <= stream.size(); ++piece) {
        EXPECT_EQ(message_ends(stream, piece), ends) << "in pieces of " << piece << ": " << stream;
    }
}

/** The whole text is one message and its last byte ends it. */
void expect_one_message(const string& stream)
{
    expect_ends(stream, {stream.size()});
}

TEST(Framer, LineFeedEndsAMessage)
{
    expect_one_message("*IDN?\n");
    expect_one_message("*IDN?\r\n");
}

TEST(Framer, TextWithoutLineFeedIsIncomplete)
{
    expect_ends("*IDN?", {});
    expect_ends("*IDN?\r", {});
}

TEST(Framer, NoBytesEndNothing)
{
    scpi_framer_t framer{};
    EXPECT_EQ(SCPI_FramerScan(&framer, nullptr, 0), 0u);
}

TEST(Framer, EmptyLineIsAMessage)
{
    expect_ends("\n\r\n\n", {1, 3, 4});
}

TEST(Framer, EachLineOfSeveralEnds)
{
    expect_ends("A\nB 1\n:C:D 2;E\nF", {2, 6, 15});
}

TEST(Framer, LineFeedInADefiniteBlockIsData)
{
    expect_one_message("DATA #15\n;\"'\n\n");
    expect_one_message("DATA #210\n\n\n\n\n\n\n\n\n\n\n");
}

TEST(Framer, BlockAfterACommaIsABlock)
{
    expect_one_message("DATA 1,#13\n\n\n\n");
    expect_one_message("DATA 1 , \t#13\n\n\n\n");
    expect_one_message("DATA \"a\",#13\n\n\n\n");
    expect_one_message("DATA #12\n\n,#12\n\n\n");
}

TEST(Framer, BlockInALaterUnitIsABlock)
{
    expect_one_message("*CLS;:DATA #12\n\n\n");
    expect_one_message("A 1;;B #12\n\n;C #11\n\n");
}

TEST(Framer, EmptyDefiniteBlockHasNoData)
{
    expect_ends("DATA #10\nA\n", {9, 11});
    expect_ends("DATA #3000\nA\n", {11, 13});
}

TEST(Framer, BlockLengthOfNineDigitsCounts)
{
    expect_one_message("DATA #9000000003\n\n\n\n");
}

TEST(Framer, IndefiniteBlockEndsAtItsLineFeed)
{
    expect_ends("DATA #0ab;'\"#13\nB\n", {16, 18});
}

TEST(Framer, LineFeedInAnOpenStringEndsTheMessage)
{
    expect_ends("A \"open\nB\n", {8, 10});
    expect_ends("A 'open\nB\n", {8, 10});
}

TEST(Framer, NumberSignInAStringOpensNoBlock)
{
    expect_ends("A \"x, #15\"\nB\n", {11, 13});
    expect_ends("A ' #15\nB\n", {8, 10});
    expect_ends("A \"it's, #15\"\nB\n", {14, 16});
    expect_ends("A 'x'', #15'\nB\n", {13, 15});
}

TEST(Framer, NumberSignInsideAnElementOpensNoBlock)
{
    expect_ends("A 1#15\nB\n", {7, 9});
    expect_ends("A 1 #15\nB\n", {8, 10});
    expect_ends("A#15\nB\n", {5, 7});
    expect_ends("#15\nB\n", {4, 6});
    expect_ends("A 1; #15\nB\n", {9, 11});
}

TEST(Framer, NumberSignInAnExpressionOpensNoBlock)
{
    expect_ends("A (1, #15)\nB\n", {11, 13});
    expect_ends("A (1,(2,#15),#15\nB\n", {17, 19});
}

TEST(Framer, BlockAfterAnExpressionIsABlock)
{
    expect_one_message("A (1;2),#12\n\n\n");
    expect_one_message("A \")\",(@\"(\"),#12\n\n\n");
}

TEST(Framer, ClosingParenthesisWithoutAnOpenOneChangesNothing)
{
    expect_one_message("A ),#12\n\n\n");
}

TEST(Framer, NumberSignWithoutADigitOpensNoBlock)
{
    expect_ends("A #HFF\nB\n", {7, 9});
    expect_ends("A #\nB\n", {4, 6});
    expect_ends("A #;B\n", {6});
}

TEST(Framer, LetterInABlocksLengthMakesItText)
{
    expect_ends("A #3a5\nB\n", {7, 9});
    expect_ends("A #3\nB\n", {5, 7});
    expect_ends("A #41 \nB\n", {7, 9});
}

TEST(Framer, NulIsWhiteSpaceLikeAnyOther)
{
    expect_one_message("A\0#12\n\n\n"s);
    expect_one_message("\0A \0 #12\n\n\n"s);
}

TEST(Framer, ResetForgetsAnOpenBlock)
{
    scpi_framer_t framer{};
    ASSERT_EQ(SCPI_FramerScan(&framer, "A #3100xx", 9), 0u);
    SCPI_FramerReset(&framer);
    EXPECT_EQ(SCPI_FramerScan(&framer, "B\nC", 3), 2u);
}

TEST(Framer, BlockLongerThanMemoryKeepsItsCount)
{
    scpi_framer_t framer{};
    ASSERT_EQ(SCPI_FramerScan(&framer, "A #9999999999", 13), 0u);
    const string megabyte(1000000, '\n');
    for (int i = 0; i < 999; ++i) {
        ASSERT_EQ(SCPI_FramerScan(&framer, megabyte.data(), megabyte.size()), 0u);
    }
    EXPECT_EQ(SCPI_FramerScan(&framer, megabyte.data(), megabyte.size()), 1000000u);
}

/** A direct implementation of the rules, a byte at a time, over the whole stream. */
std::vector<size_t> expected_ends(string_view s)
{
    std::vector<size_t> ends;
    size_t i = 0;
    while (i < s.size()) {
        bool in_data = false;
        bool header_seen = false;
        bool may_start = false;
        int depth = 0;
        for (;;) {
            if (i >= s.size()) {
                return ends;
            }
            const char c = s[i];
            const bool space = static_cast<unsigned char>(c) <= ' ';
            if (c == '\n') {
                ends.push_back(++i);
                break;
            }
            if (c == '"' || c == '\'') {
                ++i;
                while (i < s.size() && s[i] != c && s[i] != '\n') {
                    ++i;
                }
                if (i < s.size() && s[i] == c) {
                    ++i;
                }
                in_data = true;
                may_start = false;
                continue;
            }
            if (c == ';' && depth == 0) {
                in_data = header_seen = may_start = false;
            } else if (c == '#' && may_start && depth == 0) {
                may_start = false;
                size_t d = i + 1;
                if (d < s.size() && s[d] == '0') {
                    while (i < s.size() && s[i] != '\n') {
                        ++i;
                    }
                    continue;
                }
                if (d < s.size() && s[d] >= '1' && s[d] <= '9') {
                    size_t digits = static_cast<size_t>(s[d++] - '0');
                    size_t length = 0;
                    bool whole = true;
                    for (; digits != 0 && whole; --digits) {
                        whole = d < s.size() && s[d] >= '0' && s[d] <= '9';
                        if (whole) {
                            length = length * 10 + static_cast<size_t>(s[d++] - '0');
                        }
                    }
                    if (!whole && d >= s.size()) {
                        return ends;
                    }
                    i = whole ? d + length : d;
                    continue;
                }
            } else if (!in_data) {
                const bool header_char = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                                         (c >= 'a' && c <= 'z') || c == '_' || c == ':' || c == '*' ||
                                         c == '?';
                if (header_char) {
                    header_seen = true;
                } else if (space) {
                    in_data = may_start = header_seen;
                } else {
                    in_data = true;
                    may_start = c == ',' && depth == 0;
                    depth += c == '(' ? 1 : 0;
                }
            } else if (c == ',') {
                may_start = depth == 0;
            } else if (!space) {
                may_start = false;
                if (c == '(') {
                    ++depth;
                } else if (c == ')' && depth > 0) {
                    --depth;
                }
            }
            ++i;
        }
    }
    return ends;
}

TEST(Framer, RandomStreamsEndByTheRulesHoweverSplit)
{
    static constexpr string_view kAlphabet = "A1: \t,;#\"'()\n\r23405?*";
    std::mt19937 random(20240611);
    for (int round = 0; round < 20000; ++round) {
        string stream(1 + random() % 80, ' ');
        for (char& c : stream) {
            c = kAlphabet[random() % kAlphabet.size()];
        }
        const std::vector<size_t> ends = expected_ends(stream);
        ASSERT_EQ(message_ends(stream, stream.size()), ends) << stream;
        ASSERT_EQ(message_ends(stream, 1), ends) << stream;
        ASSERT_EQ(message_ends(stream, 1 + random() % 17), ends) << stream;
    }
}

} // namespace
