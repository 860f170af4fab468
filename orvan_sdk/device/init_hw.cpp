#include "init_hw.h"

#include <syslog.h>

namespace HaldeElec::Orvan {

bool init_hw_failed(const char* part)
{
    ::syslog(LOG_ERR, "%s: %s failed", "InitHW", part);
    return false;
}

} // namespace HaldeElec::Orvan
