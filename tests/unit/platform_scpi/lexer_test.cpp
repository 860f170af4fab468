#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>

#include <gtest/gtest.h>

#include "../../../platform/scpi/src/lexer.h"
#include "scpi/error.h"

using namespace std::string_literals;

namespace {

struct Lexed {
    int error;
    scpi_parameter_t element;
    std::string body;
    std::string suffix;
    std::string text;
    size_t next;
};

/** The copy ends at its last byte for the address sanitizer. */
Lexed lex(std::string_view text)
{
    const auto copy = std::make_unique<char[]>(text.size());
    std::memcpy(copy.get(), text.data(), text.size());
    const char* const begin = copy.get();
    const char* const end = begin + text.size();
    Lexed result{};
    const char* next = nullptr;
    result.error = scpi::lex_element(begin, end, &result.element, &next);
    result.next = static_cast<size_t>(next - begin);
    const scpi_parameter_t& e = result.element;
    if (result.error == 0) {
        result.body.assign(e.body, e.body_len);
        result.text.assign(e.ptr, e.len);
        if (e.suffix != nullptr) {
            result.suffix.assign(e.suffix, e.suffix_len);
        }
    }
    return result;
}

struct Element {
    std::string text;
    scpi_token_type_t type;
    std::string element;
    std::string body;
    std::string suffix;
};

void PrintTo(const Element& e, std::ostream* os)
{
    *os << e.text;
}

class LexerElement : public ::testing::TestWithParam<Element> {};

TEST_P(LexerElement, IsFoundWithItsParts)
{
    const Element& expected = GetParam();
    const Lexed lexed = lex(expected.text);
    ASSERT_EQ(lexed.error, 0);
    EXPECT_EQ(lexed.element.type, expected.type);
    EXPECT_EQ(lexed.text, expected.element);
    EXPECT_EQ(lexed.body, expected.body);
    EXPECT_EQ(lexed.suffix, expected.suffix);
    EXPECT_EQ(lexed.next, expected.element.size());
}

Element plain(scpi_token_type_t type, const std::string& text)
{
    return {text, type, text, text, ""};
}

INSTANTIATE_TEST_SUITE_P(Character, LexerElement,
                         ::testing::Values(plain(SCPI_TOKEN_CHARACTER, "A"),
                                           plain(SCPI_TOKEN_CHARACTER, "on"),
                                           plain(SCPI_TOKEN_CHARACTER, "CH1"),
                                           plain(SCPI_TOKEN_CHARACTER, "a_B_9"),
                                           Element{"ABC,DEF", SCPI_TOKEN_CHARACTER, "ABC", "ABC", ""},
                                           Element{"ABC;*RST", SCPI_TOKEN_CHARACTER, "ABC", "ABC", ""},
                                           Element{"ABC\r\n", SCPI_TOKEN_CHARACTER, "ABC", "ABC", ""},
                                           Element{"AB\0CD"s, SCPI_TOKEN_CHARACTER, "AB", "AB", ""}));

INSTANTIATE_TEST_SUITE_P(Decimal, LexerElement,
                         ::testing::Values(plain(SCPI_TOKEN_DECIMAL, "0"), plain(SCPI_TOKEN_DECIMAL, "1"),
                                           plain(SCPI_TOKEN_DECIMAL, "+1."), plain(SCPI_TOKEN_DECIMAL, "-.5"),
                                           plain(SCPI_TOKEN_DECIMAL, ".5e-3"),
                                           plain(SCPI_TOKEN_DECIMAL, "1.25E+6"),
                                           plain(SCPI_TOKEN_DECIMAL, "1 E 3"),
                                           plain(SCPI_TOKEN_DECIMAL, "1\tE\t-3"),
                                           Element{"12 ,", SCPI_TOKEN_DECIMAL, "12", "12", ""},
                                           Element{"12 34", SCPI_TOKEN_DECIMAL, "12", "12", ""},
                                           Element{"12 'x'", SCPI_TOKEN_DECIMAL, "12", "12", ""}));

INSTANTIATE_TEST_SUITE_P(
    Suffix, LexerElement,
    ::testing::Values(Element{"1GHZ", SCPI_TOKEN_DECIMAL_SUFFIX, "1GHZ", "1", "GHZ"},
                      Element{"1.5 mV", SCPI_TOKEN_DECIMAL_SUFFIX, "1.5 mV", "1.5", "mV"},
                      Element{"1E3 HZ,2", SCPI_TOKEN_DECIMAL_SUFFIX, "1E3 HZ", "1E3", "HZ"},
                      Element{"1 E 3 HZ", SCPI_TOKEN_DECIMAL_SUFFIX, "1 E 3 HZ", "1 E 3", "HZ"},
                      Element{"5 EXHZ", SCPI_TOKEN_DECIMAL_SUFFIX, "5 EXHZ", "5", "EXHZ"},
                      Element{"1E3E3", SCPI_TOKEN_DECIMAL_SUFFIX, "1E3E3", "1E3", "E3"},
                      Element{"3M/S2", SCPI_TOKEN_DECIMAL_SUFFIX, "3M/S2", "3", "M/S2"},
                      Element{"3 /S", SCPI_TOKEN_DECIMAL_SUFFIX, "3 /S", "3", "/S"},
                      Element{"3 V.S-1", SCPI_TOKEN_DECIMAL_SUFFIX, "3 V.S-1", "3", "V.S-1"}));

INSTANTIATE_TEST_SUITE_P(NonDecimal, LexerElement,
                         ::testing::Values(Element{"#H1aF", SCPI_TOKEN_HEX, "#H1aF", "1aF", ""},
                                           Element{"#h0,", SCPI_TOKEN_HEX, "#h0", "0", ""},
                                           Element{"#Q17", SCPI_TOKEN_OCT, "#Q17", "17", ""},
                                           Element{"#b101 ", SCPI_TOKEN_BIN, "#b101", "101", ""}));

INSTANTIATE_TEST_SUITE_P(
    String, LexerElement,
    ::testing::Values(Element{"\"\"", SCPI_TOKEN_STRING_DOUBLE, "\"\"", "", ""},
                      Element{"\"a,b;c#15\"", SCPI_TOKEN_STRING_DOUBLE, "\"a,b;c#15\"", "a,b;c#15", ""},
                      Element{"\"a\"\"b\"", SCPI_TOKEN_STRING_DOUBLE, "\"a\"\"b\"", "a\"\"b", ""},
                      Element{"'a\"b',1", SCPI_TOKEN_STRING_SINGLE, "'a\"b'", "a\"b", ""},
                      Element{"''''", SCPI_TOKEN_STRING_SINGLE, "''''", "''", ""},
                      Element{"'a\0b'"s, SCPI_TOKEN_STRING_SINGLE, "'a\0b'"s, "a\0b"s, ""},
                      Element{"'\xC3\xA9'", SCPI_TOKEN_STRING_SINGLE, "'\xC3\xA9'", "\xC3\xA9", ""}));

INSTANTIATE_TEST_SUITE_P(
    Block, LexerElement,
    ::testing::Values(Element{"#10", SCPI_TOKEN_BLOCK, "#10", "", ""},
                      Element{"#15a,;\n\"", SCPI_TOKEN_BLOCK, "#15a,;\n\"", "a,;\n\"", ""},
                      Element{"#3003abc,1", SCPI_TOKEN_BLOCK, "#3003abc", "abc", ""},
                      Element{"#9000000002\0\0"s, SCPI_TOKEN_BLOCK, "#9000000002\0\0"s, "\0\0"s, ""},
                      Element{"#0", SCPI_TOKEN_BLOCK, "#0", "", ""},
                      Element{"#0ab, c;", SCPI_TOKEN_BLOCK, "#0ab, c;", "ab, c;", ""}));

INSTANTIATE_TEST_SUITE_P(
    Expression, LexerElement,
    ::testing::Values(Element{"()", SCPI_TOKEN_EXPRESSION, "()", "", ""},
                      Element{"(@1,3:5),2", SCPI_TOKEN_EXPRESSION, "(@1,3:5)", "@1,3:5", ""},
                      Element{"((1+2)*3)", SCPI_TOKEN_EXPRESSION, "((1+2)*3)", "(1+2)*3", ""},
                      Element{"(\")\",';')", SCPI_TOKEN_EXPRESSION, "(\")\",';')", "\")\",';'", ""}));

struct Mistake {
    std::string text;
    int error;
    size_t position;
};

void PrintTo(const Mistake& m, std::ostream* os)
{
    *os << m.text;
}

class LexerMistake : public ::testing::TestWithParam<Mistake> {};

TEST_P(LexerMistake, ReportsItsNumberAndPosition)
{
    const Lexed lexed = lex(GetParam().text);
    EXPECT_EQ(lexed.error, GetParam().error);
    EXPECT_EQ(lexed.next, GetParam().position);
    EXPECT_EQ(lexed.element.type, SCPI_TOKEN_INVALID);
    EXPECT_EQ(lexed.element.ptr, nullptr);
    EXPECT_EQ(lexed.element.len, 0u);
    EXPECT_EQ(lexed.element.suffix, nullptr);
    EXPECT_EQ(lexed.element.suffix_len, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    All, LexerMistake,
    ::testing::Values(
        Mistake{"", -102, 0}, Mistake{",", -102, 0}, Mistake{";", -102, 0}, Mistake{" 1", -102, 0},
        Mistake{"@", -101, 0}, Mistake{"\x80", -101, 0}, Mistake{")", -101, 0}, Mistake{"_A", -101, 0},
        Mistake{"#", -101, 1}, Mistake{"#X", -101, 1}, Mistake{"# 1", -101, 1},

        Mistake{"AB-C", -141, 2}, Mistake{"AB\"C\"", -141, 2}, Mistake{"A.B", -141, 1},

        Mistake{"+", -120, 1}, Mistake{"-", -120, 1}, Mistake{".", -120, 1}, Mistake{"-.,", -120, 2},
        Mistake{"+A", -121, 1}, Mistake{"--1", -121, 1}, Mistake{"1.2.3", -121, 3},
        Mistake{"192.168.1.2", -121, 7}, Mistake{"1_", -121, 1}, Mistake{"1+2", -121, 1},
        Mistake{"1E", -121, 2}, Mistake{"1E+", -121, 3}, Mistake{"1E,", -121, 2}, Mistake{"1E- 3", -121, 3},
        Mistake{"1E.5", -121, 2}, Mistake{"1E3.5", -121, 3}, Mistake{"1\"a\"", -121, 1},

        Mistake{"#H", -120, 2}, Mistake{"#H,", -120, 2}, Mistake{"#HG", -121, 2}, Mistake{"#H1G", -121, 3},
        Mistake{"#Q8", -121, 2}, Mistake{"#Q78", -121, 3}, Mistake{"#B2", -121, 2}, Mistake{"#B12", -121, 3},
        Mistake{"#H-1", -121, 2}, Mistake{"#B1.0", -121, 3},

        Mistake{"1 V%", -131, 3}, Mistake{"1V_", -131, 2},

        Mistake{"\"", -151, 1}, Mistake{"\"abc", -151, 4}, Mistake{"\"abc'", -151, 5},
        Mistake{"'a''", -151, 4},

        Mistake{"#1", -161, 2}, Mistake{"#2", -161, 2}, Mistake{"#21", -161, 3}, Mistake{"#2a1", -161, 2},
        Mistake{"#11", -161, 3}, Mistake{"#15abcd", -161, 3}, Mistake{"#9999999999", -161, 11},

        Mistake{"(", -171, 1}, Mistake{"(1", -171, 2}, Mistake{"((1)", -171, 4}, Mistake{"(1;2)", -171, 2},
        Mistake{"(\")", -171, 3}));

TEST(Lexer, WhiteSpaceIsEveryControlCharacterAndTheSpace)
{
    for (int c = 0; c < 256; ++c) {
        const std::string text = std::string("AB") + static_cast<char>(c) + "C";
        const bool space = c <= 32;
        const bool word = c < 128 && (std::isalnum(c) != 0 || c == '_');
        const bool separator = c == ',' || c == ';';
        const Lexed lexed = lex(text);
        if (word) {
            EXPECT_EQ(lexed.text, text) << c;
        } else if (space || separator) {
            EXPECT_EQ(lexed.text, "AB") << c;
        } else {
            EXPECT_EQ(lexed.error, SCPI_ERROR_INVALID_CHARACTER_DATA) << c;
        }
    }
}

TEST(Lexer, NeverReadsPastAPrefixOfAText)
{
    for (const std::string& text :
         {"-12.5 E +3 KHZ"s, "#3005a\"'(b,"s, "\"a\"\"b\" ,"s, "('a(',(\")\"))"s, "#H12AB;"s, "#0 x"s}) {
        for (size_t n = 0; n <= text.size(); ++n) {
            const Lexed lexed = lex(std::string_view(text).substr(0, n));
            EXPECT_LE(lexed.next, n) << text << " cut to " << n;
            EXPECT_LE(lexed.text.size(), lexed.next);
        }
    }
}

} // namespace
