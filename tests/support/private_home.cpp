#include "support/private_home.h"

#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <linux/magic.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "support/namespaces.h"

namespace orvan_test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHome = "/home";
constexpr const char* kOrvan = "/home/orvan";

std::string make_namespace()
{
    return enter_namespace(CLONE_NEWNS) ? "" : failure("no mount namespace");
}

std::string cover_home()
{
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return failure("mounts can't be made private");
    }

    struct Entry {
        fs::path path;
        int fd; // reaches what will be covered
    };
    std::vector<Entry> entries;
    for (const auto& entry : fs::directory_iterator(kHome)) {
        if (entry.is_directory() && !entry.is_symlink() && entry.path() != kOrvan) {
            entries.push_back({entry.path(), ::open(entry.path().c_str(), O_PATH | O_CLOEXEC)});
        }
    }

    std::string refusal;
    if (::mount("tmpfs", kHome, "tmpfs", 0, "mode=755") != 0) {
        refusal = failure("no file system in memory");
    }
    for (const Entry& entry : entries) {
        const std::string from = "/proc/self/fd/" + std::to_string(entry.fd);
        if (refusal.empty() &&
            (!fs::create_directory(entry.path) ||
             ::mount(from.c_str(), entry.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)) {
            refusal = failure(("binding " + entry.path.string()).c_str());
        }
        ::close(entry.fd);
    }
    return refusal;
}

const std::string& enter_once()
{
    static const std::string refusal = [] {
        const std::string refused = make_namespace();
        return refused.empty() ? cover_home() : refused;
    }();
    return refusal;
}

// The machine's own home must never be touched.
void remove_orvan()
{
    struct statfs info = {};
    if (::statfs(kHome, &info) == 0 && info.f_type == TMPFS_MAGIC) {
        fs::remove_all(kOrvan);
    }
}

} // namespace

PrivateHome::PrivateHome() : m_refusal(enter_once())
{
    if (m_refusal.empty()) {
        remove_orvan();
    }
}

PrivateHome::~PrivateHome()
{
    if (m_refusal.empty()) {
        remove_orvan();
    }
}

} // namespace orvan_test
