#include <array>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "instrument_patterns.h"
#include "naive_matcher.h"
#include "scpi/scpi.h"

namespace {

using std::string;
using std::string_view;

class Table {
public:
    explicit Table(const std::vector<const char*>& patterns)
    {
        for (const char* pattern : patterns) {
            m_rows.push_back({pattern, nullptr, static_cast<int32_t>(m_rows.size())});
        }
        m_rows.push_back({nullptr, nullptr, 0});
        SCPI_Init(&m_context, m_rows.data(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                  m_buffer.data(), m_buffer.size(), m_errors.data(), static_cast<int16_t>(m_errors.size()));
    }
    ~Table() { SCPI_Deinit(&m_context); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    /** Number of the row that the look-up finds, -1 for none. */
    int found(string_view header) const
    {
        const scpi_command_t* row = SCPI_FindCommand(&m_context, header.data(), header.size());
        return row != nullptr ? static_cast<int>(row - m_rows.data()) : -1;
    }

    /** The same by calling SCPI_Match for each row. */
    int first_match(string_view header) const
    {
        for (size_t i = 0; m_rows[i].pattern != nullptr; ++i) {
            if (SCPI_Match(m_rows[i].pattern, header.data(), header.size())) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }

    size_t size() const { return m_rows.size() - 1; }
    const char* pattern(size_t row) const { return m_rows[row].pattern; }

private:
    std::vector<scpi_command_t> m_rows;
    scpi_t m_context{};
    std::array<char, 16> m_buffer{};
    std::array<scpi_error_t, 2> m_errors{};
};

std::vector<const char*> instrument_patterns()
{
    return {kInstrumentPatterns.begin(), kInstrumentPatterns.end()};
}

/** Every header that the table has, in upper case, with the first row that has it. */
std::map<string, int> headers_of(const Table& table)
{
    std::map<string, int> headers;
    for (size_t row = 0; row < table.size(); ++row) {
        for (const string& header : all_headers(table.pattern(row))) {
            headers.emplace(header, static_cast<int>(row));
        }
    }
    return headers;
}

string in_random_case(string text, std::mt19937& random)
{
    for (char& c : text) {
        if (random() % 2 == 0) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return text;
}

TEST(CommandIndex, FindsEachRowByEverySpelling)
{
    const Table table(instrument_patterns());
    std::mt19937 random(1);
    const std::map<string, int> headers = headers_of(table);
    std::set<int> rows;
    for (const auto& [header, row] : headers) {
        for (const string& spelling : {header, upper_case(header), in_random_case(header, random)}) {
            ASSERT_EQ(table.found(spelling), row) << spelling;
            ASSERT_EQ(table.first_match(spelling), row) << spelling;
        }
        rows.insert(row);
    }
    EXPECT_EQ(rows.size(), kInstrumentPatterns.size());
}

TEST(CommandIndex, AddingOrRemovingAQuestionMarkFindsTheOtherRowOrNone)
{
    const Table table(instrument_patterns());
    const std::map<string, int> headers = headers_of(table);
    for (const auto& [header, row] : headers) {
        string other = header;
        if (other.back() == '?') {
            other.pop_back();
        } else {
            other += '?';
        }
        const auto expected = headers.find(other);
        ASSERT_EQ(table.found(other), expected != headers.end() ? expected->second : -1) << other;
        ASSERT_EQ(table.first_match(other), table.found(other)) << other;
    }
}

TEST(CommandIndex, PrefixesOfHeadersAgreeWithThePatterns)
{
    const Table table(instrument_patterns());
    const std::map<string, int> headers = headers_of(table);
    for (const auto& [header, row] : headers) {
        for (size_t len = 0; len <= header.size(); ++len) {
            const string prefix = header.substr(0, len);
            const auto expected = headers.find(prefix);
            ASSERT_EQ(table.found(prefix), expected != headers.end() ? expected->second : -1) << prefix;
            ASSERT_EQ(table.first_match(prefix), table.found(prefix)) << prefix;
        }
    }
}

TEST(CommandIndex, MutatedHeadersAgreeWithThePatterns)
{
    const Table table(instrument_patterns());
    const std::map<string, int> headers = headers_of(table);
    std::vector<string> spellings;
    for (const auto& [header, row] : headers) {
        spellings.push_back(header);
    }
    static constexpr string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ019_:*?[] \x80";
    std::mt19937 random(20240611);
    const auto letter = [&] { return kAlphabet[random() % kAlphabet.size()]; };
    int known = 0;
    for (int round = 0; round < 100000; ++round) {
        string header = spellings[random() % spellings.size()];
        for (size_t changes = 1 + random() % 3; changes != 0; --changes) {
            const size_t at = random() % (header.size() + 1);
            switch (random() % 5) {
            case 0:
                header.insert(at, 1, letter());
                break;
            case 1:
                header.erase(at, 1 + random() % 3);
                break;
            case 2:
                if (at < header.size()) {
                    header[at] = letter();
                }
                break;
            case 3: { // the head of one header and the tail of another
                const string& other = spellings[random() % spellings.size()];
                header = header.substr(0, at) + other.substr(random() % other.size());
                break;
            }
            default: { // a whole node taken out
                const size_t colon = header.find(':', at);
                if (colon != string::npos) {
                    header.erase(colon, header.find(':', colon + 1) - colon);
                }
                break;
            }
            }
        }
        const auto expected = headers.find(header);
        const int row = expected != headers.end() ? expected->second : -1;
        known += row >= 0 ? 1 : 0;
        const string spelling = in_random_case(header, random);
        ASSERT_EQ(table.found(spelling), row) << spelling;
        ASSERT_EQ(table.first_match(spelling), row) << spelling;
    }
    EXPECT_GT(known, 1000);
}

TEST(CommandIndex, RandomTablesAgreeWithMatchingRowByRow)
{
    // Few short names under many shared and optional nodes: forms of different nodes coincide.
    static constexpr std::array<const char*, 8> kNames = {"A", "Ab", "AB", "ABc", "AbC", "aB", "B", "STATe"};
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::vector<string> patterns;
        for (size_t rows = 1 + random() % 12; rows != 0; --rows) {
            string pattern;
            for (size_t nodes = 1 + random() % 4; nodes != 0; --nodes) {
                const string node = string(":") + kNames[random() % kNames.size()];
                pattern += random() % 3 == 0 ? "[" + node + "]" : node;
            }
            patterns.push_back(pattern + (random() % 2 == 0 ? "?" : ""));
        }
        std::vector<const char*> rows;
        for (const string& pattern : patterns) {
            rows.push_back(pattern.c_str());
        }
        const Table table(rows);
        std::set<string> headers;
        for (const string& pattern : patterns) {
            headers.merge(all_headers(pattern));
        }
        headers.erase("");
        headers.erase("?");
        for (const string& header : headers) {
            int expected = -1;
            for (size_t row = 0; row < patterns.size() && expected < 0; ++row) {
                expected = all_headers(patterns[row]).contains(header) ? static_cast<int>(row) : -1;
            }
            ASSERT_EQ(table.found(header), expected) << header;
            ASSERT_EQ(table.first_match(header), expected) << header;
        }
    }
}

TEST(CommandIndex, FirstOfSeveralMatchingRowsIsFound)
{
    const Table table({":A:B", ":A[:X]:B", "[:Z]:A:B", ":A:B?", "[:Y]:A:B?"});
    EXPECT_EQ(table.found(":A:B"), 0);
    EXPECT_EQ(table.found(":A:X:B"), 1);
    EXPECT_EQ(table.found(":Z:A:B"), 2);
    EXPECT_EQ(table.found(":A:B?"), 3);
    EXPECT_EQ(table.found(":Y:A:B?"), 4);
}

TEST(CommandIndex, RowsThatShareASpellingKeepTheirOwnTails)
{
    const Table table({":STATe:LONG", ":STAT:SHORt"});
    EXPECT_EQ(table.found(":STAT:LONG"), 0);
    EXPECT_EQ(table.found(":STATE:LONG"), 0);
    EXPECT_EQ(table.found(":STAT:SHOR"), 1);
    EXPECT_EQ(table.found(":STATE:SHOR"), -1);
}

TEST(CommandIndex, MalformedRowsAreNeverFoundAndHideNoOther)
{
    const Table table({":A[:B", "[", ":A??", "", "?", "*", ":A::B", ":A", ":A?"});
    EXPECT_EQ(table.found(":A"), 7);
    EXPECT_EQ(table.found(":A?"), 8);
    EXPECT_EQ(table.found(":A:B"), -1);
    for (const string_view header : {"", "?", "*", ":", "*?"}) {
        EXPECT_EQ(table.found(header), -1) << header;
    }
}

TEST(CommandIndex, NodeWithoutCapitalsHasNoShortForm)
{
    const Table table({":A:b", ":A:b?", ":b"});
    EXPECT_EQ(table.found(":A:B"), 0);
    EXPECT_EQ(table.found(":A:B?"), 1);
    EXPECT_EQ(table.found(":A:"), -1);
    EXPECT_EQ(table.found(":A:?"), -1);
    EXPECT_EQ(table.found(":"), -1);
}

TEST(CommandIndex, ManyOptionalNodesDoNotMultiplyTheTable)
{
    string pattern;
    string header;
    for (int i = 0; i < 40; ++i) {
        pattern += "[:N" + std::to_string(i) + "]";
        header += ":N" + std::to_string(i);
    }
    const Table table({pattern.c_str()});
    EXPECT_EQ(table.found(header), 0);
    EXPECT_EQ(table.found(":N0:N39"), 0);
    EXPECT_EQ(table.found(":N39"), 0);
    EXPECT_EQ(table.found(":N39:N0"), -1);
}

TEST(CommandIndex, EmptyTableHasNoCommand)
{
    const Table table({});
    EXPECT_EQ(table.found(":A"), -1);
    EXPECT_EQ(table.found("*IDN?"), -1);
}

TEST(CommandIndex, NullTableHasNoCommand)
{
    scpi_t context;
    SCPI_Init(&context, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr,
              0);
    EXPECT_EQ(SCPI_FindCommand(&context, ":A", 2), nullptr);
    SCPI_Deinit(&context);
    EXPECT_EQ(SCPI_FindCommand(&context, ":A", 2), nullptr);
}

TEST(CommandIndex, HugeHeaderDoesNoHarm)
{
    const Table table(instrument_patterns());
    EXPECT_EQ(table.found(string(3000000, 'A')), -1);
    string deep;
    for (int i = 0; i < 300000; ++i) {
        deep += ":SOUR";
    }
    EXPECT_EQ(table.found(deep), -1);
}

} // namespace
