#include "ip_program.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <unique_fd.h>

using orvan_common::UniqueFd;

namespace orvan_sandbox {

namespace {

std::string content(int fd)
{
    char text[400];
    const ssize_t count = ::pread(fd, text, sizeof text, 0);
    std::string line(text, count > 0 ? static_cast<size_t>(count) : 0);
    while (!line.empty() && line.back() == '\n') {
        line.pop_back();
    }
    for (char& letter : line) {
        letter = letter == '\n' ? ';' : letter;
    }
    return line;
}

} // namespace

std::string find_system_program(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::istringstream folders(std::string(path != nullptr ? path : "") + ":/usr/sbin:/sbin:/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = folder + '/' + name;
        if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return "";
}

Failure run_ip_batch(const std::string& batch, int network_fd)
{
    const std::string program = find_system_program("ip");
    if (program.empty()) {
        return Error{"looking for the program ip", 0, "not found", "install the package iproute2", false};
    }
    const UniqueFd input(::memfd_create("ip-batch", MFD_CLOEXEC));
    const UniqueFd output(::memfd_create("ip-errors", MFD_CLOEXEC));
    if (!input || !output ||
        ::pwrite(input.get(), batch.data(), batch.size(), 0) != static_cast<ssize_t>(batch.size())) {
        return system_failure("preparing a batch for ip");
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
        return system_failure("starting ip");
    }
    if (pid == 0) {
        if (::setns(network_fd, CLONE_NEWNET) != 0 || ::dup2(input.get(), 0) < 0 ||
            ::dup2(output.get(), 1) < 0 || ::dup2(output.get(), 2) < 0) {
            ::_exit(126);
        }
        ::execl(program.c_str(), "ip", "-batch", "-", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return std::nullopt;
    }
    Error error{"setting up the network with ip", 0, content(output.get()), "", false};
    if (error.detail.find("Unknown device type") != std::string::npos ||
        error.detail.find("Operation not supported") != std::string::npos) {
        error.refused = true;
        error.hint = "the kernel has no veth devices; 'modprobe veth' may load them";
    }
    return error;
}

} // namespace orvan_sandbox
