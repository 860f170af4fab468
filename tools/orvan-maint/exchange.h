/**
 * A request, sent again when it seems lost, and its replies.
 */
#ifndef ORVAN_MAINT_EXCHANGE_H
#define ORVAN_MAINT_EXCHANGE_H

#include <functional>
#include <optional>

#include "link.h"

namespace orvan_maint {

/**
 * Sends the request three times within the time, and passes each reply on until one is wanted or the time is
 * over. Every request has a different `info`, by which late replies to others are recognised.
 *
 * @param data_length bytes of `data` that are sent
 * @param wanted      true ends it
 * @return whether one was wanted
 */
bool ask(Link& link, HALDE_PACKET request, size_t data_length, std::chrono::milliseconds time,
         const std::function<bool(const Received&)>& wanted);

/** The first reply; empty when there is none in time. */
std::optional<Received> ask(Link& link, const HALDE_PACKET& request, size_t data_length,
                            std::chrono::milliseconds time);

} // namespace orvan_maint

#endif
