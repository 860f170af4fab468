/**
 * The one door to the channel modules: one request to one of them, one to all.
 *
 * A request is a program message ended by CR LF. Its answer is the module's reply or the link's error, and
 * the request costs what Scpi_Orvanx::SendSCPIOrvanX says of time; whether the module is live is not looked
 * at. Safe on any number of threads.
 */
#ifndef ORVAN_SDK_MODULE_REQUEST_H
#define ORVAN_SDK_MODULE_REQUEST_H

#include <algorithm>
#include <future>
#include <string>
#include <string_view>

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace HaldeElec::Orvan {

/**
 * One request to one module.
 * @param channel one outside 1 to 4 is a module that cannot be reached: "-ERR Unable to connect"
 */
std::string request_module(Scpi_Orvanx& orvanx, int channel, std::string_view command);

/**
 * The same on a thread of its own, so that several modules work at the same time. Without a thread to be had
 * the request is made before this returns.
 *
 * @param command a copy of the request's own
 * @return the reply; its destructor waits for the request to end
 */
std::future<std::string> start_request(Scpi_Orvanx& orvanx, int channel, std::string command);

/** The same request to the instrument's own SCPI server, which hands it to the selected module. Never from
 *  within a command: the server takes one at a time. */
std::string request_own_server(Scpi_Orvanx& orvanx, int port, std::string_view command);

/**
 * One request to every installed module, the first four at most, one after the other. None keeps the others
 * from theirs.
 *
 * @param announce called with a module's index, its channel minus 1, before its request
 * @param take     called with the index and the reply after it
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
