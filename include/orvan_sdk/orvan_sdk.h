/**
 * What a service process includes: the device, the module service with its one object, and the parser behind
 * it.
 *
 * The process ignores SIGPIPE: replies and module requests are sent without MSG_NOSIGNAL.
 */
#ifndef ORVAN_SDK_H
#define ORVAN_SDK_H

#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/orvan_api.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"

namespace HaldeElec::Orvan {

/**
 * Starts the instrument, once in a process. It is always the portable: no pin, file or setting is looked at.
 *
 * The call runs the whole start-up (OrvanPortableDevice). A start-up that failed gives an object, too, whose
 * Initialized() is false.
 *
 * @param log_path log file of OrvanDebug, which is emptied
 * @param log_mode OrvanDebug::SetLogMode
 * @return never null; the caller deletes it
 */
ORVAN_API IOrvanDeviceManager* CreateDevice(const char* log_path, int log_mode);

} // namespace HaldeElec::Orvan

#endif
