#include "readdir_tap.h"

#include <atomic>
#include <cerrno>

#include <dirent.h>
#include <dlfcn.h>

namespace {

std::atomic<int> g_error = 0;

} // namespace

// With 64-bit offsets this is the C library's readdir64().
extern "C" dirent* readdir(DIR* folder)
{
    static auto* const real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir64"));
    if (g_error == 0) {
        return real(folder);
    }
    errno = g_error;
    return nullptr;
}

namespace orvan_test {

void fail_readdir(int error)
{
    g_error = error;
}

} // namespace orvan_test
