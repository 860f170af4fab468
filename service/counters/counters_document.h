#ifndef ORVAN_SERVICE_COUNTERS_COUNTERS_DOCUMENT_H
#define ORVAN_SERVICE_COUNTERS_COUNTERS_DOCUMENT_H

#include <string>

#include "service/executor.h"
#include "service/hang_watch.h"

namespace orvan_service {

/**
 * What has been counted as a JSON document (docs/counters.md). Does not wait for a running message. Any
 * thread.
 *
 * @param modules installed ones
 */
std::string counters_document(const Executor& executor, const HangWatch& watch, int modules);

} // namespace orvan_service

#endif
