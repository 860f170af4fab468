#ifndef ORVAN_SERVICE_STANDARD_SESSION_H
#define ORVAN_SERVICE_STANDARD_SESSION_H

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "standard_message.h"
#include "status_model.h"

namespace orvan_service {

/** The instrument as standard sessions see it. Executor's thread. */
class StandardInstrument {
public:
    virtual ~StandardInstrument() = default;

    /**
     * Executes one message with a channel selection of its own.
     *
     * @param channel selected for it; afterwards the one that it has selected
     * @param message ends with LF; may be modified
     * @return the instrument's reply, as a raw client would receive it
     */
    virtual std::string execute(int& channel, std::span<char> message) = 0;
};

/**
 * What IEEE 488.2 clients expect of a session, whatever the protocol: a response has data only, errors go to
 * the session's queue, and the session has its own status registers and selected channel.
 */
class StandardSession {
public:
    /** Called with each error, on the thread that causes it. @param message being executed,
     *  as shown_message() has it; empty for an error that none caused */
    using OnError = std::function<void(const StandardError& error, std::string_view message)>;

    /** @param request see StatusModel */
    StandardSession(StandardInstrument& instrument, std::function<void(uint8_t status)> request,
                    OnError on_error = {});

    /**
     * Executes a program message. Executor's thread; blocks as long as its commands do.
     *
     * @param message  one message, ended by LF; modified
     * @param continues asked before each part; once it returns false, the rest is dropped
     * @return the response, ended by LF; empty if there is none
     */
    std::string execute(std::span<char> message, const std::function<bool()>& continues);

    /** Any thread. */
    StatusModel& status() { return m_status; }

private:
    void execute(SessionCommand command, std::string parameters, std::string& response);
    void run(std::span<char> message, std::string& response);
    std::string ask_module(std::string query);
    std::string errors_of_module(std::string query);
    void set_register(std::string parameters, void (StatusModel::*set)(uint8_t));

    StandardInstrument& m_instrument;
    StatusModel m_status;
    int m_channel = 1;
};

} // namespace orvan_service

#endif
