#ifndef ORVAN_SERVICE_LIBRARY_INSTRUMENT_H
#define ORVAN_SERVICE_LIBRARY_INSTRUMENT_H

#include <span>
#include <string>

#include "service/message_sink.h"
#include "standard_session.h"
#include <unique_fd.h>

namespace orvan_service {

/**
 * The library as standard sessions use it. It writes its replies to a socket with TCP options and takes a
 * peer that is 127.0.0.1 for the instrument's own; so it gets one end of a TCP pair on the loopback whose
 * peer is 127.0.0.2, one for all sessions, as only one message is executed at a time.
 */
class LibraryInstrument : public StandardInstrument {
public:
    /** @param sink executes the messages; outlives this object. Throws std::system_error without a pair. */
    explicit LibraryInstrument(MessageSink& sink);

    std::string execute(int& channel, std::span<char> message) override;

private:
    std::string receive_reply();
    bool receive(std::string& reply, int flags);

    MessageSink& m_sink;
    orvan_common::UniqueFd m_library; // what the library writes to
    orvan_common::UniqueFd m_reader;
};

} // namespace orvan_service

#endif
