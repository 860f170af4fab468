#include "local_socket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

using orvan_common::UniqueFd;

namespace orvan_service {
namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kSocketMode = 0660;
constexpr std::chrono::milliseconds kOutOfDescriptorsPause{100};

UniqueFd new_socket()
{
    return UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

[[noreturn]] void fail(const std::string& path, int error)
{
    throw std::runtime_error("cannot listen on " + path + ": " + std::strerror(error));
}

/** A socket file of a process that has ended. */
bool is_left_over(const sockaddr_un& name)
{
    struct stat status {};
    if (::lstat(name.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return false;
    }
    const UniqueFd probe = new_socket();
    return ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 &&
           errno == ECONNREFUSED;
}

/** Without the group the socket is for the service's own user. */
void give_to_group(const std::string& path)
{
    const group* const users = ::getgrnam(LocalSocket::kGroup);
    if (users != nullptr && ::chown(path.c_str(), static_cast<uid_t>(-1), users->gr_gid) != 0) {
        ::syslog(LOG_INFO, "%s: not for group %s: %s", path.c_str(), users->gr_name, std::strerror(errno));
    }
}

} // namespace

LocalSocket::LocalSocket(const std::string& folder, const std::string& name)
    : m_path(folder + '/' + name), m_socket(new_socket())
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_path.size() >= sizeof address.sun_path) {
        fail(m_path, ENAMETOOLONG);
    }
    m_path.copy(address.sun_path, m_path.size());
    if (::mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        fail(m_path, errno);
    }
    if (is_left_over(address)) {
        ::unlink(m_path.c_str());
    }
    if (::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail(m_path, errno);
    }
    // Nobody can connect before the group and the mode are set.
    give_to_group(m_path);
    struct stat status {};
    if (::chmod(m_path.c_str(), kSocketMode) != 0 || ::lstat(m_path.c_str(), &status) != 0 ||
        ::listen(m_socket.get(), SOMAXCONN) != 0) {
        fail(m_path, errno);
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
}

LocalSocket::~LocalSocket()
{
    end();
}

pollfd LocalSocket::waiting()
{
    if (m_pause_end <= Clock::now()) {
        m_pause_end = Clock::time_point::max();
    }
    return {m_pause_end == Clock::time_point::max() ? m_socket.get() : -1, POLLIN, 0};
}

UniqueFd LocalSocket::accept()
{
    UniqueFd client(::accept4(m_socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)) {
        ::syslog(LOG_ERR, "%s: accept: %s", m_path.c_str(), std::strerror(errno));
        m_pause_end = Clock::now() + kOutOfDescriptorsPause;
    }
    return client;
}

void LocalSocket::end()
{
    // By then the name may be another process's.
    struct stat status {};
    if (m_socket && ::lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device &&
        status.st_ino == m_inode) {
        ::unlink(m_path.c_str());
    }
    m_socket = UniqueFd();
}

} // namespace orvan_service
