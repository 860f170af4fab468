#ifndef ORVAN_SIM_SANDBOX_USB_LINKS_H
#define ORVAN_SIM_SANDBOX_USB_LINKS_H

#include "failure.h"

namespace orvan_sandbox {

/**
 * Mounts a tree over /sys/class/net: lo, eth0 and one "usbN" for each module, with the "device" and
 * "device/driver" links that the kernel makes for USB network adapters.
 */
Failure mount_usb_links(int modules);

} // namespace orvan_sandbox

#endif
