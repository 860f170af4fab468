/**
 * An instrument for standard sessions.
 */
#ifndef ORVAN_TESTS_SCRIPTED_INSTRUMENT_H
#define ORVAN_TESTS_SCRIPTED_INSTRUMENT_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "service/standard/standard_session.h"

namespace orvan_test {

/** Answers a message that ends in "?" with its own text, others with nothing, and records all. */
class ScriptedInstrument : public orvan_service::StandardInstrument {
public:
    using Handler = std::function<std::string(int& channel, const std::string& message)>;

    explicit ScriptedInstrument(Handler handler = {}) : m_handler(std::move(handler)) {}

    std::string execute(int& channel, std::span<char> message) override;

    /** From now on messages wait inside execute until open() is called. */
    void shut();
    void open();
    /** Messages inside execute. */
    size_t at_work() const;
    /** Channel and text of each message, without its LF. */
    std::vector<std::pair<int, std::string>> messages() const;
    /** Only the texts. */
    std::vector<std::string> texts() const;

    /** From now on answers so; empty: as described above. */
    void answer_with(Handler handler);

private:
    mutable std::mutex m_mutex;
    Handler m_handler;
    std::condition_variable m_opened;
    bool m_shut = false;
    size_t m_at_work = 0;
    std::vector<std::pair<int, std::string>> m_messages;
};

/** Executes a message, its LF optional, in a session that nobody clears. */
inline std::string execute_in(
    orvan_service::StandardSession& session, std::string_view message,
    const std::function<bool()>& continues = [] { return true; })
{
    std::string line(message);
    line += line.ends_with('\n') ? "" : "\n";
    return session.execute(line, continues);
}

} // namespace orvan_test

#endif
