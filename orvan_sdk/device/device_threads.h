/**
 * The background threads of a device.
 */
#ifndef ORVAN_SDK_DEVICE_THREADS_H
#define ORVAN_SDK_DEVICE_THREADS_H

#include <atomic>
#include <functional>
#include <thread>

namespace HaldeElec::Orvan {

/** A thread that the instrument can do without. */
struct DeviceThread {
    std::function<void()> body;
    std::atomic<bool>& run; /**< the body runs while set */
    std::thread& thread;
};

/**
 * Sets its flag and starts it. Failure to create it is only logged.
 *
 * @param class_name of the device
 * @param name       of the thread, for the log
 */
void start_thread(const char* class_name, const char* name, const DeviceThread& thread);

/** Clears its flag and, if it runs, waits for its end. */
void end_thread(std::thread& thread, std::atomic<bool>& run);

} // namespace HaldeElec::Orvan

#endif
