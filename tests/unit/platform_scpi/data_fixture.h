/**
 * A context without a parser: it holds the parameters as text and keeps the output.
 */
#ifndef TESTS_UNIT_PLATFORM_SCPI_DATA_FIXTURE_H
#define TESTS_UNIT_PLATFORM_SCPI_DATA_FIXTURE_H

#include <algorithm>
#include <memory>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scpi/scpi.h"

class ScpiData : public ::testing::Test {
protected:
    static constexpr int16_t kQueueSize = 4;

    ScpiData()
    {
        context.interface = &kInterface;
        context.units = scpi_units_def;
        context.error_queue = queue;
        context.error_queue_size = kQueueSize;
        context.user_context = this;
    }

    ~ScpiData() override { SCPI_ErrorClear(&context); }

    /** Starts a command with these parameters. The copy ends at its last byte, so that a reader that runs
     *  past it is caught by the address sanitizer. */
    void parameters(std::string_view text)
    {
        m_text = std::make_unique<char[]>(text.size());
        std::copy(text.begin(), text.end(), m_text.get());
        context.param_list.lex_state = {m_text.get(), m_text.get(), text.size()};
        context.input_count = 0;
        context.output_count = 0;
        context.cmd_error = false;
        errors.clear();
        writes.clear();
    }

    std::string_view unread() const
    {
        const lex_state_t& state = context.param_list.lex_state;
        return {state.pos, static_cast<size_t>(state.buffer + state.len - state.pos)};
    }

    std::string output() const { return std::accumulate(writes.begin(), writes.end(), std::string()); }

    /** The error that the last command ended with; 0 without one, and -1 for several. */
    int_fast16_t error() const
    {
        if (errors.empty()) {
            return 0;
        }
        return errors.size() == 1 ? errors.front() : -1;
    }

    scpi_t context{};
    scpi_error_t queue[kQueueSize]{};
    std::vector<std::string> writes;
    std::vector<size_t> remaining_at_write;
    size_t writes_taken = SIZE_MAX;
    std::vector<int_fast16_t> errors;
    std::vector<int32_t> counts_at_error;
    std::vector<std::pair<scpi_ctrl_name_t, scpi_reg_val_t>> controls;
    int resets = 0;
    scpi_result_t reset_result = SCPI_RES_OK;

private:
    static ScpiData& self(scpi_t* c) { return *static_cast<ScpiData*>(c->user_context); }

    static size_t on_write(scpi_t* c, const char* data, size_t len)
    {
        ScpiData& test = self(c);
        if (test.writes.size() >= test.writes_taken) {
            return 0;
        }
        test.writes.emplace_back(data, len);
        test.remaining_at_write.push_back(c->arbitrary_remaining);
        return len;
    }

    static int on_error(scpi_t* c, int_fast16_t err)
    {
        self(c).errors.push_back(err);
        self(c).counts_at_error.push_back(SCPI_ErrorCount(c));
        return 0;
    }

    static scpi_result_t on_control(scpi_t* c, scpi_ctrl_name_t ctrl, scpi_reg_val_t val)
    {
        self(c).controls.emplace_back(ctrl, val);
        return SCPI_RES_OK;
    }

    static scpi_result_t on_reset(scpi_t* c)
    {
        ++self(c).resets;
        return self(c).reset_result;
    }

    static constexpr scpi_interface_t kInterface = {on_error, on_write, on_control, nullptr, on_reset};

    std::unique_ptr<char[]> m_text;
};

#endif
