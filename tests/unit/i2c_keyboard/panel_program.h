/**
 * A stand-in for the front-panel program: records what arrives in each connection.
 *
 * The bridge knows one port only, and tests run side by side. Linking this replaces connect() of the whole
 * program: a connection to that port goes to the port of the PanelProgram that lives, or, without one, to a
 * port that refuses connections. It records setsockopt() calls too.
 */
#ifndef ORVAN_TESTS_PANEL_PROGRAM_H
#define ORVAN_TESTS_PANEL_PROGRAM_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvan_test {

/** One at a time in a process. */
class PanelProgram {
public:
    PanelProgram();
    ~PanelProgram();
    PanelProgram(const PanelProgram&) = delete;
    PanelProgram& operator=(const PanelProgram&) = delete;

    /** What the connections so far carried, each up to its end, in their order. */
    std::vector<std::string> connections() const;
    /** Waits for that many; false when `bound` passes first. */
    bool wait_for(size_t count, std::chrono::milliseconds bound = std::chrono::seconds(60)) const;

private:
    void serve();

    const int m_listener;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_arrived;
    std::vector<std::string> m_connections;
    std::thread m_thread;
};

/** Sends the bridge's connections to this port instead; 0 ends that. */
void redirect_panel_port(int port);

/** How often the process has tried to connect to the front panel's port. */
size_t panel_attempts();
/** "connect 127.0.0.1" and, with the time in microseconds, "receive limit 30000" and "send limit 30000": the
 *  calls so far, in their order; ", inherited" after a connect whose socket a child process would get.
 *  The kernel itself only knows such limits in its own ticks. */
std::vector<std::string> panel_calls();
/** From now on setting this socket option, SO_RCVTIMEO or SO_SNDTIMEO, fails; 0 ends that. */
void refuse_socket_option(int name);

} // namespace orvan_test

#endif
