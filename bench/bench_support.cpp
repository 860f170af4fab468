#include "bench_support.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <signal.h>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvan_bench {
namespace {

constexpr int kPassedSocket = 3;

std::filesystem::path beside_this_program(const std::string& program)
{
    if (program.find('/') != std::string::npos) {
        return program;
    }
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / program;
}

} // namespace

void pin_to_cpu(int cpu)
{
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(static_cast<size_t>(cpu), &cpus);
    if (::sched_setaffinity(0, sizeof cpus, &cpus) != 0) {
        throw std::runtime_error("cannot pin to CPU " + std::to_string(cpu));
    }
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

Pair interleaved(int rounds, const std::function<double()>& floor, const std::function<double()>& candidate)
{
    std::vector<double> floors;
    std::vector<double> candidates;
    floor();
    candidate();
    for (int round = 0; round < rounds; ++round) {
        // The order alternates, so that neither always runs second.
        if (round % 2 == 0) {
            floors.push_back(floor());
            candidates.push_back(candidate());
        } else {
            candidates.push_back(candidate());
            floors.push_back(floor());
        }
    }
    return {median(floors), median(candidates)};
}

void print_ratio(const std::string& name, const Pair& pair, Better better, double target, const char* unit)
{
    const bool reached = better == Better::kHigher ? pair.ratio() >= target : pair.ratio() <= target;
    std::printf("%-62s %6.2f  %s %4.2f  %-7s %12.1f / %.1f %s\n", name.c_str(), pair.ratio(),
                better == Better::kHigher ? ">=" : "<=", target, reached ? "reached" : "MISSED",
                pair.candidate, pair.floor, unit);
    std::fflush(stdout);
}

int listen_on(const std::string& address, int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &own.sin_addr) != 1 ||
        ::bind(socket, reinterpret_cast<sockaddr*>(&own), sizeof own) != 0 ||
        ::listen(socket, SOMAXCONN) != 0) {
        throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port));
    }
    return socket;
}

int port_of(int socket)
{
    sockaddr_in own{};
    socklen_t size = sizeof own;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
}

ChildServer::ChildServer(const std::vector<std::string>& command, const std::string& address, int port)
{
    const int listener = listen_on(address, port);
    m_port = port_of(listener);
    const int hislip = listen_on(address, 0);
    m_hislip_port = port_of(hislip);
    const std::string program = beside_this_program(command[0]);
    std::vector<char*> argv;
    for (const auto& word : command) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    m_pid = ::fork();
    if (m_pid < 0) {
        ::close(listener);
        ::close(hislip);
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (m_pid == 0) {
        // First out of the way of both places.
        const int raw = ::fcntl(listener, F_DUPFD, kPassedSocket + 2);
        const int second = ::fcntl(hislip, F_DUPFD, kPassedSocket + 2);
        ::dup2(raw, kPassedSocket);
        ::dup2(second, kPassedSocket + 1);
        ::close(raw);
        ::close(second);
        ::setenv("LISTEN_FDS", "2", 1);
        ::setenv("LISTEN_FDNAMES", "raw:hislip", 1);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
        // The library reports every reply that a vanished client did not receive.
        const int errors = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kPassedSocket + 2);
        ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        ::execv(program.c_str(), argv.data());
        ::dprintf(errors, "cannot run %s\n", program.c_str());
        std::_Exit(127);
    }
    ::close(listener);
    ::close(hislip);
}

ChildServer::~ChildServer()
{
    ::kill(m_pid, SIGTERM);
    ::waitpid(m_pid, nullptr, 0);
}

size_t ChildServer::descriptors() const
{
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(m_pid) + "/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

long ChildServer::resident() const
{
    std::ifstream status("/proc/" + std::to_string(m_pid) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    }
    return 0;
}

} // namespace orvan_bench
