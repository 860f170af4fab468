#include "notify.h"

#include <mutex>

namespace orvan_service {

void notify_status(StatusPart part, const std::string& text)
{
    static std::mutex mutex;
    static std::string hang;
    static std::string remote;
    const std::lock_guard lock(mutex); // so that the lines arrive in the order of the changes
    (part == StatusPart::kHang ? hang : remote) = text;
    notify(("STATUS=" + hang + (hang.empty() || remote.empty() ? "" : "; ") + remote).c_str());
}

} // namespace orvan_service
