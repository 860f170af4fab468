/**
 * The header for a service process: the device, the module service and its parser.
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
 * Starts the instrument; call it once per process. It is always the portable: no pin, file or setting is
 * read.
 *
 * The call runs the whole start-up (OrvanPortableDevice). If it fails, the object is still returned and its
 * Initialized() is false.
 *
 * @param log_path log file of OrvanDebug, which is emptied
 * @param log_mode OrvanDebug::SetLogMode
 * @return never null; the caller deletes it
 */
ORVAN_API IOrvanDeviceManager* CreateDevice(const char* log_path, int log_mode);

} // namespace HaldeElec::Orvan

#endif
