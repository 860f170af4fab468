#ifndef ORVAN_SERVICE_HISLIP_SERVER_H
#define ORVAN_SERVICE_HISLIP_SERVER_H

#include <list>
#include <memory>
#include <vector>

#include "async_channel.h"
#include "entrant.h"
#include "service/attended.h"
#include "service/executor.h"
#include "service/standard/locks.h"
#include "service/standard/standard_session.h"

namespace orvan_service {

/**
 * Accepts HiSLIP clients (IVI-6.1, revision 2 without secure connections) and serves their asynchronous
 * channels; hands their synchronous ones to the executor. On the attendant's thread.
 *
 * A session begins with two connections from one address: Initialize on the first, AsyncInitialize on the
 * second. Sub-addresses are "hislip0" and none.
 */
class HislipServer : public Attended {
public:
    static constexpr size_t kMostSessions = 32;

    /** All arguments outlive the executor's sessions. */
    HislipServer(std::vector<orvan_common::UniqueFd> listeners, Executor& executor,
                 StandardInstrument& instrument, Locks& locks);
    ~HislipServer() override;

    void add_descriptors(std::vector<pollfd>& waiting) override;
    void serve(std::span<const pollfd> waiting) override;
    Clock::time_point due() const override;

    /** Wakes the attendant when a lock has been released. Any thread. */
    void wake();

    /** Sessions with both channels, and those that wait for the second. The attendant's thread. */
    size_t sessions() const { return m_channels.size() + m_half_open.size(); }

private:
    /** A session without its second channel. */
    struct HalfOpen {
        uint16_t id;
        orvan_common::UniqueFd sync;
        Clock::time_point deadline;
    };

    void accept_clients(int listener);
    bool receive(hislip::Entrant& entrant);
    void initialize(hislip::Entrant& entrant);
    void initialize_async(hislip::Entrant& entrant);
    bool serve_half_open(HalfOpen& session, bool readable);
    uint16_t free_id();

    const std::vector<orvan_common::UniqueFd> m_listeners;
    Executor& m_executor;
    const hislip::Environment m_environment;
    const orvan_common::UniqueFd m_wake;
    std::list<hislip::Entrant> m_entrants;
    std::list<HalfOpen> m_half_open;
    std::list<hislip::AsyncChannel> m_channels;
    uint16_t m_last_id = 0;
    Clock::time_point m_pause_end = Clock::time_point::max(); // of accepting
};

} // namespace orvan_service

#endif
