#ifndef ORVAN_SERVICE_VXI11_VXI11_LINK_H
#define ORVAN_SERVICE_VXI11_VXI11_LINK_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "service/counters/counters.h"
#include "service/session.h"
#include "service/standard/message_assembly.h"
#include "service/standard/standard_session.h"
#include <unique_fd.h>

namespace orvan_service {

/** What links share with the server, and may still use when it has gone. Any thread. */
class Vxi11Shared {
public:
    /** Throws std::system_error without an event descriptor. */
    Vxi11Shared();

    /** Wakes the server's thread. */
    void wake() const;
    int wake_descriptor() const { return m_wake.get(); }

    std::atomic<size_t> links{0};  /**< that exist, closed ones with messages to execute included */
    std::atomic<size_t> memory{0}; /**< bytes of all links' messages */

private:
    const orvan_common::UniqueFd m_wake;
};

/**
 * The instrument's end of a VXI-11 link, between the RPC thread and the executor's: input is cut into program
 * messages, and the message exchange is that of IEEE 488.2 6.3.
 */
class Vxi11Link {
public:
    /** @param instrument, counters outlive the link */
    Vxi11Link(StandardInstrument& instrument, std::shared_ptr<Vxi11Shared> shared, Counters& counters,
              Client client);
    ~Vxi11Link();
    Vxi11Link(const Vxi11Link&) = delete;
    Vxi11Link& operator=(const Vxi11Link&) = delete;

    // The RPC thread.

    /** Whether write() may be called: not too many messages wait for execution.
     *  @param bytes to be written @param memory that all links may use */
    bool has_room(size_t bytes, size_t memory) const;
    /**
     * Takes a part of a message, or several messages. A message ends with LF (not one within a block), and at
     * the end of `data` if `end`. A response not yet read is dropped, which queues -410, and so is a message
     * that is too long, which queues -363.
     */
    void write(std::string_view data, bool end);
    /** As "*TRG"; -105 in the midst of a message. */
    void trigger();

    /** A part of a response, with the reasons why it ends (VXI-11 B.6.4), 0 if only `most` ends it. */
    struct Part {
        enum Reason : int { kCount = 1, kCharacter = 2, kEnd = 4 };
        std::string data;
        int reasons;
    };
    /**
     * The next part of the response; empty if there is none yet.
     *
     * @param requested bytes that the client wants
     * @param end_char a byte that ends the part
     */
    std::optional<Part> read(size_t requested, std::optional<char> end_char);
    /** Whether there is a response, or a message that may still have one. */
    bool is_asked() const;

    /** Drops the input, the response, and what a running message has not yet done. */
    void clear();
    /** No more input and no response; whole messages taken before are still executed. */
    void close();

    /** Whether service was requested since the last call. */
    bool take_service_request() { return m_service_request.exchange(false); }
    StatusModel& status() { return m_session.status(); }
    const Client& client() const { return m_client; }
    /** Only shown: the instrument's panel is never locked. */
    void set_remote(bool remote);

    // The executor's thread.

    int descriptor() const { return m_event.get(); }
    Session::Wait next(bool signalled);
    void execute();

private:
    void take(MessageAssembly::Found found);
    void account();
    void drop_response();
    void signal() const;

    const std::shared_ptr<Vxi11Shared> m_shared;
    const orvan_common::UniqueFd m_event; // messages to execute, or closed
    const Client m_client;
    std::atomic<bool> m_service_request = false;
    StandardSession m_session;

    mutable std::mutex m_mutex; // guards what follows; not held while a message is executed
    MessageAssembly m_input;
    std::deque<std::string> m_messages;
    size_t m_waiting = 0; // bytes of m_messages, and what they take besides
    size_t m_memory = 0;  // of the shared one
    std::string m_response;
    size_t m_read = 0; // bytes of it
    bool m_running = false;
    bool m_closed = false;
    unsigned m_cleared = 0; // number of clears
};

/** A link among the executor's sessions. */
class Vxi11Session : public Session {
public:
    explicit Vxi11Session(std::shared_ptr<Vxi11Link> link) : Session(link->client()), m_link(std::move(link))
    {
    }

    int descriptor() const override { return m_link->descriptor(); }
    Wait advance(ServiceTime, bool readable) override { return m_link->next(readable); }
    void execute() override { m_link->execute(); }
    HangUp hung_up() override { return HangUp::kReset; }

private:
    const std::shared_ptr<Vxi11Link> m_link;
};

} // namespace orvan_service

#endif
