#include "process.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sys/resource.h>
#include <syslog.h>

namespace orvan_service {

size_t raise_descriptor_limit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    const rlim_t wanted = std::min<rlim_t>(limit.rlim_max, kMostDescriptors);
    if (limit.rlim_cur != wanted) {
        limit.rlim_cur = wanted;
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            ::syslog(LOG_WARNING, "limit of open descriptors: %s", std::strerror(errno));
            ::getrlimit(RLIMIT_NOFILE, &limit);
        }
    }
    return static_cast<size_t>(std::min<rlim_t>(limit.rlim_cur, SIZE_MAX));
}

void limit_thread_stacks()
{
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, kThreadStack);
    if (const int error = ::pthread_setattr_default_np(&attributes); error != 0) {
        ::syslog(LOG_WARNING, "stack of threads: %s", std::strerror(error));
    }
    ::pthread_attr_destroy(&attributes);
}

void open_log(int level, bool to_stderr)
{
    ::openlog("orvan-service", LOG_PID | (to_stderr ? LOG_PERROR : 0), LOG_DAEMON);
    ::setlogmask(LOG_UPTO(level));
}

void leave(int exit_code)
{
    std::fflush(stdout);
    std::_Exit(exit_code);
}

} // namespace orvan_service
