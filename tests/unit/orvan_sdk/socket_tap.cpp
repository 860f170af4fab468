#include "socket_tap.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <mutex>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/next_symbol.h"

using orvan_test::next_symbol;

namespace {

struct Bend {
    size_t limit;
    int error;
};

struct Tap {
    std::mutex mutex;
    bool active = false;
    int fd = orvan_test::SocketTap::kAnyDescriptor;
    std::vector<std::string> calls;
    std::deque<Bend> bends;
    int level = -1;
    int name = -1;
    int option_error = 0;

    bool watches(int descriptor) const
    {
        return active && (fd == orvan_test::SocketTap::kAnyDescriptor || fd == descriptor);
    }
};

Tap& tap()
{
    static Tap* instance = new Tap;
    return *instance;
}

} // namespace

extern "C" ssize_t write(int fd, const void* data, size_t len)
{
    static auto* const real = next_symbol<ssize_t(int, const void*, size_t)>("write");
    std::unique_lock lock(tap().mutex);
    if (!tap().watches(fd)) {
        lock.unlock();
        return real(fd, data, len);
    }
    Bend bend{len, 0};
    if (!tap().bends.empty()) {
        bend = tap().bends.front();
        tap().bends.pop_front();
    }
    errno = bend.error;
    const ssize_t n = bend.error != 0 ? -1 : real(fd, data, std::min(len, bend.limit));
    tap().calls.push_back("write " + std::to_string(n));
    return n;
}

extern "C" int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept
{
    static auto* const real = next_symbol<int(int, int, int, const void*, socklen_t)>("setsockopt");
    std::unique_lock lock(tap().mutex);
    if (tap().watches(fd)) {
        if (level == IPPROTO_TCP && name == TCP_CORK) {
            tap().calls.push_back("TCP_CORK=" + std::to_string(*static_cast<const int*>(value)));
        }
        if (level == tap().level && name == tap().name) {
            errno = tap().option_error;
            return -1;
        }
    }
    lock.unlock();
    return real(fd, level, name, value, size);
}

namespace orvan_test {

SocketTap::SocketTap(int fd)
{
    std::lock_guard lock(tap().mutex);
    tap().active = true;
    tap().fd = fd;
}

SocketTap::~SocketTap()
{
    std::lock_guard lock(tap().mutex);
    tap().active = false;
    tap().calls.clear();
    tap().bends.clear();
    tap().level = tap().name = -1;
}

std::vector<std::string> SocketTap::calls() const
{
    std::lock_guard lock(tap().mutex);
    return tap().calls;
}

void SocketTap::shorten_write(size_t bytes)
{
    std::lock_guard lock(tap().mutex);
    tap().bends.push_back({bytes, 0});
}

void SocketTap::fail_write(int error)
{
    std::lock_guard lock(tap().mutex);
    tap().bends.push_back({0, error});
}

void SocketTap::fail_option(int level, int name, int error)
{
    std::lock_guard lock(tap().mutex);
    tap().level = level;
    tap().name = name;
    tap().option_error = error;
}

} // namespace orvan_test
