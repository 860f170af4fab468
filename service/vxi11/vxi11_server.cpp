#include "vxi11_server.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <span>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <syslog.h>

#include "rpcbind.h"
#include "service/listener.h"
#include "vxi11_abort.h"
#include "vxi11_core.h"

namespace orvan_service {
namespace {

/** Rounded up, so that the caller does not wake early; -1: for ever. */
int milliseconds_until(Vxi11Core::Clock::time_point due)
{
    if (due == Vxi11Core::Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Vxi11Core::Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

} // namespace

Vxi11Server::Vxi11Server(Executor& executor, StandardInstrument& instrument, Locks& locks,
                         const Vxi11Options& options)
    : m_executor(executor), m_instrument(instrument), m_locks(locks), m_options(options),
      m_shared(std::make_shared<Vxi11Shared>())
{
}

Vxi11Server::~Vxi11Server()
{
    end();
}

bool Vxi11Server::start()
{
    try {
        if (m_options.address.find(':') != std::string::npos) {
            throw std::runtime_error("it has no IPv6");
        }
        m_abort = std::make_unique<Vxi11Abort>(std::move(open_listeners(m_options.address, 0).front()),
                                               m_options.max_links);
        m_core = std::make_unique<Vxi11Core>(
            m_executor, m_instrument, m_locks, m_shared, m_options,
            std::move(open_listeners(m_options.address, m_options.port).front()), m_abort->channel().port());
        m_abort->serve_for(*m_core);
        if (m_options.use_rpcbind) {
            m_entry = std::make_unique<RpcbindEntry>(DEVICE_CORE, DEVICE_CORE_VERSION, m_core->port());
        }
        m_thread = std::thread([this] { run(); });
        ::pthread_setname_np(m_thread.native_handle(), "vxi11");
    } catch (const std::exception& error) {
        ::syslog(LOG_WARNING, "VXI-11 is off: %s", error.what());
        end();
        return false;
    }
    ::syslog(LOG_NOTICE, "VXI-11: listening on %s:%u", m_options.address.c_str(), port());
    return true;
}

void Vxi11Server::end()
{
    if (m_thread.joinable()) {
        m_ending = true;
        m_shared->wake();
        m_thread.join();
    }
    m_entry.reset();
    m_core.reset();
    m_abort.reset();
}

uint16_t Vxi11Server::port() const
{
    return m_core ? m_core->port() : 0;
}

void Vxi11Server::wake()
{
    m_shared->wake();
}

void Vxi11Server::run()
{
    try {
        std::vector<pollfd> waiting;
        while (!m_ending) {
            waiting.assign(1, {m_shared->wake_descriptor(), POLLIN, 0});
            m_abort->channel().add_descriptors(waiting);
            const size_t core = waiting.size();
            m_core->add_descriptors(waiting);
            const auto due = std::min(m_abort->channel().due(), m_core->due());
            if (::poll(waiting.data(), waiting.size(), milliseconds_until(due)) < 0) {
                if (errno != EINTR) {
                    throw std::system_error(errno, std::generic_category(), "poll");
                }
                continue;
            }
            uint64_t count;
            [[maybe_unused]] const ssize_t read = ::read(m_shared->wake_descriptor(), &count, sizeof count);
            const std::span<const pollfd> results(waiting);
            m_abort->channel().serve(results.subspan(1, core - 1));
            m_core->serve(results.subspan(core));
        }
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "VXI-11 is off: %s", error.what());
    }
}

} // namespace orvan_service
