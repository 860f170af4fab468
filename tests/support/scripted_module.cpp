#include "support/scripted_module.h"

#include <algorithm>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/loopback.h"

namespace orvan_test {
namespace {

constexpr auto kForever = std::chrono::milliseconds(-1);
constexpr auto kSecondSegmentBound = std::chrono::milliseconds(500);

enum class Wake { kReadable, kStopped, kTimeout };

Wake wait_readable(int fd, int stop, std::chrono::milliseconds bound)
{
    pollfd waited[] = {{stop, POLLIN, 0}, {fd, POLLIN, 0}};
    const int n = ::poll(waited, fd < 0 ? 1 : 2, static_cast<int>(bound.count()));
    if (n <= 0) {
        return Wake::kTimeout;
    }
    return waited[0].revents != 0 ? Wake::kStopped : Wake::kReadable;
}

void send_all(int fd, const std::string& text)
{
    size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t n = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return;
        }
        sent += static_cast<size_t>(n);
    }
}

} // namespace

ScriptedModule::ScriptedModule(const std::string& address)
    : m_address(address), m_listener(listen_on_loopback(address, 64)), m_stop(::eventfd(0, EFD_CLOEXEC))
{
    m_port = local_port(m_listener);
    m_acceptor = std::thread([this] { accept_all(); });
}

ScriptedModule::~ScriptedModule()
{
    ::eventfd_write(m_stop, 1);
    m_acceptor.join();
    for (auto& [number, worker] : m_workers) {
        worker.join();
    }
    ::close(m_listener);
    ::close(m_stop);
}

void ScriptedModule::then(ModuleAnswer answer)
{
    std::lock_guard lock(m_mutex);
    m_next.push_back(std::move(answer));
}

void ScriptedModule::always(ModuleAnswer answer)
{
    std::lock_guard lock(m_mutex);
    m_always = std::move(answer);
}

void ScriptedModule::on_request(std::function<void(const std::string&)> watcher)
{
    std::lock_guard lock(m_mutex);
    m_watcher = std::move(watcher);
}

std::vector<std::string> ScriptedModule::requests() const
{
    std::lock_guard lock(m_mutex);
    std::vector<std::string> texts;
    for (const Request& request : m_requests) {
        if (request.complete) {
            texts.push_back(request.text);
        }
    }
    return texts;
}

size_t ScriptedModule::connections() const
{
    std::lock_guard lock(m_mutex);
    return m_requests.size();
}

size_t ScriptedModule::finished() const
{
    std::lock_guard lock(m_mutex);
    return m_finished;
}

bool ScriptedModule::wait_finished(size_t count, std::chrono::milliseconds bound) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, bound, [&] { return m_finished >= count; });
}

bool ScriptedModule::wait_requests(size_t count, std::chrono::milliseconds bound) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, bound, [&] { return complete_requests() >= count; });
}

size_t ScriptedModule::complete_requests() const
{
    return static_cast<size_t>(std::count_if(m_requests.begin(), m_requests.end(),
                                             [](const Request& request) { return request.complete; }));
}

void ScriptedModule::accept_all()
{
    while (wait_readable(m_listener, m_stop, kForever) == Wake::kReadable) {
        const int fd = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        const int on = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        std::lock_guard lock(m_mutex);
        ModuleAnswer answer = m_always;
        if (!m_next.empty()) {
            answer = std::move(m_next.front());
            m_next.pop_front();
        }
        const size_t index = m_requests.size();
        m_requests.emplace_back();
        join_ended();
        m_workers[index] =
            std::thread([this, fd, index, answer = std::move(answer)] { serve(fd, index, answer); });
    }
}

// With the lock held; a worker is done with it once it is listed here.
void ScriptedModule::join_ended()
{
    for (const size_t number : std::exchange(m_ended, {})) {
        m_workers[number].join();
        m_workers.erase(number);
    }
}

void ScriptedModule::serve(int fd, size_t index, const ModuleAnswer& answer)
{
    using Kind = ModuleAnswer::Kind;
    const bool reads = answer.kind != Kind::kGreet && answer.kind != Kind::kCloseAtOnce;
    std::string text = answer.text;
    if (reads) {
        std::string request = read_request(fd, answer.request_size);
        if (answer.make_text) {
            text = answer.make_text(request);
        }
        std::lock_guard lock(m_mutex);
        if (m_watcher) {
            m_watcher(request);
        }
        m_requests[index] = {true, std::move(request)};
        m_changed.notify_all();
    }
    if (answer.hold) {
        answer.hold();
    }
    switch (answer.kind) {
    case Kind::kReply:
        send_all(fd, text);
        break;
    case Kind::kGreet:
        send_all(fd, answer.text);
        wait_for_close(fd, kForever); // a close with unread bytes would be a RST, and could overtake the text
        break;
    case Kind::kReset: {
        const linger abort_now{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort_now, sizeof abort_now);
        break;
    }
    case Kind::kSilence:
        wait_for_close(fd, kForever);
        break;
    case Kind::kTwoSegments:
        send_all(fd, answer.text);
        wait_for_close(fd, kSecondSegmentBound);
        send_all(fd, answer.second);
        break;
    case Kind::kSlow:
        if (wait_readable(-1, m_stop, answer.delay) == Wake::kTimeout) {
            send_all(fd, answer.text);
        }
        break;
    case Kind::kCloseAtOnce:
        ::shutdown(fd, SHUT_WR);
        wait_for_close(fd, kForever); // as above: a RST would reach the peer in place of the end
        break;
    case Kind::kCloseMute:
        break;
    }
    ::close(fd);
    std::lock_guard lock(m_mutex);
    ++m_finished;
    m_ended.push_back(index);
    m_changed.notify_all();
}

std::string ScriptedModule::read_request(int fd, size_t size) const
{
    std::string text;
    char piece[65536];
    while (size != 0 ? text.size() < size : !text.ends_with('\n')) {
        if (wait_readable(fd, m_stop, kForever) != Wake::kReadable) {
            break;
        }
        const ssize_t n = ::recv(fd, piece, sizeof piece, 0);
        if (n <= 0) {
            break;
        }
        text.append(piece, static_cast<size_t>(n));
    }
    return text;
}

bool ScriptedModule::wait_for_close(int fd, std::chrono::milliseconds bound) const
{
    char piece[4096];
    while (wait_readable(fd, m_stop, bound) == Wake::kReadable) {
        if (::recv(fd, piece, sizeof piece, 0) <= 0) {
            return true;
        }
    }
    return false;
}

} // namespace orvan_test
