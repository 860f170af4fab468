#include "instrument.h"

#include <string>

#include <syslog.h>

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace orvan_service {
namespace {

// The library stores a device kind with the caller's socket and never reads it.
constexpr int kDeviceKind = 0;

} // namespace

Instrument::Instrument() : m_modules(Scpi_Orvanx::getInstance()) {}

void Instrument::execute(int socket, char* data, size_t len)
{
    m_modules->setCallerSocket(socket, kDeviceKind);
    m_modules->sendScpiToNewParser(data, static_cast<int>(len));
}

void Instrument::client_lost(int socket)
{
    m_modules->connection_abort(socket);
}

void start_without_device(int channels, int module_wait)
{
    Scpi_Orvanx& modules = *Scpi_Orvanx::getInstance();
    for (int channel = 1; channel <= kMaxChannels; ++channel) {
        modules.m_orvanXIp[channel - 1] = "127.0." + std::to_string(6 + channel) + ".1";
    }
    modules.setNumberofChannels(channels);
    modules.setSelectedChannel(1);
    modules.wait_for_channels_ready(channels, module_wait);
}

void log_modules()
{
    Scpi_Orvanx& modules = *Scpi_Orvanx::getInstance();
    for (int channel = 1; channel <= modules.getNumberofChannels(); ++channel) {
        const bool live = modules.m_isLive[channel - 1];
        ::syslog(live ? LOG_NOTICE : LOG_WARNING, "module %d at %s:%u %s", channel,
                 modules.m_orvanXIp[channel - 1].c_str(), modules.m_OrvanXport[channel - 1],
                 live ? "answers" : "does not answer");
    }
}

} // namespace orvan_service
