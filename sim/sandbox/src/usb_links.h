#ifndef ORVAN_SIM_SANDBOX_USB_LINKS_H
#define ORVAN_SIM_SANDBOX_USB_LINKS_H

#include "failure.h"

namespace orvan_sandbox {

/**
 * Puts a tree in the place of /sys/class/net: lo, eth0 and one "usbN" for each module, where "device" and
 * "device/driver" are links as the kernel makes them for network adapters on USB.
 */
Failure mount_usb_links(int modules);

} // namespace orvan_sandbox

#endif
