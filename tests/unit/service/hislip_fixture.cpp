#include "hislip_fixture.h"

#include <array>

#include <sys/eventfd.h>

#include "service/listener.h"

namespace orvan_test {

using namespace orvan_service;

RunningHislip::RunningHislip(StandardInstrument& instrument)
    : RunningHislip(instrument, open_listeners("127.0.0.1", 0))
{
}

RunningHislip::RunningHislip(StandardInstrument& instrument, std::vector<orvan_common::UniqueFd> listeners)
    : m_port(port_of(listeners.front().get())), m_server({}, m_no_sink, {}),
      m_hislip(std::move(listeners), m_server.executor(), instrument, m_locks),
      m_stop(::eventfd(0, EFD_CLOEXEC))
{
    m_locks.on_change([this] {
        m_server.executor().retry();
        m_hislip.wake();
    });
    m_attendant = std::thread([this] {
        const std::array<Attended*, 1> others{&m_hislip};
        m_server.run(m_stop.get(), nullptr, others);
    });
}

RunningHislip::~RunningHislip()
{
    ::eventfd_write(m_stop.get(), 1);
    m_attendant.join();
    m_server.end(std::chrono::seconds(20));
}

} // namespace orvan_test
