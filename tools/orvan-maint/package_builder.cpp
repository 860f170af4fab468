#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <sys/stat.h>

#include "blocks.h"
#include "failure.h"
#include "frame.h"
#include "gzip.h"
#include "package.h"
#include "tar_writer.h"

namespace orvan_maint {
namespace {

namespace fs = std::filesystem;

// A compressed package has to be smaller than this anyway, unless it is nearly empty.
constexpr uintmax_t kLargestFolder = uintmax_t{1} << 30;

struct stat status_of(const fs::path& path)
{
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        throw Failure(kExitBadFile, path.string() + " cannot be read");
    }
    return info;
}

std::string read_file(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw Failure(kExitBadFile, path.string() + " cannot be read");
    }
    return bytes;
}

std::vector<fs::path> entries_of(const std::string& folder)
{
    if (!fs::is_directory(folder)) {
        throw Failure(kExitBadFile, printable(folder) + ": there is no such folder");
    }
    std::vector<fs::path> entries;
    uintmax_t size = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        entries.push_back(entry.path());
        size += entry.is_regular_file() && !entry.is_symlink() ? entry.file_size() : 0;
        if (size > kLargestFolder) {
            throw Failure(kExitBadFile, printable(folder) + " is too large for a package");
        }
    }
    if (entries.empty()) {
        throw Failure(kExitBadFile, printable(folder) + " is empty");
    }
    // The same folder always results in the same archive.
    std::sort(entries.begin(), entries.end());
    return entries;
}

std::string controller_archive(const std::string& patch)
try {
    const std::vector<fs::path> entries = entries_of(patch);
    TarWriter archive;
    archive.add_folder("patch", 0755, status_of(patch).st_mtime);
    for (const fs::path& path : entries) {
        const struct stat info = status_of(path);
        const unsigned mode = info.st_mode & 07777;
        const std::string name = "patch/" + path.lexically_relative(patch).string();
        if (S_ISDIR(info.st_mode)) {
            archive.add_folder(name, mode, info.st_mtime);
        } else if (S_ISREG(info.st_mode)) {
            archive.add_file(name, read_file(path), mode, info.st_mtime);
        } else if (S_ISLNK(info.st_mode)) {
            archive.add_symbolic_link(name, fs::read_symlink(path).string(), info.st_mtime);
        } else {
            throw Failure(kExitBadFile, printable(path.string()) + " is not a file, folder or link");
        }
    }
    return archive.finish();
} catch (const fs::filesystem_error& error) {
    throw Failure(kExitBadFile, error.what());
}

} // namespace

std::string build_package(const Platform& platform, const std::string& module, const std::string& patch)
{
    const std::string folder = platform.folder;
    const std::string software = read_download(module);
    const int64_t time = status_of(module).st_mtime;
    TarWriter package;
    package.add_folder(folder, 0755, time);
    package.add_file(folder + "/" + kModuleName, software, 0644, time);
    package.add_file(folder + "/" + controller_name(platform), controller_archive(patch), 0644, time);
    return gzip(package.finish());
}

} // namespace orvan_maint
