#ifndef ORVAN_WEB_SCPI_LINK_H
#define ORVAN_WEB_SCPI_LINK_H

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "loop.h"
#include "response.h"
#include <unique_fd.h>

namespace orvan_web {

/** What became of a message to the instrument. */
struct Answer {
    enum class Outcome {
        kAnswered,
        kUnreachable, /**< the service is not there, or ended before it answered */
        kTimeout,     /**< it was silent for too long, and the connection was closed */
        kBusy         /**< too many messages were waiting; this one was not sent */
    };
    Outcome outcome = Outcome::kUnreachable;
    std::string response;          /**< data only, without the end of the line */
    std::vector<ScpiError> errors; /**< what the message caused, oldest first */
    std::chrono::microseconds duration{};

    bool answered() const { return outcome == Outcome::kAnswered; }
    /** A module could not be reached, or did not answer. */
    bool module_failed() const;
};

/**
 * A standard session with the service, on its Unix socket. Messages are answered in order, kInFlight of them
 * are sent ahead.
 *
 * The link connects by itself and again after it was lost: first at once, then after pauses that grow from
 * 0.1 s to kLongestPause. Loop's thread.
 */
class ScpiLink {
public:
    using Done = std::function<void(Answer)>;

    static constexpr size_t kInFlight = 4;
    static constexpr size_t kMostWaiting = 256;
    static constexpr std::chrono::seconds kPatience{20};
    static constexpr std::chrono::milliseconds kLongestPause{500};

    /** @param changed called when the service is reached, and when it is lost; after the messages that were
     *  waiting then have been answered */
    ScpiLink(InstrumentLoop& loop, std::string path, std::function<void(bool reachable)> changed);
    ~ScpiLink();
    ScpiLink(const ScpiLink&) = delete;
    ScpiLink& operator=(const ScpiLink&) = delete;

    /** Connects. */
    void start();

    bool reachable() const { return static_cast<bool>(m_socket); }

    /**
     * Sends one message, and the query for its errors after it.
     *
     * @param message  without the LF at its end; see is_one_message()
     * @param done     called once, never from within this call
     * @param patience for the answer, from when all messages before it are answered
     */
    void ask(std::string message, Done done, std::chrono::seconds patience = kPatience);

private:
    struct Pending {
        std::string message;
        Done done;
        std::chrono::seconds patience;
        InstrumentLoop::Clock::time_point sent{};
        std::vector<std::string> lines{}; // of its answer, received so far
    };

    void connect();
    void lose(Answer::Outcome of_first);
    void send_more();
    void write();
    void receive();
    void take(std::string line);
    void watch();
    void rearm();

    InstrumentLoop& m_loop;
    const std::string m_path;
    const std::function<void(bool)> m_changed;
    orvan_common::UniqueFd m_socket;
    std::deque<Pending> m_pending; // the first m_sent have been sent
    size_t m_sent = 0;
    std::string m_output;
    std::string m_input;
    size_t m_scanned = 0; // bytes of m_input that the framer has seen
    ResponseFramer m_framer;
    std::chrono::milliseconds m_pause{0};
    InstrumentLoop::TimerId m_retry = 0;
    InstrumentLoop::TimerId m_deadline = 0;
};

/** Whether the text is one program message if a LF follows it, so that it is answered by one line. */
bool is_one_message(std::string_view text);

/** A message that goes to a channel, whatever was selected before. */
std::string for_channel(int channel, std::string_view text);

} // namespace orvan_web

#endif
