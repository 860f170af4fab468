#ifndef ORVAN_SIM_LAUNCHER_BROWSER_H
#define ORVAN_SIM_LAUNCHER_BROWSER_H

#include <string>

namespace orvan_launcher {

/**
 * Opens a page in the desktop's browser, which outlives the caller.
 * \return why it cannot, in one line; empty if it was started
 */
std::string open_in_browser(const std::string& url);

} // namespace orvan_launcher

#endif
