/**
 * The background threads of a device.
 */
#ifndef ORVAN_SDK_DEVICE_THREADS_H
#define ORVAN_SDK_DEVICE_THREADS_H

#include <atomic>
#include <functional>
#include <thread>

namespace HaldeElec::Orvan {

/**
 * A thread that the instrument can be without: one that can't be had is logged and passed over.
 *
 * @param class_name of the device
 * @param name       of the thread, as the log tells it
 */
void start_thread(std::thread& thread, const char* class_name, const char* name, std::function<void()> body);

/** Clears its flag and waits for its end, where it runs. */
void end_thread(std::thread& thread, std::atomic<bool>& run);

} // namespace HaldeElec::Orvan

#endif
