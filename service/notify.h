#ifndef ORVAN_SERVICE_NOTIFY_H
#define ORVAN_SERVICE_NOTIFY_H

#include <string>

#include "process/notify.h"

namespace orvan_service {

using orvan_common::notify;
using orvan_common::watchdog_period;

/** What the status line that the service manager shows is made of. */
enum class StatusPart { kHang, kRemote };

/** Changes a part of the status line and reports the line, its parts joined by "; ", as notify() does. Any
 *  thread.
 *  @param text empty: nothing to say */
void notify_status(StatusPart part, const std::string& text);

} // namespace orvan_service

#endif
