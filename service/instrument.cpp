#include "instrument.h"

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

#include <syslog.h>

#include <string>

namespace orvan_service {
namespace {

// The library stores a device kind with the caller's socket and reads it nowhere.
constexpr int kDeviceKind = 0;

constexpr int kFactorySetup = 0;

} // namespace

Instrument::Instrument(int channels, bool modules_on_loopback)
    : m_modules(Scpi_Orvanx::getInstance()), m_channels(channels)
{
    if (modules_on_loopback) {
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            m_modules->m_orvanXIp[channel - 1] = "127.0." + std::to_string(6 + channel) + ".1";
        }
    }
    m_modules->setNumberofChannels(channels);
    m_modules->setSelectedChannel(1);
}

void Instrument::wait_for_modules(int seconds)
{
    m_modules->wait_for_channels_ready(m_channels, seconds);
    for (int channel = 1; channel <= m_channels; ++channel) {
        const bool live = m_modules->m_isLive[channel - 1];
        ::syslog(live ? LOG_NOTICE : LOG_WARNING, "module %d at %s:%u %s", channel,
                 m_modules->m_orvanXIp[channel - 1].c_str(), m_modules->m_OrvanXport[channel - 1],
                 live ? "answers" : "does not answer");
    }
}

void Instrument::load_records()
{
    const int result = m_modules->load_database(kFactorySetup);
    if (result != 0) {
        ::syslog(LOG_ERR, "channel records not loaded (%d)", result);
    }
    for (int channel = 1; channel <= m_channels; ++channel) {
        // One that did not answer would cost the time-out of each query.
        if (m_modules->m_isLive[channel - 1] && !m_modules->getModuleData(channel)) {
            ::syslog(LOG_WARNING, "module %d does not tell all of its versions", channel);
        }
    }
}

void Instrument::execute(int socket, char* data, size_t len)
{
    m_modules->setCallerSocket(socket, kDeviceKind);
    m_modules->sendScpiToNewParser(data, static_cast<int>(len));
}

void Instrument::client_lost(int socket)
{
    m_modules->connection_abort(socket);
}

} // namespace orvan_service
