/**
 * A parser context whose handlers and callbacks record their calls, one line of text per event:
 *
 *     call :SOUR:POW [2]      a handler, with its header and its parameter text
 *     error -113              the error callback
 *     write "..."             the write callback, CR, LF and other control characters escaped
 *     flush
 */
#ifndef TESTS_UNIT_PLATFORM_SCPI_RECORDING_CONTEXT_H
#define TESTS_UNIT_PLATFORM_SCPI_RECORDING_CONTEXT_H

#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "scpi/scpi.h"

class RecordingContext {
public:
    explicit RecordingContext(const scpi_command_t* commands, size_t buffer_size = 4096)
        : m_buffer(buffer_size, '\x55')
    {
        SCPI_Init(&context, commands, &kInterface, nullptr, "maker", "model", "serial", "version",
                  m_buffer.data(), m_buffer.size(), m_errors.data(), static_cast<int16_t>(m_errors.size()));
        context.user_context = this;
    }
    ~RecordingContext() { SCPI_Deinit(&context); }
    RecordingContext(const RecordingContext&) = delete;
    RecordingContext& operator=(const RecordingContext&) = delete;

    bool input(std::string_view bytes) { return SCPI_Input(&context, bytes.data(), bytes.size()); }
    bool end() { return SCPI_Input(&context, nullptr, 0); }

    bool input_in_pieces(std::string_view bytes, size_t piece)
    {
        bool result = false;
        for (size_t at = 0; at < bytes.size(); at += piece) {
            result = input(bytes.substr(at, piece));
        }
        return result;
    }

    std::vector<std::string> take_events() { return std::exchange(events, {}); }

    void note(std::string event) { events.push_back(std::move(event)); }

    size_t count(std::string_view event) const
    {
        size_t n = 0;
        for (const std::string& e : events) {
            n += e == event ? 1 : 0;
        }
        return n;
    }

    static RecordingContext& of(scpi_t* c) { return *static_cast<RecordingContext*>(c->user_context); }

    static std::string header(const scpi_t* c)
    {
        return {c->param_list.cmd_raw.data, c->param_list.cmd_raw.length};
    }
    static std::string parameters(const scpi_t* c)
    {
        return {c->param_list.lex_state.buffer, c->param_list.lex_state.len};
    }

    static std::string escaped(std::string_view text)
    {
        std::string out;
        for (const char c : text) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte >= 0x20 && byte < 0x7f) {
                out += c;
                continue;
            }
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            out += c == '\r' ? "\\r" : c == '\n' ? "\\n" : code;
        }
        return out;
    }

    /** Records itself and counts its parameters as read. */
    static scpi_result_t handle(scpi_t* c)
    {
        lex_state_t& lex = c->param_list.lex_state;
        of(c).note("call " + header(c) + " [" + escaped(parameters(c)) + "]");
        lex.pos = lex.buffer + lex.len;
        if (of(c).in_handler) {
            of(c).in_handler(c);
        }
        return SCPI_RES_OK;
    }
    /** Records itself and leaves its parameters unread. */
    static scpi_result_t leave_parameters(scpi_t* c)
    {
        of(c).note("call " + header(c));
        return SCPI_RES_OK;
    }
    /** Fails and queues no error. */
    static scpi_result_t fail_silently(scpi_t* c)
    {
        of(c).note("call " + header(c));
        return SCPI_RES_ERR;
    }
    /** Queues its own error, and fails with parameters left. */
    static scpi_result_t fail_with_error(scpi_t* c)
    {
        SCPI_ErrorPush(c, -222);
        return SCPI_RES_ERR;
    }
    /** Queues its own error, and returns success, with parameters left. */
    static scpi_result_t succeed_with_error(scpi_t* c)
    {
        SCPI_ErrorPush(c, -222);
        return SCPI_RES_OK;
    }
    /** Writes one result. */
    static scpi_result_t answer(scpi_t* c)
    {
        c->interface->write(c, "42", 2);
        return SCPI_RES_OK;
    }

    scpi_t context;
    std::vector<std::string> events;
    std::function<void(scpi_t*)> in_handler;
    std::function<void(scpi_t*)> in_flush;

private:
    static int on_error(scpi_t* c, int_fast16_t err)
    {
        of(c).note("error " + std::to_string(err));
        return 0;
    }
    static size_t on_write(scpi_t* c, const char* data, size_t len)
    {
        of(c).note("write \"" + escaped({data, len}) + "\"");
        return len;
    }
    static scpi_result_t on_flush(scpi_t* c)
    {
        RecordingContext& self = of(c);
        self.note("flush");
        if (self.in_flush) {
            self.in_flush(c);
        }
        return SCPI_RES_OK;
    }

    static constexpr scpi_interface_t kInterface = {on_error, on_write, nullptr, on_flush, nullptr};

    std::vector<char> m_buffer;
    std::array<scpi_error_t, 8> m_errors{};
};

/** What ends each message. */
inline const std::string kLineEnd = "write \"\\r\\n\"";

#endif
