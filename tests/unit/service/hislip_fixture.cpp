#include "hislip_fixture.h"

#include <array>

#include <sys/eventfd.h>

#include "service/listener.h"

namespace orvan_test {

using namespace orvan_service;

std::string ScriptedInstrument::execute(int& channel, std::string& message)
{
    const std::string text = message.substr(0, message.find_last_not_of("\r\n") + 1);
    {
        std::unique_lock lock(m_mutex);
        m_messages.emplace_back(channel, text);
        ++m_at_work;
        m_opened.wait(lock, [this] { return !m_shut; });
        --m_at_work;
    }
    if (m_handler) {
        return m_handler(channel, text);
    }
    return text.ends_with('?') ? text + ";+OK\r\n" : "+OK\r\n";
}

void ScriptedInstrument::shut()
{
    const std::lock_guard lock(m_mutex);
    m_shut = true;
}

void ScriptedInstrument::open()
{
    const std::lock_guard lock(m_mutex);
    m_shut = false;
    m_opened.notify_all();
}

size_t ScriptedInstrument::at_work() const
{
    const std::lock_guard lock(m_mutex);
    return m_at_work;
}

std::vector<std::pair<int, std::string>> ScriptedInstrument::messages() const
{
    const std::lock_guard lock(m_mutex);
    return m_messages;
}

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
