#include <gtest/gtest.h>

#include "instrument/response.h"
#include "instrument/scpi_link.h"

using namespace orvan_web;

namespace {

// The responses in a stream that comes in pieces of that size, without their LFs.
std::vector<std::string> responses(const std::string& stream, size_t piece)
{
    std::vector<std::string> result;
    ResponseFramer framer;
    size_t begin = 0;
    for (size_t at = 0; at < stream.size();) {
        const std::string_view bytes = std::string_view(stream).substr(at, piece);
        const size_t found = framer.scan(bytes);
        at += found > 0 ? found : bytes.size();
        if (found > 0) {
            result.push_back(stream.substr(begin, at - begin - 1));
            begin = at;
        }
    }
    return result;
}

using Texts = std::vector<std::string>;

} // namespace

TEST(Response, EndsAtALfThatIsInNoBlock)
{
    const std::string stream = "1;2\n\n#15a\nb\nc\n7;#15\n\n\n\n\n;\"#19\n\"x\"\n#0abc\n";
    const Texts wanted = {"1;2", "", "#15a\nb\nc", "7;#15\n\n\n\n\n;\"#19", "\"x\"", "#0abc"};
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{5}, stream.size()}) {
        EXPECT_EQ(responses(stream, piece), wanted) << piece;
    }
}

TEST(Response, LfEndsAnUnfinishedStringAndALengthThatIsNone)
{
    EXPECT_EQ(responses("\"abc\n1\n", 3), (Texts{"\"abc", "1"}));
    EXPECT_EQ(responses("#9x\n1\n", 3), (Texts{"#9x", "1"}));
    EXPECT_EQ(responses("A#15\nB\n", 1), (Texts{"A#15", "B"})); // not where an element begins
}

TEST(Response, FieldsAreSeparatedBySemicolonsOutsideStringsAndBlocks)
{
    EXPECT_EQ(split_fields(""), Texts{});
    EXPECT_EQ(split_fields("1"), Texts{"1"});
    EXPECT_EQ(split_fields("1;\"a;b\"\"c;d\";2"), (Texts{"1", "\"a;b\"\"c;d\"", "2"}));
    EXPECT_EQ(split_fields("#14;;;;;5"), (Texts{"#14;;;;", "5"}));
    EXPECT_EQ(split_fields("1;;3"), (Texts{"1", "", "3"}));
}

TEST(Response, ErrorsOfTheSessionAreReadInOrder)
{
    EXPECT_TRUE(read_errors("0,\"No error\"").empty());
    EXPECT_EQ(read_errors("-113,\"Undefined header\",-222,\"Data; \"\"out\"\", of range\""),
              (std::vector<ScpiError>{{-113, "Undefined header"}, {-222, "Data; \"out\", of range"}}));
    EXPECT_TRUE(read_errors("").empty());
    EXPECT_TRUE(read_errors("garbage").empty());
    EXPECT_EQ(read_errors("-5,\"cut"), (std::vector<ScpiError>{{-5, "cut"}}));
}

TEST(Response, MessageIsOneOnlyIfItsEndIsTheEndOfTheText)
{
    EXPECT_TRUE(is_one_message(":FREQ 1GHz;:FREQ?"));
    EXPECT_FALSE(is_one_message(":FREQ 1GHz\n:OUTP ON"));
    EXPECT_FALSE(is_one_message(":SYST:UPD:SOFT #3100abc")); // would wait for 97 bytes
    EXPECT_TRUE(is_one_message(":SYST:UPD:SOFT #13a\nb"));
}
