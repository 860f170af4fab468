#include "scpi_link.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>

#include "unix_socket.h"
#include <scpi/extensions.h>

namespace orvan_web {
namespace {

constexpr std::string_view kErrorQuery = "\n:SYST:ERR:SESS?\n";
constexpr std::chrono::milliseconds kFirstPause{100};
constexpr size_t kMostInput = size_t{4} << 20; // no response is longer than that

} // namespace

bool Answer::module_failed() const
{
    return std::any_of(errors.begin(), errors.end(), [](const ScpiError& error) {
        return error.number == -241 || error.number == -360 || error.number == -365;
    });
}

bool is_one_message(std::string_view text)
{
    const std::string line = std::string(text) + '\n';
    scpi_framer_t framer;
    SCPI_FramerReset(&framer);
    return SCPI_FramerScan(&framer, line.data(), line.size()) == line.size();
}

std::string for_channel(int channel, std::string_view text)
{
    return ":INST " + std::to_string(channel) + ";" + std::string(text);
}

ScpiLink::ScpiLink(InstrumentLoop& loop, std::string path, std::function<void(bool)> changed)
    : m_loop(loop), m_path(std::move(path)), m_changed(std::move(changed))
{
}

ScpiLink::~ScpiLink()
{
    if (m_socket) {
        m_loop.unwatch(m_socket.get());
    }
    m_loop.cancel(m_retry);
    m_loop.cancel(m_deadline);
}

void ScpiLink::start()
{
    connect();
}

void ScpiLink::ask(std::string message, Done done, std::chrono::seconds patience)
{
    if (!m_socket || m_pending.size() >= kMostWaiting) {
        Answer answer;
        answer.outcome = m_socket ? Answer::Outcome::kBusy : Answer::Outcome::kUnreachable;
        m_loop.post([done = std::move(done), answer] { done(answer); });
        return;
    }
    m_pending.push_back({std::move(message), std::move(done), patience});
    send_more();
}

void ScpiLink::connect()
{
    m_retry = 0;
    m_socket = connect_unix(m_path);
    if (!m_socket) {
        m_pause = std::clamp<std::chrono::milliseconds>(2 * m_pause, kFirstPause, kLongestPause);
        m_retry = m_loop.after(m_pause, [this] { connect(); });
        return;
    }
    ::syslog(LOG_INFO, "connected to the service");
    watch();
    m_changed(true);
}

void ScpiLink::lose(Answer::Outcome of_first)
{
    m_loop.unwatch(m_socket.get());
    m_loop.cancel(m_deadline);
    m_socket.reset();
    m_output.clear();
    m_input.clear();
    m_scanned = 0;
    m_framer = {};
    m_sent = 0;
    ::syslog(LOG_WARNING, "%s",
             of_first == Answer::Outcome::kTimeout ? "the service does not answer; connecting again"
                                                   : "the connection to the service is lost");
    for (Pending& pending : std::exchange(m_pending, {})) {
        Answer answer;
        answer.outcome = std::exchange(of_first, Answer::Outcome::kUnreachable);
        m_loop.post([done = std::move(pending.done), answer] { done(answer); });
    }
    m_loop.post([this] { m_changed(reachable()); });
    m_retry = m_loop.after(m_pause, [this] { connect(); });
}

void ScpiLink::send_more()
{
    for (; m_sent < m_pending.size() && m_sent < kInFlight; ++m_sent) {
        Pending& next = m_pending[m_sent];
        m_output += next.message;
        m_output += kErrorQuery;
        next.sent = InstrumentLoop::Clock::now();
        if (m_sent == 0) {
            rearm();
        }
    }
    write();
}

// Bytes that the socket does not take now are sent when it is ready.
void ScpiLink::write()
{
    while (!m_output.empty()) {
        const ssize_t count = ::send(m_socket.get(), m_output.data(), m_output.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            break; // full; or lost, which is noticed by receive()
        }
        m_output.erase(0, static_cast<size_t>(count));
    }
    watch();
}

void ScpiLink::watch()
{
    const short events = m_output.empty() ? POLLIN : POLLIN | POLLOUT;
    m_loop.watch(m_socket.get(), events, [this](short ready) {
        if ((ready & POLLOUT) != 0) {
            write();
        }
        if ((ready & ~POLLOUT) != 0) {
            receive();
        }
    });
}

void ScpiLink::rearm()
{
    m_loop.cancel(m_deadline);
    m_deadline = 0;
    if (!m_pending.empty()) {
        m_deadline = m_loop.after(m_pending.front().patience, [this] { lose(Answer::Outcome::kTimeout); });
    }
}

void ScpiLink::receive()
{
    char bytes[16384];
    const ssize_t count = ::recv(m_socket.get(), bytes, sizeof bytes, 0);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
        return;
    }
    if (count <= 0 || m_input.size() > kMostInput) {
        lose(Answer::Outcome::kUnreachable);
        return;
    }
    m_input.append(bytes, static_cast<size_t>(count));
    while (const size_t found = m_framer.scan(std::string_view(m_input).substr(m_scanned))) {
        const size_t end = m_scanned + found;
        std::string line = m_input.substr(0, end - 1);
        m_input.erase(0, end);
        m_scanned = 0;
        take(std::move(line));
    }
    m_scanned = m_input.size();
}

void ScpiLink::take(std::string line)
{
    if (m_sent == 0) {
        return; // not asked for
    }
    Pending& first = m_pending.front();
    first.lines.push_back(std::move(line));
    if (first.lines.size() < 2) {
        return;
    }
    m_pause = {}; // the service is well
    Answer answer;
    answer.outcome = Answer::Outcome::kAnswered;
    answer.errors = read_errors(first.lines[1]);
    answer.response = std::move(first.lines[0]);
    answer.duration =
        std::chrono::duration_cast<std::chrono::microseconds>(InstrumentLoop::Clock::now() - first.sent);
    m_loop.post([done = std::move(first.done), answer = std::move(answer)] { done(answer); });
    m_pending.pop_front();
    if (--m_sent > 0) {
        m_pending.front().sent = InstrumentLoop::Clock::now(); // it had to wait until now
    }
    rearm();
    send_more();
}

} // namespace orvan_web
