#ifndef ORVAN_SERVICE_HISLIP_CONNECTION_H
#define ORVAN_SERVICE_HISLIP_CONNECTION_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string_view>

#include "frame_queue.h"
#include "frame_reader.h"
#include "service/counters/counters.h"
#include "service/session.h"
#include "service/standard/locks.h"
#include "service/standard/message_assembly.h"
#include "service/standard/standard_session.h"
#include <unique_fd.h>

namespace orvan_service::hislip {

/** The largest payload of a message that a client may send, in bytes. */
inline constexpr uint64_t kLargestPayload = 0x300000;

/** What all connections share; outlives them. */
struct Environment {
    StandardInstrument& instrument;
    Locks& locks;
    Counters& counters;
    std::function<void()> retry; /**< lets the executor look at all connections that wait; any thread */
};

/**
 * A client's session: both channels and what they share (IVI-6.1).
 *
 * The executor serves the synchronous channel, by a SyncStream, and the attendant the asynchronous one;
 * during a device clear the attendant serves both, so that it completes while a command runs. The lock is
 * held for short steps and never during a command.
 */
class Connection {
public:
    /** @param id the session's number */
    Connection(const Environment& environment, uint16_t id, orvan_common::UniqueFd sync,
               orvan_common::UniqueFd async);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    uint16_t id() const { return m_id; }
    const Client& client() const { return m_client; }
    int sync() const { return m_sync.get(); }
    int async() const { return m_async.get(); }

    /** Ends both channels, which each thread then notices. Any thread. */
    void close();
    bool closed() const { return m_closed; }

    // ---- the executor's thread

    Session::Wait advance(bool readable);
    void execute();

    // ---- the attendant's thread

    /** AsyncDeviceClear: drops all messages and responses, those of the running command included. */
    void begin_clear();
    /** The client has closed its asynchronous channel: what it had sent on the other is still executed,
     * unless somebody else's lock excludes it, and then the connection closes. Nothing more is sent. */
    void leave();
    /** What to wait for on the synchronous channel; 0 if the executor serves it. */
    short clear_events() const;
    /** Serves the synchronous channel until the device clear is complete. */
    void continue_clear();
    /**
     * The status byte for AsyncStatusQuery.
     * @param message_id the last message that the client has sent
     * @param delivered  the client has read the response to it
     */
    uint8_t poll_status(uint32_t message_id, bool delivered);
    /** @param bytes the largest message that the client takes, header included */
    void set_client_maximum(uint64_t bytes);
    /** All that the client has sent has been executed. */
    bool is_idle() const;

    // ---- any thread

    /** A client that does not read this channel is closed. */
    void send_async(Header header, std::string_view payload = {});

private:
    enum class Parsed { kNeedMore, kReady, kBroken };
    enum class Clear {
        kNone,
        kDiscarding, /**< until DeviceClearComplete */
        kAnswering   /**< until DeviceClearAcknowledge has been sent */
    };

    bool receives_message() const;
    void receive_in_bulk(bool bulk);
    bool receive();
    Parsed parse();
    bool begin_frame();
    void end_frame();
    bool take_payload();
    void take(MessageAssembly::Found found);
    void note_delivery();
    void deliver(std::string_view response);
    void refuse(Fault fault, const char* reason);
    bool break_off(Fatal code, const char* reason);

    const Environment& m_environment;
    const uint16_t m_id;
    const orvan_common::UniqueFd m_sync;
    const orvan_common::UniqueFd m_async;
    const Client m_client;
    std::mutex m_async_mutex; // guards writing to m_async
    StandardSession m_session;
    std::atomic<bool> m_closed = false;
    std::atomic<bool> m_leaving = false;
    std::atomic<uint32_t> m_generation = 0; // a device clear begins a new one

    mutable std::mutex m_mutex; // guards what follows
    FrameReader m_reader;
    Header m_frame{Type::kData};
    bool m_in_frame = false;
    bool m_discard = false;     // the current frame
    bool m_refused = false;     // the current frame, which is of a message or a trigger
    bool m_incomplete = false;  // a frame was refused: what follows up to END belongs to the same message
    bool m_bulk = false;        // the receive low water mark is set
    MessageAssembly m_assembly; // the executor's alone while m_busy
    bool m_ended = false;       // END has been received, and what precedes it is in m_assembly
    bool m_ready = false;       // a message is complete
    bool m_trigger = false;     // it is a trigger
    bool m_busy = false;        // within execute()
    bool m_unparsed = false;    // a message was executed, and more may have been received with it
    Clear m_clear = Clear::kNone;
    bool m_overlap = false;
    uint32_t m_message_id = 0;           // of the message being received or executed
    uint32_t m_response_id = 0;          // of the last response
    uint32_t m_overlap_id = 0xFFFF'FF00; // of the next response in overlap mode
    bool m_undelivered = false;          // the client has not confirmed the last response
    uint64_t m_client_maximum = uint64_t{1} << 20;
    FrameQueue m_out;
};

} // namespace orvan_service::hislip

#endif
