#include <syslog.h>

#include "orvan_sdk/Portable/OrvanPortableDevice.h"
#include "orvan_sdk/orvan_sdk.h"

namespace HaldeElec::Orvan {

IOrvanDeviceManager* CreateDevice(const char* log_path, int log_mode)
{
    ::syslog(LOG_INFO, "creating Portable device");
    return new OrvanPortableDevice(log_path, log_mode);
}

} // namespace HaldeElec::Orvan
