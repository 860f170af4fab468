#include "standard_session.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

#include "scpi/scpi.h"
#include "service/shown_text.h"

namespace orvan_service {
namespace {

/** Adds a result to the response. */
void append(std::string& response, std::string_view result)
{
    if (!response.empty()) {
        response += ';';
    }
    response += result;
}

/** As in a response. */
std::string text_of(const StandardError& error)
{
    return std::to_string(error.number) + ",\"" + error.text + '"';
}

/** The message that this thread executes. It is copied, as its parts are modified. */
class Executing {
public:
    explicit Executing(std::span<const char> message)
        : m_length(message.size()), m_shown(std::min(message.size(), kShownBytes))
    {
        std::copy_n(message.begin(), m_shown, m_begin.begin());
        t_executing = this;
    }
    ~Executing() { t_executing = nullptr; }
    Executing(const Executing&) = delete;
    Executing& operator=(const Executing&) = delete;

    /** Empty on a thread that executes none. */
    static std::string shown()
    {
        return t_executing == nullptr ? std::string()
                                      : shown_message({t_executing->m_begin.data(), t_executing->m_shown},
                                                      t_executing->m_length);
    }

private:
    static thread_local const Executing* t_executing;
    std::array<char, kShownBytes> m_begin; // NOLINT(cppcoreguidelines-pro-type-member-init)
    const size_t m_length;
    const size_t m_shown; // bytes of it that are kept
};

thread_local const Executing* Executing::t_executing = nullptr;

std::function<void(const StandardError&)> observer(StandardSession::OnError on_error)
{
    if (!on_error) {
        return {};
    }
    return
        [on_error = std::move(on_error)](const StandardError& error) { on_error(error, Executing::shown()); };
}

bool takes_number(SessionCommand command)
{
    return command == SessionCommand::kEventEnable || command == SessionCommand::kServiceEnable;
}

int integer_of(const std::string& text)
{
    int number = 0;
    std::from_chars(text.data() + (text.starts_with('+') ? 1 : 0), text.data() + text.size(), number);
    return number;
}

} // namespace

StandardSession::StandardSession(StandardInstrument& instrument, std::function<void(uint8_t)> request,
                                 OnError on_error)
    : m_instrument(instrument), m_status(std::move(request), observer(std::move(on_error)))
{
}

std::string StandardSession::execute(std::span<char> message, const std::function<bool()>& continues)
{
    const Executing executing(message);
    std::string response;
    for (MessagePart& part : cut_message(message)) {
        if (!continues()) {
            return {};
        }
        switch (part.kind) {
        case MessagePart::Kind::kInstrument:
            if (part.path.empty()) {
                run(part.text, response);
            } else {
                std::string with_path = part.path.append(part.text.data(), part.text.size());
                run(with_path, response);
            }
            break;
        case MessagePart::Kind::kSession:
            execute(part.command, {part.text.data(), part.text.size()}, response);
            break;
        case MessagePart::Kind::kError:
            m_status.add(part.error);
            break;
        }
    }
    if (!response.empty()) {
        response += '\n';
    }
    return response;
}

void StandardSession::run(std::span<char> message, std::string& response)
{
    StandardReply reply = take_reply_apart(m_instrument.execute(m_channel, message));
    for (StandardError& error : reply.errors) {
        m_status.add(std::move(error));
    }
    if (!reply.results.empty()) {
        append(response, reply.results);
    }
}

std::string StandardSession::ask_module(std::string query)
{
    std::string result;
    run(query, result);
    return result;
}

/** Empty from a module that cannot be asked. That is no error of its own, or a client that reads errors until
 *  there are none would never end. */
std::string StandardSession::errors_of_module(std::string query)
{
    return take_reply_apart(m_instrument.execute(m_channel, query)).results;
}

void StandardSession::execute(SessionCommand command, std::string parameters, std::string& response)
{
    if (!takes_number(command) && !parameters.empty()) {
        m_status.add(SCPI_ERROR_PARAMETER_NOT_ALLOWED);
        return;
    }
    switch (command) {
    case SessionCommand::kClear:
        m_status.clear();
        ask_module("*CLS\n");
        break;
    case SessionCommand::kEventEnable:
        set_register(std::move(parameters), &StatusModel::set_event_enable);
        break;
    case SessionCommand::kEventEnableQ:
        append(response, std::to_string(m_status.event_enable()));
        break;
    case SessionCommand::kEventStatusQ:
        m_status.set_events(static_cast<uint8_t>(integer_of(ask_module("*ESR?\n"))));
        append(response, std::to_string(m_status.take_events()));
        break;
    // The module may still be busy when it has replied: its own query waits for that.
    case SessionCommand::kComplete:
        ask_module("*OPC?\n");
        m_status.set_events(kEventOperationComplete);
        break;
    case SessionCommand::kCompleteQ:
        ask_module("*OPC?\n");
        append(response, "1");
        break;
    case SessionCommand::kWait:
        ask_module("*OPC?\n");
        break;
    case SessionCommand::kServiceEnable:
        set_register(std::move(parameters), &StatusModel::set_service_enable);
        break;
    case SessionCommand::kServiceEnableQ:
        append(response, std::to_string(m_status.service_enable()));
        break;
    case SessionCommand::kStatusByteQ:
        m_status.set_module_status(static_cast<uint8_t>(integer_of(ask_module("*STB?\n"))));
        // The response to this query is not yet available (IEEE 488.2 11.2.2.3).
        append(response, std::to_string(m_status.status_byte()));
        break;
    case SessionCommand::kErrorQ: {
        const std::string error = m_status.errors() == 0 ? errors_of_module(":SYST:ERR?\n") : std::string();
        if (error.empty()) {
            append(response, text_of(m_status.take_error()));
        } else {
            append(response, error);
        }
        break;
    }
    case SessionCommand::kErrorCountQ: {
        const int of_module = integer_of(errors_of_module(":SYST:ERR:COUN?\n"));
        append(response, std::to_string(static_cast<int>(m_status.errors()) + of_module));
        break;
    }
    case SessionCommand::kSessionErrorsQ: {
        std::string errors = text_of(m_status.take_error());
        while (m_status.errors() != 0) {
            errors += ',' + text_of(m_status.take_error());
        }
        append(response, errors);
        break;
    }
    }
}

/** As the instrument's own registers: a number, rounded, of 0 to 255 (IEEE 488.2 10.10.3, 10.34.3). */
void StandardSession::set_register(std::string parameters, void (StatusModel::*set)(uint8_t))
{
    const auto add = [](scpi_t* context, int_fast16_t error) {
        static_cast<StatusModel*>(context->user_context)->add(static_cast<int>(error));
        return 0;
    };
    const scpi_interface_t interface = {add, nullptr, nullptr, nullptr, nullptr};
    scpi_t context{};
    context.interface = &interface;
    context.user_context = &m_status;
    context.param_list.lex_state = {parameters.data(), parameters.data(), parameters.size()};
    int32_t value = 0;
    if (!SCPI_ParamInt32(&context, &value, true)) {
        return;
    }
    const lex_state_t& read = context.param_list.lex_state;
    if (read.pos != read.buffer + read.len) {
        m_status.add(SCPI_ERROR_PARAMETER_NOT_ALLOWED);
    } else if (value < 0 || value > UINT8_MAX) {
        m_status.add(SCPI_ERROR_DATA_OUT_OF_RANGE);
    } else {
        (m_status.*set)(static_cast<uint8_t>(value));
    }
}

} // namespace orvan_service
