/**
 * Counters of the requests to the channel modules.
 */
#ifndef ORVAN_SDK_MODULE_COUNTERS_H
#define ORVAN_SDK_MODULE_COUNTERS_H

#include <cstdint>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/** Of one module, since the start of the process. */
struct ModuleCounters {
    uint64_t requests;    /**< that have ended, whatever their outcome */
    uint64_t timeouts;    /**< of them: no connection within 5 s, or no reply within 10 s */
    uint64_t link_errors; /**< of them: no connection for another reason, or it broke before the reply */
    bool failed;          /**< the last one was a time-out or a link error */
};

/** All zero for a channel outside 1 to 4. Any thread; does not wait for a request. */
ORVAN_API ModuleCounters module_counters(int channel);

} // namespace HaldeElec::Orvan

#endif
