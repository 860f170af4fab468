#include "device_threads.h"

#include <system_error>

#include <syslog.h>

namespace HaldeElec::Orvan {

void start_thread(const char* class_name, const char* name, const DeviceThread& thread)
{
    thread.run = true;
    try {
        thread.thread = std::thread(thread.body);
    } catch (const std::system_error& error) {
        ::syslog(LOG_ERR, "%s: no %s thread: %s", class_name, name, error.what());
    }
}

void end_thread(std::thread& thread, std::atomic<bool>& run)
{
    run = false;
    if (thread.joinable()) {
        thread.join();
    }
}

} // namespace HaldeElec::Orvan
