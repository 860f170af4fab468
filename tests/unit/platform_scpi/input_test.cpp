#include <algorithm>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recording_context.h"

namespace {

using std::string;
using std::string_view;
using testing::ElementsAre;
using testing::IsEmpty;

using R = RecordingContext;

constexpr scpi_command_t kCommands[] = {
    {":A", R::handle, 1},
    {":B", R::handle, 2},
    {":DATA", R::handle, 3},
    {"*IDN?", R::handle, 4},
    {":LEAVe", R::leave_parameters, 5},
    {":FAIL", R::fail_silently, 6},
    {":S:A", R::handle, 7},
    {":S:B", R::handle, 8},
    {":ANSWer?", R::answer, 9},
    {nullptr, nullptr, 0},
};

std::vector<string> events_of(string_view bytes, size_t piece, size_t buffer_size = 4096)
{
    RecordingContext context(kCommands, buffer_size);
    context.input_in_pieces(bytes, piece);
    return context.take_events();
}

/** Feeds the bytes whole, and then in pieces of every size, which must have the same result. */
std::vector<string> events_however_cut(string_view bytes, size_t buffer_size = 4096)
{
    const std::vector<string> whole = events_of(bytes, bytes.size(), buffer_size);
    for (size_t piece = 1; piece < bytes.size(); ++piece) {
        EXPECT_EQ(events_of(bytes, piece, buffer_size), whole) << "in pieces of " << piece;
    }
    return whole;
}

TEST(Input, MessageRunsWhenItsLineFeedArrives)
{
    RecordingContext context(kCommands);
    for (const char c : string_view(":A 1\r")) {
        EXPECT_FALSE(context.input({&c, 1}));
        EXPECT_THAT(context.events, IsEmpty());
    }
    EXPECT_TRUE(context.input("\n"));
    EXPECT_THAT(context.events, ElementsAre("call :A [1]", kLineEnd, "flush"));
}

TEST(Input, EachMessageIsFlushedOnceHoweverTheBytesArrive)
{
    EXPECT_THAT(events_however_cut(":A 1\n:B 2;:A\r\n*IDN?\n"),
                ElementsAre("call :A [1]", kLineEnd, "flush", "call :B [2]", "call :A []", kLineEnd, "flush",
                            "call *IDN? []", kLineEnd, "flush"));
}

TEST(Input, TenMessagesAtOnceRunInOrder)
{
    string bytes;
    std::vector<string> expected;
    for (int i = 0; i < 10; ++i) {
        bytes += ":A " + std::to_string(i) + "\r\n";
        expected.insert(expected.end(), {"call :A [" + std::to_string(i) + "]", kLineEnd, "flush"});
    }
    EXPECT_EQ(events_however_cut(bytes), expected);
}

TEST(Input, MessageWithoutOutputHasItsLineEndAndFlush)
{
    EXPECT_THAT(events_however_cut("\n"), ElementsAre(kLineEnd, "flush"));
    EXPECT_THAT(events_however_cut("\r\n;\n"), ElementsAre(kLineEnd, "flush", kLineEnd, "flush"));
}

TEST(Input, LineEndIsItsOwnWriteJustBeforeTheFlush)
{
    EXPECT_THAT(events_however_cut(":ANSW?;ANSW?\n"),
                ElementsAre("write \"42\"", "write \"42\"", kLineEnd, "flush"));
}

TEST(Input, BlockThatHoldsLineFeedsIsOneMessage)
{
    EXPECT_THAT(events_however_cut(":DATA #215\n;\n;\"':B\n#15\n\n\n;:B\n:A\n"),
                ElementsAre("call :DATA [#215\\n;\\n;\"':B\\n#15\\n\\n\\n]", "call :B []", kLineEnd, "flush",
                            "call :A []", kLineEnd, "flush"));
}

TEST(Input, HugeBlockInNetworkPiecesArrivesWhole)
{
    string block(2900000, '\n');
    for (size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<char>(i * 7 % 251);
    }
    RecordingContext context(kCommands, 0x300000);
    size_t good = 0;
    context.in_handler = [&](scpi_t* c) {
        const lex_state_t& lex = c->param_list.lex_state;
        good += string_view(lex.buffer, lex.len) == "#72900000" + block ? 1 : 0;
    };
    EXPECT_TRUE(context.input_in_pieces(":DATA #72900000" + block + "\r\n", 1460));
    EXPECT_EQ(good, 1u);
    EXPECT_EQ(context.count("flush"), 1u);
}

TEST(Input, IndefiniteBlockEndsWithItsLine)
{
    EXPECT_THAT(events_however_cut(":DATA #0;\"x\r\n:A\n"),
                ElementsAre("call :DATA [#0;\"x]", kLineEnd, "flush", "call :A []", kLineEnd, "flush"));
}

TEST(Input, OpenStringSpoilsOnlyItsOwnMessage)
{
    EXPECT_THAT(events_however_cut(":A \"open\n:B\n"),
                ElementsAre("error -151", kLineEnd, "flush", "call :B []", kLineEnd, "flush"));
}

// Result

TEST(Input, ResultIsTrueOnlyForCompleteMessagesWithoutError)
{
    RecordingContext context(kCommands);
    EXPECT_TRUE(context.input(":A\n"));
    EXPECT_TRUE(context.input("\n"));
    EXPECT_TRUE(context.input(":A\n:B\n"));
    EXPECT_FALSE(context.input(":FOO\n"));
    EXPECT_FALSE(context.input(":FOO\n:A\n"));
    EXPECT_FALSE(context.input(":A\n:FOO\n"));
    EXPECT_FALSE(context.input(":A;:FAIL;:A\n"));
    EXPECT_FALSE(context.input(":LEAV 1\n"));
    EXPECT_TRUE(context.input(":A\n"));
}

TEST(Input, ResultIsFalseWhileAMessageIsIncomplete)
{
    RecordingContext context(kCommands);
    EXPECT_FALSE(context.input(":A"));
    EXPECT_FALSE(context.input("\n:A"));
    EXPECT_TRUE(context.input("\n"));
}

TEST(Input, ErrorQueuedByTheFlushBelongsToNoMessage)
{
    RecordingContext context(kCommands);
    context.in_flush = [](scpi_t* c) { SCPI_ErrorPush(c, -310); };
    EXPECT_TRUE(context.input(":A\n"));
    EXPECT_TRUE(context.input(":B\n"));
}

// END message

TEST(Input, EndWithoutBytesEndsTheMessage)
{
    RecordingContext context(kCommands);
    context.input(":A 1");
    EXPECT_TRUE(context.end());
    EXPECT_THAT(context.take_events(), ElementsAre("call :A [1]", kLineEnd, "flush"));
    EXPECT_TRUE(context.input(":B\n"));
}

TEST(Input, EndWithNothingHeldIsAnEmptyMessage)
{
    RecordingContext context(kCommands);
    EXPECT_TRUE(context.end());
    EXPECT_THAT(context.take_events(), ElementsAre(kLineEnd, "flush"));
}

TEST(Input, EndInsideABlockReports161AndDiscardsIt)
{
    RecordingContext context(kCommands);
    context.input(":A 1;:DATA #15\n\n");
    EXPECT_FALSE(context.end());
    EXPECT_THAT(context.take_events(), ElementsAre("call :A [1]", "error -161", kLineEnd, "flush"));
    EXPECT_TRUE(context.input(":B\n"));
    EXPECT_THAT(context.take_events(), ElementsAre("call :B []", kLineEnd, "flush"));
}

TEST(Input, EndOfAnIndefiniteBlockKeepsItsLastByte)
{
    RecordingContext context(kCommands);
    context.input(":DATA #0a\r");
    EXPECT_TRUE(context.end());
    EXPECT_THAT(context.take_events(), ElementsAre("call :DATA [#0a\\r]", kLineEnd, "flush"));
}

// The buffer's limit

TEST(Input, MessageOfExactlyTheBufferRuns)
{
    EXPECT_THAT(events_however_cut(":A 12345678\n", 12),
                ElementsAre("call :A [12345678]", kLineEnd, "flush"));
    EXPECT_THAT(events_however_cut(":DATA #12\n\n\n", 12),
                ElementsAre("call :DATA [#12\\n\\n]", kLineEnd, "flush"));
}

TEST(Input, MessageOneByteLongerThanTheBufferReports363)
{
    EXPECT_THAT(events_however_cut(":A 123456789\n", 12), ElementsAre("error -363", kLineEnd, "flush"));
}

TEST(Input, OverrunIsReportedOnceAndTheNextMessageRuns)
{
    const string line = ":A " + string(100, '1') + ";:B\n";
    EXPECT_THAT(events_however_cut(line + ":B 2\n" + line, 12),
                ElementsAre("error -363", kLineEnd, "flush", "call :B [2]", kLineEnd, "flush", "error -363",
                            kLineEnd, "flush"));
}

TEST(Input, OverrunIsReportedWhenItHappens)
{
    RecordingContext context(kCommands, 12);
    EXPECT_FALSE(context.input(":A 12345678"));
    EXPECT_THAT(context.events, IsEmpty());
    EXPECT_FALSE(context.input("9"));
    EXPECT_THAT(context.events, ElementsAre("error -363"));
    EXPECT_FALSE(context.input("0\n"));
    EXPECT_THAT(context.events, ElementsAre("error -363", kLineEnd, "flush"));
    EXPECT_TRUE(context.input(":A\n"));
}

TEST(Input, BlockThatOverrunsIsDroppedToItsOwnEnd)
{
    EXPECT_THAT(events_however_cut(":DATA #220\n:B\n:B\n:B\n:B\n:B\n:B\n\n\n:A\n", 16),
                ElementsAre("error -363", kLineEnd, "flush", "call :A []", kLineEnd, "flush"));
}

TEST(Input, EndMessageEndsAnOverrunToo)
{
    RecordingContext context(kCommands, 12);
    context.input(string(50, 'A'));
    EXPECT_FALSE(context.end());
    EXPECT_THAT(context.take_events(), ElementsAre("error -363", kLineEnd, "flush"));
    EXPECT_TRUE(context.input(":A\n"));
}

TEST(Input, ShortMessagesOnASmallBufferNeverOverrun)
{
    string bytes;
    for (int i = 0; i < 1000; ++i) {
        bytes += ":A " + std::to_string(i) + "\n";
    }
    const std::vector<string> events = events_of(bytes, bytes.size(), 8);
    EXPECT_EQ(events.size(), 3000u);
    EXPECT_EQ(std::count(events.begin(), events.end(), "error -363"), 0);
}

TEST(Input, BufferWithoutRoomOverrunsAndNeverWrites)
{
    for (size_t size = 0; size <= 2; ++size) {
        EXPECT_THAT(events_however_cut(":A\n", size), ElementsAre("error -363", kLineEnd, "flush")) << size;
    }
    EXPECT_THAT(events_however_cut("\n", 1), ElementsAre(kLineEnd, "flush"));
}

TEST(Input, BufferKeepsRoomForANulBetweenCalls)
{
    RecordingContext context(kCommands, 12);
    for (int i = 0; i < 30; ++i) {
        context.input("A");
        ASSERT_LT(context.context.buffer.position, 12u);
    }
}

// The buffer as handlers and the application see it

TEST(Input, BufferedMessageIsNulTerminatedWhileItRuns)
{
    RecordingContext context(kCommands);
    std::vector<string> held;
    context.in_handler = [&](scpi_t* c) { held.push_back(R::escaped({c->buffer.data, c->buffer.position})); };
    context.input(":A 1\r\n:B 2\n:A");
    EXPECT_THAT(held, ElementsAre(":A 1\\r\\n", ":B 2\\n"));
    EXPECT_EQ(context.context.buffer.position, 2u);
}

TEST(Input, BufferIsEmptyAtTheFlush)
{
    RecordingContext context(kCommands);
    int flushes = 0;
    context.in_flush = [&](scpi_t* c) {
        ++flushes;
        EXPECT_EQ(c->buffer.position, 0u);
        EXPECT_EQ(c->param_list.cmd, nullptr);
        EXPECT_FALSE(c->cmd_error);
    };
    context.input(":A\n:FOO\n:DATA #12\n\n\n" + string(5000, ' ') + "\n");
    EXPECT_EQ(flushes, 4);
}

TEST(Input, NothingOfTheContextIsTouchedAfterTheLastFlush)
{
    // The context is on separate pages, which the flush unmaps.
    const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    const size_t size = (sizeof(RecordingContext) + page - 1) / page * page;
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const context = new (memory) RecordingContext(kCommands, 64);
    scpi_t* const scpi = &context->context;
    int flushes = 0;
    const auto count_and_lock = [&](scpi_t*) {
        if (++flushes % 2 == 0) {
            ::mprotect(memory, size, PROT_NONE);
        }
    };
    context->in_flush = std::ref(count_and_lock);

    EXPECT_TRUE(SCPI_Input(scpi, ":A\n:B 1;:A\n", 11));
    ::mprotect(memory, size, PROT_READ | PROT_WRITE);
    EXPECT_FALSE(SCPI_Input(scpi, ":A\n:FOO\n", 8));
    ::mprotect(memory, size, PROT_READ | PROT_WRITE);
    const string overrun = ":A\n" + string(100, 'A') + "\n";
    EXPECT_FALSE(SCPI_Input(scpi, overrun.data(), overrun.size()));
    ::mprotect(memory, size, PROT_READ | PROT_WRITE);
    EXPECT_TRUE(SCPI_Input(scpi, ":A\n", 3));
    EXPECT_TRUE(SCPI_Input(scpi, nullptr, 0));
    ::mprotect(memory, size, PROT_READ | PROT_WRITE);

    EXPECT_EQ(flushes, 8);
    context->~RecordingContext();
    ::munmap(memory, size);
}

// The application drops a partial message

/** What a reset callback does. */
void drop_partial_message(scpi_t& context)
{
    context.buffer.data[context.buffer.position] = '\0';
    context.buffer.position = 0;
}

TEST(Input, DroppedPartialMessageLeavesNothing)
{
    RecordingContext context(kCommands);
    context.input(":A 1;:B");
    drop_partial_message(context.context);
    EXPECT_TRUE(context.input(":A 2\n"));
    EXPECT_THAT(context.take_events(), ElementsAre("call :A [2]", kLineEnd, "flush"));
}

TEST(Input, DroppedPartialBlockOrStringLeavesNothing)
{
    for (const char* partial :
         {":DATA #3100abc", ":DATA #", ":DATA #3", ":DATA #0", ":A \"x", ":A (((", ":A 1,"}) {
        RecordingContext context(kCommands);
        context.input(partial);
        drop_partial_message(context.context);
        EXPECT_TRUE(context.input(":A #3\n")) << partial;
        EXPECT_THAT(context.take_events(), ElementsAre("call :A [#3]", kLineEnd, "flush")) << partial;
    }
}

TEST(Input, DroppedOverrunLeavesNothing)
{
    RecordingContext context(kCommands, 16);
    context.input(":DATA #3100" + string(50, '\n'));
    EXPECT_THAT(context.take_events(), ElementsAre("error -363"));
    drop_partial_message(context.context);
    EXPECT_TRUE(context.input(":A 2\n"));
    EXPECT_THAT(context.take_events(), ElementsAre("call :A [2]", kLineEnd, "flush"));
}

TEST(Input, DropWithNothingHeldChangesNothing)
{
    RecordingContext context(kCommands);
    drop_partial_message(context.context);
    EXPECT_TRUE(context.input(":A\n"));
    drop_partial_message(context.context);
    EXPECT_TRUE(context.input(":A\n"));
}

TEST(Input, DropWhileAHandlerRunsLetsTheMessageEnd)
{
    RecordingContext context(kCommands);
    context.in_handler = [](scpi_t* c) { drop_partial_message(*c); };
    EXPECT_TRUE(context.input(":A 1;:B 2\n:A 3\n"));
    EXPECT_THAT(context.take_events(), ElementsAre("call :A [1]", "call :B [2]", kLineEnd, "flush",
                                                   "call :A [3]", kLineEnd, "flush"));
}

// Random streams

TEST(Input, RandomStreamsHaveTheSameResultHoweverSplit)
{
    static const std::vector<string> kParts = {":A",     "A",           ":B",     ":S:A",
                                               "B",      "*IDN?",       ":DATA",  ":FOO",
                                               ":LEAV",  ":FAIL",       ":ANSW?", " ",
                                               " ",      "  ",          "\t",     "\r",
                                               "\n",     "\n",          "\r\n",   ";",
                                               ";",      ";",           ",",      "1",
                                               "#12",    "#0x",         "#15\n",  "#3",
                                               "\"",     "'",           "(",      ")",
                                               "\"a;\"", "'\n'",        "!",      string(1, '\0'),
                                               "#210",   "#9999999999", "#H1F",   "ABCDEFGHIJKLMN"};
    std::mt19937 random(20240611);
    for (int round = 0; round < 5000; ++round) {
        string bytes;
        for (size_t parts = 1 + random() % 40; parts != 0; --parts) {
            bytes += kParts[random() % kParts.size()];
        }
        const size_t buffer = random() % 4 == 0 ? 8 + random() % 24 : 4096;
        const std::vector<string> whole = events_of(bytes, bytes.size(), buffer);
        ASSERT_EQ(events_of(bytes, 1, buffer), whole) << R::escaped(bytes);
        ASSERT_EQ(events_of(bytes, 2 + random() % 12, buffer), whole) << R::escaped(bytes);
        ASSERT_EQ(std::count(whole.begin(), whole.end(), "flush"),
                  std::count(whole.begin(), whole.end(), kLineEnd));
    }
}

} // namespace
