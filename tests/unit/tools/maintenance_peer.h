/**
 * An instrument's model on a UDP port.
 */
#ifndef ORVAN_TESTS_MAINTENANCE_PEER_H
#define ORVAN_TESTS_MAINTENANCE_PEER_H

#include <functional>
#include <thread>
#include <vector>

#include "instrument_model.h"

namespace orvan_test {

class MaintenancePeer {
public:
    /** @param model is used by the peer's thread until the peer is destroyed
     *  @param answers how often the reply to a frame is sent, by the frame's number from 0 on; once if not
     *                 listed
     *  @param port    of all addresses, which several may share; 0 for a free one of 127.0.0.1 */
    explicit MaintenancePeer(InstrumentModel& model, std::function<int(size_t)> answers = {}, int port = 0);
    ~MaintenancePeer();
    MaintenancePeer(const MaintenancePeer&) = delete;
    MaintenancePeer& operator=(const MaintenancePeer&) = delete;

    int port() const { return m_port; }

    /** Stops serving; the frames received are then in requests. */
    void stop();
    std::vector<Bytes> requests;

private:
    void run();

    InstrumentModel& m_model;
    std::function<int(size_t)> m_answers;
    int m_socket = -1;
    int m_stop = -1;
    int m_port = 0;
    std::thread m_thread;
};

} // namespace orvan_test

#endif
