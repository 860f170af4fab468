#ifndef ORVAN_WEB_ANNOUNCE_INSTRUMENT_H
#define ORVAN_WEB_ANNOUNCE_INSTRUMENT_H

#include <cstdint>
#include <vector>

#include "announce/announcer.h"
#include "instrument/instrument.h"
#include <unique_fd.h>

namespace orvan_web {

/** The port of the first listener that others reach, who are not on this machine; 0 if there is none. */
uint16_t port_for_others(const std::vector<orvan_common::UniqueFd>& listeners);

/**
 * Has the instrument announced as soon as its identity is known, and again when that or its network changes.
 * Before Instrument::start(); both must outlive the loop's thread.
 *
 * @param http_port 0: without the page
 */
void announce_instrument(Instrument& instrument, Announcer& announcer, uint16_t http_port);

} // namespace orvan_web

#endif
