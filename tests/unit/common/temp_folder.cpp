#include "temp_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace fs = std::filesystem;

TempFolder::TempFolder()
{
    std::string name = (fs::temp_directory_path() / "orvan-common-XXXXXX").string();
    m_path = mkdtemp(name.data());
}

TempFolder::~TempFolder()
{
    if (!m_mounted.empty()) {
        ::umount2(m_mounted.c_str(), MNT_DETACH);
    }
    std::error_code error;
    fs::remove_all(m_path, error);
}

std::vector<std::string> TempFolder::names() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string TempFolder::mount_small(size_t bytes, const std::string& name)
{
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(CLONE_NEWNS) != 0) {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            return std::string("no mount namespace: ") + std::strerror(errno);
        }
        write_file("/proc/self/setgroups", "deny");
        write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        write_file("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    const std::string place = name.empty() ? m_path : *this / name;
    const std::string size = "size=" + std::to_string(bytes);
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", place.c_str(), "tmpfs", 0, size.c_str()) != 0) {
        return std::string("no file system of its own: ") + std::strerror(errno);
    }
    m_mounted = place;
    return {};
}

bool TempFolder::make_read_only()
{
    return ::mount("none", m_mounted.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}
