#include "file_calls_tap.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <sys/file.h>
#include <unistd.h>

namespace orvan_test {

std::string g_failing;
std::vector<std::string> g_calls;
bool g_recording = false;

} // namespace orvan_test

using namespace orvan_test;

namespace {

bool fails(const char* name)
{
    if (g_failing != name) {
        return false;
    }
    errno = EIO;
    return true;
}

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These override the C library's for the whole program.
extern "C" int flock(int fd, int operation) noexcept
{
    if (g_recording) {
        g_calls.push_back("flock " + std::to_string(operation));
    }
    return fails("flock") ? -1 : next<int(int, int)>("flock")(fd, operation);
}

extern "C" long ftell(FILE* file)
{
    if (fails("ftell")) {
        return -1;
    }
    return next<long(FILE*)>("ftell")(file) + (g_failing == "longer ftell" ? 5 : 0);
}

extern "C" int fsync(int fd)
{
    if (g_recording) {
        g_calls.push_back("fsync " +
                          std::to_string(std::filesystem::file_size("/proc/self/fd/" + std::to_string(fd))));
    }
    return next<int(int)>("fsync")(fd);
}
