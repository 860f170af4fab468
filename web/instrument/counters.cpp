#include "counters.h"

#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#include "unix_socket.h"

namespace orvan_web {
namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr size_t kMostText = size_t{1} << 20;

std::shared_ptr<const Counters> read_counters(const std::string& text)
{
    Json document = parse_json(text);
    if (cJSON_IsObject(document.get()) == 0) {
        return nullptr;
    }
    auto counters = std::make_shared<Counters>();
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItemCaseSensitive(document.get(), "modules"))
    {
        counters->modules.push_back({static_cast<int>(number_member(entry, "module")),
                                     number_member(entry, "requests"), number_member(entry, "timeouts"),
                                     number_member(entry, "link_errors"), bool_member(entry, "failed")});
    }
    counters->document = std::move(document);
    return counters;
}

} // namespace

const ModuleCounters* Counters::module(int channel) const
{
    for (const ModuleCounters& entry : modules) {
        if (entry.module == channel) {
            return &entry;
        }
    }
    return nullptr;
}

CountersClient::~CountersClient()
{
    if (m_socket) {
        m_loop.unwatch(m_socket.get());
    }
    m_loop.cancel(m_deadline);
}

void CountersClient::fetch(Done done)
{
    m_next.push_back(std::move(done));
    if (!m_socket) {
        begin();
    }
}

void CountersClient::begin()
{
    m_current = std::exchange(m_next, {});
    m_text.clear();
    m_socket = connect_unix(m_path);
    if (!m_socket) {
        finish(nullptr);
        return;
    }
    m_loop.watch(m_socket.get(), POLLIN, [this](short) { receive(); });
    m_deadline = m_loop.after(kPatience, [this] { finish(nullptr); });
}

void CountersClient::receive()
{
    char bytes[16384];
    const ssize_t count = ::recv(m_socket.get(), bytes, sizeof bytes, 0);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
        return;
    }
    if (count > 0 && m_text.size() < kMostText) {
        m_text.append(bytes, static_cast<size_t>(count));
        return;
    }
    finish(count == 0 ? &m_text : nullptr);
}

void CountersClient::finish(const std::string* text)
{
    if (m_socket) {
        m_loop.unwatch(m_socket.get());
        m_socket.reset();
    }
    m_loop.cancel(m_deadline);
    const std::shared_ptr<const Counters> counters = text != nullptr ? read_counters(*text) : nullptr;
    m_loop.post([waiting = std::exchange(m_current, {}), counters] {
        for (const Done& done : waiting) {
            done(counters);
        }
    });
    if (!m_next.empty()) {
        begin();
    }
}

} // namespace orvan_web
