#ifndef ORVAN_SERVICE_FRONT_PANEL_H
#define ORVAN_SERVICE_FRONT_PANEL_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include <unique_fd.h>

namespace orvan_service {

/** Where the keyboard bridge delivers its codes. */
inline constexpr char kFrontPanelAddress[] = "127.0.0.1";
inline constexpr uint16_t kFrontPanelPort = 8888;

/**
 * Receives the key codes of the front panel and executes their key map actions one by one, in order of
 * arrival; further connections wait in the listener's queue.
 *
 * A code arrives as a connection that carries one byte and is closed. A connection that carries none or more,
 * or is not closed in time, is logged and ignored.
 */
class FrontPanel {
public:
    /** Executes a program message and returns its reply, empty if there is none. On the panel's thread. */
    using Execute = std::function<std::string(const std::string& message)>;

    /** @param channels number of installed channels
     *  @param patience how long a connection may stay open before it is dropped */
    FrontPanel(orvan_common::UniqueFd listener, int channels, Execute execute,
               std::chrono::milliseconds patience = std::chrono::seconds(1));
    /** Waits for the running key action. */
    ~FrontPanel();
    FrontPanel(const FrontPanel&) = delete;
    FrontPanel& operator=(const FrontPanel&) = delete;

    /** Stops accepting codes. Returns at once. Any thread. */
    void end();

private:
    void run();
    void serve(const orvan_common::UniqueFd& connection);
    void obey(uint8_t code);
    bool ended(int timeout_ms) const;

    const orvan_common::UniqueFd m_listener;
    const int m_channels;
    const Execute m_execute;
    const std::chrono::milliseconds m_patience;
    const orvan_common::UniqueFd m_end; // an event descriptor
    std::thread m_thread;
};

} // namespace orvan_service

#endif
