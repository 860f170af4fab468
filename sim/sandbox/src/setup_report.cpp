#include "setup_report.h"

#include <cerrno>
#include <cstdio>
#include <type_traits>

#include <unistd.h>

namespace orvan_sandbox {

static_assert(std::is_trivially_copyable_v<SetupReport> && sizeof(SetupReport) <= 4096);

void SetupReport::set(const Error& error)
{
    failed = true;
    refused = error.refused;
    code = error.code;
    std::snprintf(step, sizeof step, "%s", error.step.c_str());
    std::snprintf(detail, sizeof detail, "%s", error.detail.c_str());
    std::snprintf(hint, sizeof hint, "%s", error.hint.c_str());
}

Error SetupReport::error() const
{
    return Error{step, code, detail, hint, refused};
}

bool send_report(int fd, const SetupReport& report)
{
    ssize_t count = 0;
    do {
        count = ::write(fd, &report, sizeof report);
    } while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(sizeof report);
}

bool receive_report(int fd, SetupReport& report)
{
    ssize_t count = 0;
    do {
        count = ::read(fd, &report, sizeof report);
    } while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(sizeof report);
}

} // namespace orvan_sandbox
