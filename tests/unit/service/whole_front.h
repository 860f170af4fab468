/**
 * The servers of all protocols on the loopback.
 */
#ifndef ORVAN_TESTS_WHOLE_FRONT_H
#define ORVAN_TESTS_WHOLE_FRONT_H

#include <array>
#include <thread>
#include <utility>
#include <vector>

#include <sys/eventfd.h>

#include <gtest/gtest.h>

#include "service/hislip/hislip_server.h"
#include "service/listener.h"
#include "service/process.h"
#include "service/server.h"
#include "service/standard/library_instrument.h"
#include "support/loopback.h"
#include "vxi11_fixture.h"

namespace orvan_test {

/** The servers of all protocols, as the program has them. */
class WholeFront {
public:
    explicit WholeFront(orvan_service::MessageSink& sink, const orvan_service::ServerLimits& limits = {})
        : WholeFront(sink, limits, orvan_service::open_listeners("127.0.0.1", 0),
                     orvan_service::open_listeners("127.0.0.1", 0))
    {
    }

    ~WholeFront()
    {
        ::eventfd_write(m_stop.get(), 1);
        m_attendant.join();
        m_vxi11.end();
        EXPECT_TRUE(m_server.end(std::chrono::seconds(30)));
    }

    const int raw_port;
    const int hislip_port;
    uint16_t vxi11_port() const { return m_vxi11.port(); }
    orvan_service::Executor& executor() { return m_server.executor(); }
    const orvan_service::Executor& executor() const { return m_server.executor(); }

private:
    WholeFront(orvan_service::MessageSink& sink, const orvan_service::ServerLimits& limits,
               std::vector<orvan_common::UniqueFd> raw, std::vector<orvan_common::UniqueFd> hislip)
        : raw_port(local_port(raw.front().get())), hislip_port(local_port(hislip.front().get())),
          m_instrument(sink), m_server(std::move(raw), sink, limits),
          m_hislip(std::move(hislip), m_server.executor(), m_instrument, m_locks),
          m_vxi11(m_server.executor(), m_instrument, m_locks, RunningVxi11::loopback()),
          m_stop(::eventfd(0, EFD_CLOEXEC))
    {
        orvan_service::ignore_broken_pipes();
        m_locks.on_change([this] {
            m_server.executor().retry();
            m_hislip.wake();
            m_vxi11.wake();
        });
        EXPECT_TRUE(m_vxi11.start());
        m_attendant = std::thread([this] {
            const std::array<orvan_service::Attended*, 1> others{&m_hislip};
            m_server.run(m_stop.get(), nullptr, others);
        });
    }

    orvan_service::LibraryInstrument m_instrument;
    orvan_service::Locks m_locks;
    orvan_service::Server m_server;
    orvan_service::HislipServer m_hislip;
    orvan_service::Vxi11Server m_vxi11;
    orvan_common::UniqueFd m_stop;
    std::thread m_attendant;
};

} // namespace orvan_test

#endif
