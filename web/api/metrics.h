#ifndef ORVAN_WEB_METRICS_H
#define ORVAN_WEB_METRICS_H

#include <string>

#include "instrument/instrument.h"

namespace orvan_web {

/** What is known of the instrument in the Prometheus text format 0.0.4. Without the service: orvan_up 0 and
 *  what this process knows itself. */
std::string metrics_text(Instrument& instrument, const std::string& version, size_t viewers);

} // namespace orvan_web

#endif
