#include <cerrno>
#include <cstring>
#include <fstream>

#include "failure.h"

namespace orvan_sandbox {

namespace {

struct Setting {
    const char* path;
    int refusing_value;
    const char* hint;
};

constexpr Setting kSettings[] = {
    {"/proc/sys/user/max_user_namespaces", 0, "set sysctl user.max_user_namespaces above 0"},
    {"/proc/sys/kernel/unprivileged_userns_clone", 0, "set sysctl kernel.unprivileged_userns_clone=1"},
    {"/proc/sys/kernel/apparmor_restrict_unprivileged_userns", 1,
     "set sysctl kernel.apparmor_restrict_unprivileged_userns=0"},
};

std::string hint_from_settings()
{
    for (const Setting& setting : kSettings) {
        std::ifstream file(setting.path);
        int value = 0;
        if (file >> value && value == setting.refusing_value) {
            return setting.hint;
        }
    }
    return "in a container, its seccomp profile has to allow clone, unshare, setns and mount";
}

bool is_refusal(int code)
{
    return code == EPERM || code == EACCES || code == ENOSPC || code == EUSERS || code == ENOSYS;
}

} // namespace

std::string Error::text() const
{
    std::string line = step;
    if (code != 0) {
        line += std::string(": ") + std::strerror(code);
    }
    if (!detail.empty()) {
        line += ": " + detail;
    }
    if (!hint.empty()) {
        line += " (" + hint + ")";
    }
    return line;
}

Error system_failure(std::string step)
{
    Error error;
    error.code = errno;
    error.step = std::move(step);
    return error;
}

Error namespace_failure(std::string step)
{
    Error error = system_failure(std::move(step));
    error.refused = is_refusal(error.code);
    if (error.refused) {
        error.hint = hint_from_settings();
    }
    return error;
}

} // namespace orvan_sandbox
