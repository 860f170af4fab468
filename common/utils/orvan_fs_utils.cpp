#include "orvan_fs_utils.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "fd.h"

using namespace orvan_common;

namespace {

constexpr mode_t kFileMode = 0644;
constexpr mode_t kFolderMode = 0755;

std::string folder_of(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool sync_folder(const std::string& folder)
{
    const UniqueFd fd = open_file(folder.c_str(), O_RDONLY | O_DIRECTORY);
    // Some file systems do not support it for folders and return EINVAL; there is then nothing to wait for.
    return fd && (sync_file(fd.get()) || errno == EINVAL);
}

// Opens for reading; no descriptor if it is not a regular file.
UniqueFd open_regular(const char* path, uintmax_t& length)
{
    // Opening a pipe without O_NONBLOCK would block until somebody writes to it.
    UniqueFd fd = open_file(path, O_RDONLY | O_NONBLOCK);
    struct stat info = {};
    if (!fd || ::fstat(fd.get(), &info) != 0) {
        return UniqueFd(-1);
    }
    if (!S_ISREG(info.st_mode)) {
        errno = EINVAL;
        return UniqueFd(-1);
    }
    length = static_cast<uintmax_t>(info.st_size);
    return fd;
}

bool is_kind(const std::string& path, int kind)
{
    struct stat info = {};
    switch (kind) {
    case FS_FIND_ANY:
        return true;
    case FS_FIND_FILE:
        return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
    case FS_FIND_DIR:
        return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    default:
        return false;
    }
}

bool is_later(const timespec& a, const timespec& b)
{
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

bool is_folder(const char* path)
{
    struct stat info = {};
    return ::stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

bool make_folder(const char* path, mode_t mode)
{
    if (::mkdir(path, mode) == 0) {
        return true;
    }
    // An existing folder is fine whatever the error: a read-only root fails before checking for it.
    const int reason = errno;
    if (is_folder(path)) {
        return true;
    }
    errno = reason;
    return false;
}

// True if all were removed; one that cannot be removed does not stop the others.
bool remove_all_of(const std::vector<std::filesystem::path>& entries)
{
    bool all_gone = true;
    for (const auto& entry : entries) {
        std::error_code error;
        std::filesystem::remove_all(entry, error);
        all_gone = all_gone && !error;
    }
    return all_gone;
}

} // namespace

OrvanFSUtils* OrvanFSUtils::getInstance()
{
    static OrvanFSUtils instance;
    return &instance;
}

bool OrvanFSUtils::ifFileExists(const char* path)
{
    struct stat info = {};
    return path != nullptr && ::lstat(path, &info) == 0;
}

uint32_t OrvanFSUtils::getFileLen(const char* path)
{
    struct stat info = {};
    if (path == nullptr || ::stat(path, &info) != 0 || !S_ISREG(info.st_mode)) {
        return 0;
    }
    return static_cast<uint32_t>(std::min<uintmax_t>(static_cast<uintmax_t>(info.st_size), UINT32_MAX));
}

bool OrvanFSUtils::readBufferFromFile(const char* path, void* buffer, size_t size)
{
    if (path == nullptr || (buffer == nullptr && size != 0)) {
        return false;
    }
    uintmax_t length = 0;
    const UniqueFd fd = open_regular(path, length);
    return fd && read_all(fd.get(), buffer, size);
}

bool OrvanFSUtils::readWholeFile(const char* path, std::string& contents, size_t limit)
try {
    if (path == nullptr) {
        return false;
    }
    uintmax_t length = 0;
    const UniqueFd fd = open_regular(path, length);
    if (!fd) {
        return false;
    }
    if (length > limit) {
        errno = EFBIG;
        return false;
    }
    std::string bytes(static_cast<size_t>(length), '\0');
    if (!read_all(fd.get(), bytes.data(), bytes.size())) {
        return false;
    }
    contents = std::move(bytes);
    return true;
} catch (const std::exception&) {
    return false;
}

bool OrvanFSUtils::replaceFile(const char* path, const void* data, size_t length)
try {
    if (path == nullptr || (data == nullptr && length != 0)) {
        return false;
    }
    const std::string folder = folder_of(path);
    // The temporary name shares nothing with the file's: searches by a word in the name must not find
    // what a power failure leaves behind.
    std::string draft = folder + "/.new-XXXXXX";
    const UniqueFd fd(::mkostemp(draft.data(), O_CLOEXEC));
    if (!fd) {
        return false;
    }
    if (::fchmod(fd.get(), kFileMode) == 0 && write_all(fd.get(), data, length) && sync_file(fd.get()) &&
        ::rename(draft.c_str(), path) == 0) {
        return sync_folder(folder);
    }
    const int reason = errno;
    ::unlink(draft.c_str());
    errno = reason;
    return false;
} catch (const std::exception&) {
    return false;
}

bool OrvanFSUtils::saveBufferToFile(const char* path, const void* data, size_t length)
try {
    return path != nullptr && mkdir_recursive(folder_of(path).c_str(), kFolderMode) == 0 &&
           replaceFile(path, data, length);
} catch (const std::exception&) {
    return false;
}

bool OrvanFSUtils::createFileName(const char* path)
{
    return path != nullptr && open_file(path, O_WRONLY | O_CREAT | O_TRUNC, kFileMode);
}

bool OrvanFSUtils::writeTxtLineToFile(const char* path, const char* line)
try {
    if (path == nullptr || line == nullptr) {
        return false;
    }
    const UniqueFd fd = open_file(path, O_WRONLY | O_CREAT | O_APPEND, kFileMode);
    const std::string text = std::string(line) + '\n';
    return fd && write_all(fd.get(), text.data(), text.size()) && sync_file(fd.get()) &&
           sync_folder(folder_of(path));
} catch (const std::exception&) {
    return false;
}

int OrvanFSUtils::mkdir_recursive(const char* path, mode_t mode)
try {
    if (path == nullptr || *path == '\0') {
        return -1;
    }
    const std::string whole = path;
    for (size_t end = 0; end != std::string::npos;) {
        end = whole.find('/', end + 1);
        if (!make_folder(whole.substr(0, end).c_str(), mode)) {
            return -1;
        }
    }
    return 0;
} catch (const std::exception&) {
    return -1;
}

bool OrvanFSUtils::findFirstFileContaining(const char* dir, const char* word, char* out, size_t outSize,
                                           int kind)
try {
    if (dir == nullptr || word == nullptr || out == nullptr) {
        return false;
    }
    std::string found;
    timespec newest = {};
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        struct stat info = {};
        if (name.find(word) == std::string::npos || !is_kind(entry.path().string(), kind) ||
            ::lstat(entry.path().c_str(), &info) != 0) {
            continue;
        }
        const bool older = is_later(newest, info.st_ctim);
        if (found.empty() || is_later(info.st_ctim, newest) || (!older && name < found)) {
            found = name;
            newest = info.st_ctim;
        }
    }
    if (found.empty()) {
        return false;
    }
    const std::string path = (std::filesystem::path(dir) / found).string();
    if (path.size() >= outSize) {
        return false;
    }
    std::memcpy(out, path.c_str(), path.size() + 1);
    return true;
} catch (const std::exception&) {
    return false;
}

int OrvanFSUtils::delete_files_in_dir(const char* path)
try {
    if (path == nullptr) {
        return -1;
    }
    // Collect the names first: what an open folder yields while entries are removed is unspecified.
    std::vector<std::filesystem::path> folders;
    std::vector<std::filesystem::path> others;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        std::error_code error;
        const bool folder = entry.symlink_status(error).type() == std::filesystem::file_type::directory;
        (folder ? folders : others).push_back(entry.path());
    }
    const bool folders_gone = remove_all_of(folders);
    sync_folder(path);
    return remove_all_of(others) && folders_gone ? 0 : -1;
} catch (const std::exception&) {
    return -1;
}
