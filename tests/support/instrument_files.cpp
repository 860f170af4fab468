#include "instrument_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "next_symbol.h"

namespace {

using orvan_test::InstrumentFiles;
using orvan_test::next_symbol;

constexpr std::string_view kHalde = "/home/orvan/halde/";
constexpr std::string_view kObject = "/orvanData";

// Set before the code under test starts threads.
const InstrumentFiles* g_files = nullptr;
InstrumentFiles::Fault g_fault = InstrumentFiles::Fault::kNone;

std::mutex g_opened_mutex;
std::vector<std::string> g_opened;

// The path that a name of the code under test leads to; `storage` holds it when it is another one.
const char* led(const char* path, std::string& storage)
{
    if (g_files == nullptr || !std::string_view(path).starts_with(kHalde)) {
        return path;
    }
    storage = g_files->halde() / (path + kHalde.size());
    return storage.c_str();
}

} // namespace

extern "C" int open(const char* path, int flags, ...)
{
    static auto* const real = next_symbol<int(const char*, int, ...)>("open64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    std::string storage;
    const char* const place = led(path, storage);
    if (place != path) {
        const std::lock_guard lock(g_opened_mutex);
        g_opened.emplace_back(path + kHalde.size());
    }
    return real(place, flags, mode);
}

extern "C" int access(const char* path, int mode) noexcept
{
    static auto* const real = next_symbol<int(const char*, int)>("access");
    std::string storage;
    return real(led(path, storage), mode);
}

extern "C" int unlink(const char* path) noexcept
{
    static auto* const real = next_symbol<int(const char*)>("unlink");
    std::string storage;
    return real(led(path, storage));
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    static auto* const real = next_symbol<int(const char*, const char*)>("rename");
    std::string storage[2];
    return real(led(from, storage[0]), led(to, storage[1]));
}

extern "C" int mkostemp(char* name, int flags)
{
    static auto* const real = next_symbol<int(char*, int)>("mkostemp64");
    std::string storage;
    if (led(name, storage) == name) {
        return real(name, flags);
    }
    const int fd = real(storage.data(), flags);
    constexpr size_t kRandom = 6;
    std::memcpy(name + std::strlen(name) - kRandom, storage.data() + storage.size() - kRandom, kRandom);
    return fd;
}

extern "C" int shm_open(const char* name, int flags, mode_t mode)
{
    static auto* const real = next_symbol<int(const char*, int, mode_t)>("shm_open");
    if (g_files == nullptr || name != kObject) {
        return real(name, flags, mode);
    }
    const std::string object = g_files->object();
    if (g_fault == InstrumentFiles::Fault::kOpen) {
        errno = EACCES;
        return -1;
    }
    const int fd = real(object.c_str(), flags, mode);
    if (fd < 0 || g_fault == InstrumentFiles::Fault::kNone) {
        return fd;
    }
    ::close(fd);
    return ::open(("/dev/shm" + object).c_str(),
                  g_fault == InstrumentFiles::Fault::kAllocate ? O_RDONLY : O_WRONLY);
}

extern "C" int shm_unlink(const char* name)
{
    static auto* const real = next_symbol<int(const char*)>("shm_unlink");
    return real(g_files != nullptr && name == kObject ? g_files->object().c_str() : name);
}

namespace orvan_test {

InstrumentFiles::InstrumentFiles() : m_object("/orvanData-" + std::to_string(::getpid()))
{
    std::string folder = (std::filesystem::temp_directory_path() / "orvan-halde-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    m_halde = folder;
    std::filesystem::create_directory(m_halde / "json");
    for (const char* channel : {"1", "2", "3", "4"}) {
        std::filesystem::create_directories(m_halde / "preset" / channel);
    }
    g_files = this;
}

InstrumentFiles::~InstrumentFiles()
{
    g_files = nullptr;
    g_fault = Fault::kNone;
    shm_unlink(m_object.c_str());
    std::filesystem::remove_all(m_halde);
    if (!m_path.empty()) {
        ::setenv("PATH", m_path.c_str(), 1);
    }
}

void InstrumentFiles::write_factory_setup(const std::string& json)
{
    std::ofstream(m_halde / "json/ch0.json") << json;
}

std::filesystem::path InstrumentFiles::preset(int channel, int setup) const
{
    return m_halde / "preset" / std::to_string(channel) / ("preset-" + std::to_string(setup) + ".json");
}

void InstrumentFiles::write_preset(int channel, int setup, const std::string& json)
{
    std::ofstream(preset(channel, setup)) << json;
}

size_t InstrumentFiles::opened(const std::string& name) const
{
    const std::lock_guard lock(g_opened_mutex);
    return static_cast<size_t>(std::count(g_opened.begin(), g_opened.end(), name));
}

void InstrumentFiles::set_fault(Fault fault)
{
    g_fault = fault;
}

long InstrumentFiles::object_size() const
{
    struct stat info = {};
    return ::stat(("/dev/shm" + m_object).c_str(), &info) == 0 ? static_cast<long>(info.st_size) : -1;
}

void InstrumentFiles::stand_in_for_sudo(const std::string& script)
{
    const std::filesystem::path folder = m_halde / "stand-ins";
    std::filesystem::create_directories(folder);
    const std::filesystem::path file = folder / "sudo";
    std::ofstream(file) << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    if (m_path.empty()) {
        m_path = std::getenv("PATH");
        ::setenv("PATH", (folder.string() + ":" + m_path).c_str(), 1);
    }
}

} // namespace orvan_test
