#include <cctype>
#include <map>
#include <random>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "../../../orvan_sdk/scpi-parser/parser_library.h"
#include "orvan_sdk/scpi-parser/scpi-bypass.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "unit/platform_scpi/naive_matcher.h"
#include <scpi/scpi.h>

// Whether the next sub-command of a line is forwarded.

namespace {

using HaldeElec::Orvan::find_row;
using HaldeElec::Orvan::match_rows;

std::string in_lower_case(std::string text)
{
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string in_mixed_case(const std::string& text, std::mt19937& random)
{
    std::string mixed = in_lower_case(text);
    for (size_t i = 0; i < text.size(); ++i) {
        mixed[i] = random() % 2 == 0 ? mixed[i] : text[i];
    }
    return mixed;
}

class NextIsBypass : public testing::Test {
protected:
    ~NextIsBypass() override { SCPI_Deinit(&context); }

    void use(const scpi_command_t* table)
    {
        SCPI_Init(&context, table, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
                  0);
    }

    bool forwarded(const std::string& rest)
    {
        return next_is_bypass(&context, rest.data(), rest.data() + rest.size(), OrvanX_cmdBypass);
    }

    /** Both ways to look a header up return the same row, which decides the next sub-command. */
    void expect_same_row(const std::string& header)
    {
        const scpi_command_t* const row = match_rows(&context, header.data(), header.size());
        ASSERT_EQ(find_row(&context, header.data(), header.size()), row) << header;
        ++compared;
        if (header.front() != ':' && header.front() != '*') {
            return; // relative
        }
        ASSERT_EQ(forwarded(" ; " + header + " 1\n"), row != nullptr && row->callback == OrvanX_cmdBypass)
            << header;
    }

    scpi_t context{};
    size_t compared = 0;
};

TEST_F(NextIsBypass, UsesTheFirstRowThatMatches)
{
    const scpi_command_t table[] = {
        {":POWer?", SCPI_StatusPreset, 0},   {":POWer?", OrvanX_cmdBypass, 0},
        {":FREQuency", OrvanX_cmdBypass, 0}, {nullptr, nullptr, 0},
        {":PHASe", OrvanX_cmdBypass, 0},
    };
    use(table);
    EXPECT_TRUE(forwarded(";:FREQ 1\n"));
    EXPECT_TRUE(forwarded(" ; :frequency 1\n"));
    EXPECT_FALSE(forwarded(";:POW?\n")); // the first row that matches decides
    EXPECT_FALSE(forwarded(";:PHAS 1\n"));
    EXPECT_FALSE(forwarded(";:FREQ? 1\n"));
    EXPECT_FALSE(forwarded(";FREQ 1\n"));
    EXPECT_FALSE(forwarded("\r\n:FREQ 1"));
    EXPECT_FALSE(forwarded(""));
}

TEST_F(NextIsBypass, AgreesWithMatchingRowByRowForEachSpelling)
{
    use(scpi_commands);
    std::map<std::string, const scpi_command_t*> headers; // with the first row of each
    for (const scpi_command_t* row = scpi_commands; row->pattern != nullptr; ++row) {
        for (const std::string& header : all_headers(row->pattern)) {
            headers.emplace(header, row);
        }
    }

    std::mt19937 random(14);
    std::set<const scpi_command_t*> rows;
    size_t forwarded_rows = 0;
    for (const auto& [header, row] : headers) {
        std::set<std::string> spellings{header, in_lower_case(header)};
        for (int i = 0; i < 16; ++i) {
            spellings.insert(in_mixed_case(header, random));
        }
        for (const std::string& spelling : spellings) {
            ASSERT_EQ(find_row(&context, spelling.data(), spelling.size()), row) << spelling;
            ASSERT_NO_FATAL_FAILURE(expect_same_row(spelling));
        }
        // The other form, a character less, a character or a node more: mostly no row, at times another one.
        const std::string stem = header.ends_with('?') ? header.substr(0, header.size() - 1) : header;
        for (const std::string& other : {stem, stem.substr(0, stem.size() - 1), stem + "X", stem + ":X"}) {
            ASSERT_NO_FATAL_FAILURE(expect_same_row(other));
            ASSERT_NO_FATAL_FAILURE(expect_same_row(other + "?"));
        }
        if (rows.insert(row).second && row->callback == OrvanX_cmdBypass) {
            ++forwarded_rows;
        }
    }
    EXPECT_EQ(rows.size(), 202u);
    EXPECT_EQ(forwarded_rows, 142u);
    EXPECT_GT(compared, 80000u);
}

} // namespace
