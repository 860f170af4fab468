#include "instrument.h"

#include <optional>
#include <string>
#include <string_view>

#include <syslog.h>

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_selection.h"
#include "own_sockets.h"

namespace orvan_service {
namespace {

// The library stores a device kind with the caller's socket and never reads it.
constexpr int kDeviceKind = 0;

// What the library's temperature poll sends. Messages of standard sessions end with LF only.
constexpr std::string_view kPoll = ":SYST:TEMP?\r\n";

/** The channel whose temperature the library's poll asks for with this message; 0 if it is not the poll's. */
int polled_channel(const Scpi_Orvanx& modules, int socket, std::string_view message)
{
    const int channel = message == kPoll ? modules.getPolledChannel() : 0;
    return channel != 0 && OwnSockets().at_other_end_of(socket) ? channel : 0;
}

} // namespace

Instrument::Instrument() : m_modules(Scpi_Orvanx::getInstance()) {}

// A client may have selected another channel since the poll began; the reading would be recorded for the
// wrong one.
void Instrument::execute(int socket, char* data, size_t len)
{
    std::optional<HaldeElec::Orvan::OwnSelection> selection;
    if (const int channel = polled_channel(*m_modules, socket, {data, len}); channel != 0) {
        selection.emplace(*m_modules, channel);
    }
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
