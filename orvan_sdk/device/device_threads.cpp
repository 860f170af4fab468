#include "device_threads.h"

#include <syslog.h>
#include <system_error>
#include <utility>

namespace HaldeElec::Orvan {

void start_thread(std::thread& thread, const char* class_name, const char* name, std::function<void()> body)
{
    try {
        thread = std::thread(std::move(body));
    } catch (const std::system_error& error) {
        syslog(LOG_ERR, "%s: no %s thread: %s", class_name, name, error.what());
    }
}

void end_thread(std::thread& thread, std::atomic<bool>& run)
{
    run = false;
    if (thread.joinable())
        thread.join();
}

} // namespace HaldeElec::Orvan
