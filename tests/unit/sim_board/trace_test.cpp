#include <sstream>

#include <gtest/gtest.h>

#include "board/expect_trace.h"
#include "board/trace.h"

namespace sim_board {
namespace {

TEST(Trace, KeepsLinesInOrder)
{
    Trace trace;
    trace.add("pin %d = %d", 26, 1);
    trace.add("delay %d", 10);
    EXPECT_EQ(trace.lines(), (std::vector<std::string>{"pin 26 = 1", "delay 10"}));
    EXPECT_EQ(trace.take().size(), 2u);
    EXPECT_TRUE(trace.lines().empty());
}

TEST(Trace, FormatsALineOnRequest)
{
    Trace trace(1);
    int made = 0;
    const auto line = [&made] { return formatted("made %d", ++made); };
    trace.add(line);
    trace.add(line); // the first is dropped
    EXPECT_EQ(made, 0);
    EXPECT_EQ(trace.lines(), (std::vector<std::string>{"made 1"}));
    EXPECT_EQ(trace.take(), (std::vector<std::string>{"made 2"}));
    trace.add(line);
    trace.clear();
    EXPECT_EQ(made, 2);
}

TEST(Trace, ReturnsLinesByPrefixInOrder)
{
    Trace trace;
    for (const char* line : {"pin 1 = 0", "i2c 0x20 open", "delay 5", "pin 2 = 1"}) {
        trace.add("%s", line);
    }
    EXPECT_EQ(trace.lines_with({"pin", "delay"}),
              (std::vector<std::string>{"pin 1 = 0", "delay 5", "pin 2 = 1"}));
}

TEST(Trace, DropsTheOldestBeyondItsLimitAndCountsThem)
{
    Trace trace(2);
    for (int i = 0; i < 5; ++i) {
        trace.add("%d", i);
    }
    EXPECT_EQ(trace.lines(), (std::vector<std::string>{"3", "4"}));
    EXPECT_EQ(trace.dropped(), 3u);
    trace.clear();
    EXPECT_EQ(trace.dropped(), 0u);
}

TEST(Trace, LongTransfersShowSixteenBytesAndTheCount)
{
    const std::vector<unsigned char> bytes(17, 0xab);
    EXPECT_EQ(hex_bytes(bytes.data(), 2), "ab ab");
    EXPECT_EQ(hex_bytes(bytes.data(), 16), "ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab");
    EXPECT_EQ(hex_bytes(bytes.data(), 17), "ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ... 17 bytes");
    EXPECT_EQ(hex_bytes(bytes.data(), 0), "");
}

TEST(ExpectTrace, IndentationAndBlankLinesDoNotCount)
{
    std::ostringstream out;
    EXPECT_TRUE(expect_trace({"a b", "c"}, R"(
        a b

        c
    )",
                             out));
    EXPECT_EQ(out.str(), "");
    EXPECT_TRUE(expect_trace({}, "  \n\n"));
}

TEST(ExpectTrace, PrintsTheFirstLineThatDiffers)
{
    std::ostringstream out;
    EXPECT_FALSE(expect_trace({"a", "b", "x"}, "a\nc\ny", out));
    EXPECT_EQ(out.str(), "the trace differs in line 2\n  expected: c\n  actual:   b\n");
}

TEST(ExpectTrace, TooShortAndTooLongTracesDiffer)
{
    EXPECT_EQ(first_difference({"a"}, "a\nb"),
              "the trace differs in line 2\n  expected: b\n  actual:   (end of trace)\n");
    EXPECT_EQ(first_difference({"a", "b"}, "a"),
              "the trace differs in line 2\n  expected: (end of trace)\n  actual:   b\n");
}

} // namespace
} // namespace sim_board
