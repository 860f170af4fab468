// SCPI_CutUnit beside the parser: a program that cuts messages sees the same units.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "recording_context.h"
#include "scpi/extensions.h"

namespace {

using R = RecordingContext;

// Every header is known: what the parser makes of a unit shows in its call or in its error.
constexpr scpi_command_t kCommands[] = {
    {":SOURce:FREQuency", R::handle, 1},
    {":SOURce:FREQuency?", R::handle, 2},
    {":SOURce:POWer:LEVel", R::handle, 3},
    {":A", R::handle, 4},
    {":B", R::handle, 5},
    {"*CLS", R::handle, 6},
    {"*ESE", R::handle, 7},
    {nullptr, nullptr, 0},
};

/** What the parser does with a message. */
std::vector<std::string> parsed(std::string message)
{
    R context(kCommands);
    SCPI_Parse(&context.context, message.data(), message.size());
    return context.take_events();
}

/** The same of the units that SCPI_CutUnit finds, with the path carried along. */
std::vector<std::string> cut(const std::string& message)
{
    std::vector<std::string> events;
    std::string path;
    const char* const end = message.data() + message.size();
    for (const char* next = message.data(); next != nullptr;) {
        const scpi_message_unit_t unit = SCPI_CutUnit(next, end);
        EXPECT_LE(unit.begin, unit.end);
        EXPECT_LE(unit.end, end);
        next = unit.next;
        if (unit.begin == unit.end) {
            EXPECT_EQ(unit.header_len, 0u);
            continue;
        }
        const std::string text(unit.begin, unit.end);
        std::string header = text.substr(0, unit.header_len);
        const bool is_header = unit.fault == 0 || unit.fault <= -151;
        if (is_header && !unit.common) {
            if (!unit.absolute) {
                header.insert(0, path);
            }
            path = header.substr(0, unit.path_len + (unit.absolute ? 0 : path.size()));
        }
        size_t data = unit.header_len;
        while (data < text.size() && static_cast<unsigned char>(text[data]) <= ' ') {
            ++data;
        }
        const auto known = [&header](const scpi_command_t& command) {
            return command.pattern != nullptr && SCPI_Match(command.pattern, header.data(), header.size());
        };
        if (is_header && std::none_of(std::begin(kCommands), std::end(kCommands), known)) {
            events.emplace_back("error -113");
        } else if (!is_header || unit.fault != 0) {
            events.push_back("error " + std::to_string(unit.fault));
        } else {
            events.push_back("call " + header + " [" + R::escaped(text.substr(data)) + "]");
        }
    }
    return events;
}

scpi_message_unit_t first_unit(std::string_view message)
{
    return SCPI_CutUnit(message.data(), message.data() + message.size());
}

} // namespace

TEST(CutUnit, SeesTheUnitsThatTheParserSees)
{
    for (const char* text : {"",
                             " ",
                             ";",
                             ";;;",
                             ":A",
                             " :A ",
                             ":A 1",
                             ":A  1 , 2 ",
                             ":A;:B",
                             ":A ; :B ;",
                             ";:A;;:B;;",
                             ":SOUR:FREQ 1;FREQ?;POW:LEV 2;LEV 3",
                             "SOUR:FREQ 1;*CLS;FREQ 2;:A;B",
                             ":A;B;SOUR:FREQ",
                             "*ESE 1;*CLS;*ESE",
                             "*CLS;A",
                             ":NO:SUCH 1;FREQ;:A",
                             ":SOUR:NO;FREQ 1",
                             "1X;:A",
                             ":A::B;:A",
                             "::A",
                             ":;*;?;:A",
                             "A?;A?B;A,1;A\"x\";*A:B;\x01;\x80:A;:A\x80",
                             ":SOUR:FREQ 1;?X;FREQ 2",
                             ":A \"x;y\";:B",
                             ":A \"x;\"\"y\";:B",
                             ":A 'x;''y';:B",
                             ":A \"x';y\";:B",
                             ":A (1;2);:B",
                             ":A ((1;2);3);:B",
                             ":A #13a;b;:B",
                             ":A #13a;b ;:B",
                             ":A #13\n; ;:B",
                             ":A 1,#12;;,2;:B",
                             ":A #10;:B",
                             ":A #0a;:B",
                             ":A #0a \r\n",
                             ":A x#13a;b;:B",
                             ":A 1 #13a;b;:B",
                             ":A \"open;:B",
                             ":A 'open;:B",
                             ":A (open;:B",
                             ":SOUR:FREQ \"open",
                             "*CLS \"open",
                             ":NO \"open",
                             ":A #15ab",
                             ":A #9",
                             ":A #912345678",
                             ":A #2",
                             ":A #",
                             "1X #15ab",
                             "X #15ab",
                             "*CLS #15ab",
                             ":A \"x\n:B",
                             ":A 1\n:B",
                             ":A;\n:B",
                             ":A \r\n",
                             ":SOUR:FREQ 1;FREQ #15ab",
                             ":A )(;:B",
                             "\t\v:A\f1;\x01:B"}) {
        for (const std::string& message : {std::string(text), std::string(text) + '\n'}) {
            // A parser stops at its message's LF; what follows is another message.
            EXPECT_EQ(cut(message), parsed(message)) << R::escaped(message);
        }
    }
}

TEST(CutUnit, DescribesTheHeader)
{
    const scpi_message_unit_t unit = first_unit("  :SOUR:FREQ?  MAX  ;:B");
    EXPECT_EQ(std::string(unit.begin, unit.end), ":SOUR:FREQ?  MAX");
    EXPECT_EQ(std::string(unit.begin, unit.header_len), ":SOUR:FREQ?");
    EXPECT_EQ(std::string(unit.begin, unit.path_len), ":SOUR:");
    EXPECT_TRUE(unit.absolute);
    EXPECT_FALSE(unit.common);
    EXPECT_EQ(std::string(unit.next), ":B");
    EXPECT_EQ(unit.fault, 0);

    EXPECT_EQ(first_unit("FREQ").path_len, 0u);
    EXPECT_EQ(first_unit(":FREQ").path_len, 1u);
    EXPECT_EQ(first_unit("SOUR:FREQ").path_len, 5u);
    EXPECT_FALSE(first_unit("SOUR:FREQ").absolute);
    EXPECT_TRUE(first_unit("*CLS").common);
    EXPECT_EQ(first_unit("*CLS").next, nullptr);
}

// Such a unit must not be passed on with a LF after it: the parser would take that for a byte of the block.
TEST(CutUnit, ReportsAnOpenBlockWhateverTheHeaderIs)
{
    for (const char* text :
         {":A #15ab", ":A #15ab\n", "1X #15ab", "A::B 1,#3100;:A", ":A #9", ":A #212", ":A #19ab;*CLS"}) {
        EXPECT_TRUE(first_unit(text).block_open) << text;
        EXPECT_EQ(first_unit(text).next, nullptr) << text;
        EXPECT_NE(first_unit(text).fault, 0) << text;
    }
    for (const char* text :
         {":A #12ab", ":A #0ab", ":A \"#15ab", ":A (#15ab", ":A", "", "1X", ":A #", ":A x#15ab"}) {
        EXPECT_FALSE(first_unit(text).block_open) << text;
    }
    EXPECT_EQ(first_unit("1X #15ab").fault, -102);
    EXPECT_EQ(first_unit(":A #15ab").fault, -161);
}
