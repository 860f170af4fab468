#ifndef ORVAN_SERVICE_INSTRUMENT_H
#define ORVAN_SERVICE_INSTRUMENT_H

#include "message_sink.h"

class Scpi_Orvanx;

namespace orvan_service {

/** The library behind the sockets. One in a process, since the library's module service is one. */
class Instrument : public MessageSink {
public:
    /** Builds the module service for `channels` modules; sends nothing. */
    Instrument(int channels, bool modules_on_loopback);

    /** Waits until every module has answered, at most `seconds`; logs which did. */
    void wait_for_modules(int seconds);

    /**
     * Sets up the channel records in shared memory, from the factory setup and what the modules tell of
     * themselves; logs what fails. Once, when the wait for the modules is over.
     */
    void load_records();

    void execute(int socket, char* data, size_t len) override;
    void client_lost(int socket) override;

private:
    Scpi_Orvanx* const m_modules;
    const int m_channels;
};

} // namespace orvan_service

#endif
