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
 * Takes the key codes of the front panel and has each do what the key map says, one after the other in the
 * order of their arrival; those that come meanwhile wait in the listener's queue.
 *
 * A code is a connection that carries one byte and ends. A connection that carries none, or more, or does not
 * end in time, is logged and left alone.
 */
class FrontPanel {
public:
    /** Executes a program message and gives its reply, empty when there is none. On the panel's thread. */
    using Execute = std::function<std::string(const std::string& message)>;

    /** @param channels those that are installed
     *  @param patience for how long a connection may stay open before it is given up */
    FrontPanel(UniqueFd listener, int channels, Execute execute,
               std::chrono::milliseconds patience = std::chrono::seconds(1));
    /** Waits for the key that is at work. */
    ~FrontPanel();
    FrontPanel(const FrontPanel&) = delete;
    FrontPanel& operator=(const FrontPanel&) = delete;

    /** Takes no more codes. Returns at once. Any thread. */
    void end();

private:
    void run();
    void serve(const UniqueFd& connection);
    void obey(uint8_t code);
    bool ended(int timeout_ms) const;

    const UniqueFd m_listener;
    const int m_channels;
    const Execute m_execute;
    const std::chrono::milliseconds m_patience;
    const UniqueFd m_end; // an event descriptor
    std::thread m_thread;
};

} // namespace orvan_service

#endif
