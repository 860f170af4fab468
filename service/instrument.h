#ifndef ORVAN_SERVICE_INSTRUMENT_H
#define ORVAN_SERVICE_INSTRUMENT_H

#include "message_sink.h"

class Scpi_Orvanx;

namespace orvan_service {

/**
 * The library as a message sink. Create it once the device, or start_without_device, has set up the module
 * service; only one per process, as there is only one module service.
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
 * For a machine that is not an instrument: sets the module table to the loopback and waits for the modules
 * there, at most `module_wait` seconds.
 */
void start_without_device(int channels, int module_wait);

/** Logs which modules answered at start-up. */
void log_modules();

} // namespace orvan_service

#endif
