/**
 * Requests to the channel modules: to one of them or to all.
 *
 * A request is a program message ended by CR LF. Its answer is the module's reply or the link's error, and
 * the request takes as long as Scpi_Orvanx::SendSCPIOrvanX documents; whether the module is live is not
 * checked. Safe on any number of threads.
 */
#ifndef ORVAN_SDK_MODULE_REQUEST_H
#define ORVAN_SDK_MODULE_REQUEST_H

#include <algorithm>
#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <string_view>

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace HaldeElec::Orvan {

/**
 * One request to one module.
 * @param channel outside 1 to 4 it counts as unreachable: "-ERR Unable to connect"
 */
std::string request_module(Scpi_Orvanx& orvanx, int channel, std::string_view command);

/**
 * The same on a separate thread, so that several modules work in parallel. If no thread can be created, the
 * request is made before this returns.
 *
 * @param command copied for the request
 * @return the reply; its destructor waits for the request to end
 */
std::future<std::string> start_request(Scpi_Orvanx& orvanx, int channel, std::string command);

/**
 * Counts a request that has ended (module_counters.h).
 * @param channel 1 to 4 @param reply the module's, or the link's error
 */
void count_request(int channel, std::string_view reply);

/** One such request to every installed module, all at once. Its destructor waits for those not yet taken. */
class ModuleRequests {
public:
    struct Pending {
        int index; /**< of the module: its channel minus 1 */
        std::future<std::string> reply;
    };

    ModuleRequests(Scpi_Orvanx& orvanx, const std::string& command);

    /** In the order of the channels. */
    Pending* begin() const { return m_pending.get(); }
    Pending* end() const { return m_pending.get() + m_count; }

private:
    const size_t m_count;
    const std::unique_ptr<Pending[]> m_pending;
};

/** The same request to the instrument's own SCPI server, which hands it to the selected module. Never call
 *  it from within a command: the server executes one at a time. */
std::string request_own_server(Scpi_Orvanx& orvanx, int port, std::string_view command);

/**
 * One request to every installed module in turn, at most the first four. A failure does not stop the others.
 *
 * @param announce called with a module's index, its channel minus 1, before its request
 * @param take     called with the index and the reply afterwards
 */
template <typename Announce, typename Take>
void request_every_module(Scpi_Orvanx& orvanx, std::string_view command, Announce announce, Take take)
{
    for (int index = 0; index < std::min(orvanx.getNumberofChannels(), kMaxChannels); ++index) {
        announce(index);
        take(index, request_module(orvanx, index + 1, command));
    }
}

} // namespace HaldeElec::Orvan

#endif
