/**
 * A table with a handler of every kind, and a context on it whose lines are run one at a time.
 */
#ifndef TESTS_UNIT_PLATFORM_SCPI_PARSER_FIXTURE_H
#define TESTS_UNIT_PLATFORM_SCPI_PARSER_FIXTURE_H

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recording_context.h"

inline constexpr scpi_command_t kParserCommands[] = {
    {":SOURce:FREQuency", RecordingContext::handle, 11},
    {":SOURce:FREQuency?", RecordingContext::handle, 12},
    {":SOURce:POWer", RecordingContext::handle, 13},
    {":SOURce:POWer:LEVel:IMMediate", RecordingContext::handle, 14},
    {":SOURce:POWer:LEVel:LIMit", RecordingContext::handle, 15},
    {"[:SOURce]:PHASe", RecordingContext::handle, 16},
    {":OUTPut[:STATe]", RecordingContext::handle, 17},
    {":OUTPut[:STATe]?", RecordingContext::handle, 18},
    {"*CLS", RecordingContext::handle, 19},
    {"*IDN?", RecordingContext::handle, 20},
    {":DATA", RecordingContext::handle, 21},
    {":LEAVe", RecordingContext::leave_parameters, 22},
    {":FAIL", RecordingContext::fail_silently, 23},
    {":FAIL:ERRor", RecordingContext::fail_with_error, 24},
    {":FAIL:OK", RecordingContext::succeed_with_error, 25},
    {":NOBody", nullptr, 26},
    {":ANSWer?", RecordingContext::answer, 27},
    {":A", RecordingContext::handle, 28},
    {":B", RecordingContext::handle, 29},
    {":LONGMNEMONIC13", RecordingContext::handle, 30},
    {nullptr, nullptr, 0},
};

class ParserFixture : public testing::Test {
protected:
    /** Events of one line, whose line end and flush are taken off after a check. */
    std::vector<std::string> run(std::string_view line)
    {
        m_context.events.clear();
        m_result = m_context.input(std::string(line) + "\n");
        std::vector<std::string> events = m_context.take_events();
        EXPECT_GE(events.size(), 2u);
        EXPECT_EQ(events.back(), "flush");
        events.pop_back();
        EXPECT_EQ(events.back(), kLineEnd);
        events.pop_back();
        EXPECT_EQ(m_result, std::none_of(events.begin(), events.end(),
                                         [](const std::string& event) { return event.starts_with("error"); }))
            << line;
        return events;
    }

    /** The one error of a line that runs nothing. */
    void expect_error(std::string_view line, int error)
    {
        EXPECT_THAT(run(line), testing::ElementsAre("error " + std::to_string(error))) << line;
    }

    scpi_t& context() { return m_context.context; }

    RecordingContext m_context{kParserCommands};
    bool m_result = false;
};

#endif
