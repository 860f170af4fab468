#ifndef ORVAN_SERVICE_LOCAL_LOCAL_SESSION_H
#define ORVAN_SERVICE_LOCAL_LOCAL_SESSION_H

#include <string>

#include "service/counters/counters.h"
#include "service/session.h"
#include "service/standard/locks.h"
#include "service/standard/message_assembly.h"
#include "service/standard/standard_session.h"
#include <unique_fd.h>

namespace orvan_service {

/**
 * A client of the Unix socket: a standard session whose messages are lines. A message ends with LF (not one
 * within a block) and is answered by exactly one line: its response, or an empty one. A response may contain
 * blocks, and their bytes may be LF.
 *
 * A message that is too long is dropped, with -363, when its LF arrives. A client has its next message
 * executed when the system has taken the response before it; one that does not read is closed.
 */
class LocalSession : public Session {
public:
    /** @param socket non-blocking @param instrument, locks, counters outlive the session */
    LocalSession(orvan_common::UniqueFd socket, StandardInstrument& instrument, Locks& locks,
                 Counters& counters);
    ~LocalSession() override;

    int descriptor() const override { return m_socket.get(); }
    Wait advance(ServiceTime now, bool readable) override;
    void execute() override;
    HangUp hung_up() override;
    ServiceTime deadline() const override { return m_deadline; }
    void expired() override;

private:
    enum class Sent { kAll, kSome, kBroken };

    Sent flush();
    void receive();

    const orvan_common::UniqueFd m_socket;
    Locks& m_locks;
    StandardSession m_session;
    MessageAssembly m_assembly;
    MessageAssembly::Found m_found = MessageAssembly::Found::kNothing; // and not yet executed
    std::string m_response;
    size_t m_sent = 0;               // bytes of it
    ServiceTime m_deadline = kNever; // for the client to read its response
    bool m_input_ended = false;
    bool m_hung_up = false;
};

} // namespace orvan_service

#endif
