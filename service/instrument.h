#ifndef ORVAN_SERVICE_INSTRUMENT_H
#define ORVAN_SERVICE_INSTRUMENT_H

#include "message_sink.h"

class Scpi_Orvanx;

namespace orvan_service {

/**
 * The library behind the sockets. To be made once the device, or start_without_device, has set the module
 * service up; one in a process, since the library's module service is one.
 */
class Instrument : public MessageSink {
public:
    Instrument();

    void execute(int socket, char* data, size_t len) override;
    void client_lost(int socket) override;

private:
    Scpi_Orvanx* const m_modules;
};

/**
 * On a machine that is no instrument: the module table is set to the loopback, and the modules that are there
 * are waited for, at most `module_wait` seconds.
 */
void start_without_device(int channels, int module_wait);

/** Logs which modules were there at start-up. */
void log_modules();

} // namespace orvan_service

#endif
