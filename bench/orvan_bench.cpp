// usage: orvan-bench [options]
// The service against bare floors over loopback TCP. Ratios of medians, candidate and floor in turn.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "bench_support.h"
#include "hislip_load.h"
#include "load.h"
#include "vxi11_load.h"

using namespace orvan_bench;
using namespace std::chrono_literals;

namespace {

struct Settings {
    int rounds = 61;
    int round_ms = 50;
    int vanishing = 100'000;
    std::string service = ORVAN_SERVICE_PROGRAM;
    bool unpinned = false;

    std::chrono::milliseconds round() const { return std::chrono::milliseconds(round_ms); }
    std::string prefix() const { return unpinned ? "unpinned: " : ""; }
};

constexpr int kManyClients = 8;
constexpr const char* kModuleAddress = "127.0.7.1";
constexpr int kModulePort = 6001;
const std::string kLocalQuery = "*IDN?\r\n";
const std::string kForwardedQuery = ":FREQ?\r\n";

std::unique_ptr<ChildServer> start_service(const Settings& settings)
{
    auto service = std::make_unique<ChildServer>(std::vector<std::string>{
        settings.service, "--modules-on-loopback", "--channels", "1", "--module-wait", "5"});
    round_trips(service->port(), 1, kLocalQuery, 10ms); // returns when the service is ready
    return service;
}

// Targets depend on the number of processors: with several, the service runs in parallel with its clients.
struct Target {
    double pinned;
    double unpinned;
    double of(const Settings& settings) const { return settings.unpinned ? unpinned : pinned; }
};

void compare_rates(const Settings& settings, const std::string& name, const ChildServer& floor,
                   const ChildServer& candidate, int clients, const std::string& request, Target target)
{
    const auto rate = [&](const ChildServer& server) {
        return round_trips(server.port(), clients, request, settings.round()).rate;
    };
    print_ratio(settings.prefix() + name,
                interleaved(
                    settings.rounds, [&] { return rate(floor); }, [&] { return rate(candidate); }),
                Better::kHigher, target.of(settings), "1/s");
}

void compare_waits(const Settings& settings, const std::string& name, const ChildServer& floor,
                   const ChildServer& candidate, int clients, const std::string& request, double target)
{
    const auto p99 = [&](const ChildServer& server) {
        return round_trips(server.port(), clients, request, settings.round()).p99_us;
    };
    print_ratio(settings.prefix() + name,
                interleaved(
                    settings.rounds, [&] { return p99(floor); }, [&] { return p99(candidate); }),
                Better::kLower, target, "us");
}

void local_queries(const Settings& settings)
{
    const ChildServer echo({"orvan-floor-echo"});
    const ChildServer locked_echo({"orvan-floor-echo", "--mutex"});
    const ChildServer epoll({"orvan-floor-epoll"});
    const auto service = start_service(settings);
    compare_rates(settings, "local query, 1 client / corked echo", echo, *service, 1, kLocalQuery,
                  {0.90, 0.90});
    for (const int clients : {8, 32}) {
        const std::string name = "local query, " + std::to_string(clients) + " clients / ";
        compare_rates(settings, name + "one thread with epoll", epoll, *service, clients, kLocalQuery,
                      {0.92, 0.90});
        compare_rates(settings, name + "threads and a mutex", locked_echo, *service, clients, kLocalQuery,
                      {1.05, 1.10});
    }
    compare_waits(settings, "local query, 32 clients: p99 / threads and a mutex", locked_echo, *service, 32,
                  kLocalQuery, 0.40);
}

void forwarded_queries(const Settings& settings)
{
    const ChildServer module({"orvan-floor-module"}, kModuleAddress, kModulePort);
    const std::string port = std::to_string(kModulePort);
    const ChildServer relay({"orvan-floor-relay", kModuleAddress, port});
    const ChildServer leased({"orvan-floor-relay", kModuleAddress, port, "--lease"});
    const auto service = start_service(settings);
    compare_rates(settings, "forwarded query, 1 client / two-hop relay", relay, *service, 1, kForwardedQuery,
                  {0.95, 0.92});
    compare_rates(settings, "forwarded query, 8 clients / relay with a lease", leased, *service, kManyClients,
                  kForwardedQuery, {0.95, 0.92});

    const double bare = median([&] {
        std::vector<double> rates;
        for (int round = 0; round < settings.rounds; ++round) {
            rates.push_back(connections(kModuleAddress, kModulePort, kForwardedQuery, settings.round()));
        }
        return rates;
    }());
    std::printf("%-62s %42.1f 1/s\n",
                (settings.prefix() + "bare pair, a connection for each request").c_str(), bare);
}

// With a module slow enough that clients wait for turns and not for the scheduler's time slices.
void waits(const Settings& settings)
{
    const ChildServer module({"orvan-floor-module", "2000"}, kModuleAddress, kModulePort);
    const ChildServer leased({"orvan-floor-relay", kModuleAddress, std::to_string(kModulePort), "--lease"});
    const auto service = start_service(settings);
    const auto longest = [](const ChildServer& server) {
        return round_trips(server.port(), kManyClients, kForwardedQuery, 4s, true).longest_wait;
    };
    const unsigned floor_turns = longest(leased);
    const unsigned turns = longest(*service);
    std::printf("%-62s %6u  <= %4d  %-7s %12u / %u turns\n",
                (settings.prefix() + "forwarded query, 8 clients: longest wait").c_str(), turns, kManyClients,
                turns <= kManyClients ? "reached" : "MISSED", turns, floor_turns);
    std::fflush(stdout);
}

void blocks(const Settings& settings)
{
    constexpr size_t kBlock = 2'900'000;
    const std::string message = ":SYST:UPD:SOFT #72900000" + std::string(kBlock, '\n') + "\r\n";
    const ChildServer reader({"orvan-floor-block", std::to_string(message.size())});
    const ChildServer service({"orvan-block-service"});
    // On a new connection each time: a connection's receive window is determined by its first messages, and
    // differs by a factor of two between connections.
    const auto microseconds = [&](const ChildServer& server) {
        constexpr int kWarmUp = 3;
        constexpr int kMeasured = 5;
        const int socket = connect_to("127.0.0.1", server.port());
        std::vector<double> times;
        for (int i = 0; i < kWarmUp + kMeasured; ++i) {
            times.push_back(1e6 * seconds_for(socket, message));
        }
        ::close(socket);
        return median({times.begin() + kWarmUp, times.end()});
    };
    print_ratio(
        settings.prefix() + "2.9 MB block to its handler / reading and answering",
        interleaved(
            settings.rounds, [&] { return microseconds(reader); }, [&] { return microseconds(service); }),
        Better::kLower, 1.20, "us");
}

void hislip_queries(const Settings& settings)
{
    const auto service = start_service(settings);
    const HislipLoad session(service->hislip_port());
    const int raw = connect_to("127.0.0.1", service->port());
    print_ratio(settings.prefix() + "local query, 1 client: HiSLIP / raw socket",
                interleaved(
                    settings.rounds, [&] { return queries_per_second(raw, kLocalQuery, settings.round()); },
                    [&] { return session.queries_per_second(kLocalQuery, settings.round()); }),
                Better::kHigher, 0.60, "1/s");
    ::close(raw);
}

// The raw socket reports the end of a command, HiSLIP needs a query for that.
void hislip_blocks(const Settings& settings)
{
    constexpr size_t kBlock = 3'145'000;
    const std::string message = ":SYST:UPD:SOFT #73145000" + std::string(kBlock, '\n');
    const ChildServer service({"orvan-block-service"});
    const std::string line = message + "\n";
    const std::string asking = message + ";*ESE?";
    // On a new connection each time, as in blocks().
    const auto rate = [](const auto& seconds) {
        std::vector<double> rates;
        for (int i = 0; i < 8; ++i) {
            rates.push_back(1 / seconds());
        }
        return median({rates.begin() + 3, rates.end()});
    };
    print_ratio(settings.prefix() + "3 MiB block: HiSLIP / raw socket, blocks a second",
                interleaved(
                    settings.rounds,
                    [&] {
                        const int raw = connect_to("127.0.0.1", service.port());
                        const double result = rate([&] { return seconds_for(raw, line); });
                        ::close(raw);
                        return result;
                    },
                    [&] {
                        const HislipLoad session(service.hislip_port());
                        return rate([&] { return session.seconds_for(asking); });
                    }),
                Better::kHigher, 0.90, "1/s");
}

void print_latency(const Settings& settings, const std::string& name, const std::vector<double>& seconds,
                   int most_ms)
{
    const double longest = 1e3 * *std::max_element(seconds.begin(), seconds.end());
    std::printf("%-62s %6.2f  <= %4d  %-7s %12.2f / %.2f ms, median / longest\n",
                (settings.prefix() + name).c_str(), longest, most_ms,
                longest <= most_ms ? "reached" : "MISSED", 1e3 * median(seconds), longest);
    std::fflush(stdout);
}

// Commands of another client and of the session itself, one second each, run all the time.
void hislip_latencies(const Settings& settings)
{
    constexpr int kCount = 20;
    const ChildServer module({"orvan-floor-module", "1000000"}, kModuleAddress, kModulePort);
    const auto service = start_service(settings);
    const HislipLoad session(service->hislip_port());
    const int raw = connect_to("127.0.0.1", service->port());
    for (int i = 0; i < 5; ++i) {
        send_all(raw, kForwardedQuery.data(), kForwardedQuery.size());
    }
    std::vector<double> polls;
    std::vector<double> clears;
    for (int i = 0; i < kCount; ++i) {
        session.write(kForwardedQuery);
        std::this_thread::sleep_for(100ms);
        polls.push_back(session.seconds_for_poll());
        clears.push_back(session.seconds_for_clear());
    }
    print_latency(settings, "HiSLIP serial poll while a command runs: longest", polls, 5);
    print_latency(settings, "HiSLIP device clear while a command runs: longest", clears, 20);
    ::close(raw);
}

// The program would serve VXI-11 only with an rpcbind.
void vxi11_queries(const Settings& settings)
{
    const int free = listen_on("127.0.0.1", 0);
    const int port = port_of(free);
    ::close(free);
    const ChildServer service({"orvan-query-service", std::to_string(port)});
    const HislipLoad hislip(service.hislip_port());
    hislip.seconds_for(kLocalQuery); // returns when VXI-11 is served, too
    Vxi11Load vxi11(port);
    print_ratio(settings.prefix() + "query answered at once, 1 client: VXI-11 / HiSLIP",
                interleaved(
                    settings.rounds, [&] { return hislip.queries_per_second(kLocalQuery, settings.round()); },
                    [&] { return vxi11.queries_per_second(kLocalQuery, settings.round()); }),
                Better::kHigher, 0.40, "1/s");
}

void vanish(int port, int number)
{
    const int socket = connect_to("127.0.0.1", port);
    static const std::string texts[] = {"", ":FREQ 1", "*IDN?\n", ":NO:SUCH #6", "\n", "\"\n"};
    const std::string& text = texts[number % 6];
    ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
    if (number % 2 == 0) {
        const linger reset{1, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    ::close(socket);
}

void vanishing_clients(const Settings& settings)
{
    constexpr auto kLongest = 120s;
    const auto service = start_service(settings);
    const auto begin = std::chrono::steady_clock::now();
    int number = 0;
    const auto vanish_until = [&](int end) {
        for (; number < end && std::chrono::steady_clock::now() - begin < kLongest; ++number) {
            vanish(service->port(), number);
        }
        const auto patience = std::chrono::steady_clock::now() + 10s;
        size_t least = service->descriptors();
        while (std::chrono::steady_clock::now() < patience && least > 16) {
            std::this_thread::sleep_for(10ms);
            least = std::min(least, service->descriptors());
        }
    };
    vanish_until(settings.vanishing / 10);
    const size_t descriptors = service->descriptors();
    const long memory = service->resident();
    vanish_until(settings.vanishing);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::printf("%d clients that vanish, in %.0f s: descriptors %zu -> %zu, resident %ld -> %ld kB\n", number,
                seconds, descriptors, service->descriptors(), memory, service->resident());
}

struct WakeUps {
    double executor_and_attendant = 0;
    double library = 0;
};

// Each voluntary context switch of a thread is one wake-up.
WakeUps wake_ups(const ChildServer& server)
{
    WakeUps result;
    const std::string process = std::to_string(server.pid());
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + process + "/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        // The attendant is the process's first thread, and its name is also that of the threads it starts.
        const bool ours = name == "executor" || task.path().filename() == process;
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
                (ours ? result.executor_and_attendant : result.library) +=
                    std::stod(line.substr(line.find(':') + 1));
            }
        }
    }
    return result;
}

void idle(const Settings& settings)
{
    constexpr auto kTime = 5s;
    const auto service = start_service(settings);
    std::this_thread::sleep_for(500ms); // until start-up activity is over
    const WakeUps before = wake_ups(*service);
    std::this_thread::sleep_for(kTime);
    const WakeUps after = wake_ups(*service);
    const double seconds = std::chrono::duration<double>(kTime).count();
    std::printf("%-62s %6.1f  and of the library's threads %.1f\n",
                "idle: wake-ups of executor and attendant a second",
                (after.executor_and_attendant - before.executor_and_attendant) / seconds,
                (after.library - before.library) / seconds);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    Settings settings;
    int cpu = static_cast<int>(std::thread::hardware_concurrency()) - 1;
    std::string only;
    CLI::App app("The service against bare floors, over loopback TCP");
    app.add_option("--cpu", cpu, "CPU that everything is pinned to")->capture_default_str();
    app.add_flag("--unpinned", settings.unpinned, "Pin nothing");
    app.add_option("--rounds", settings.rounds, "Rounds of candidate and floor")->capture_default_str();
    app.add_option("--round-ms", settings.round_ms, "Length of a round")->capture_default_str();
    app.add_option("--vanishing", settings.vanishing, "Clients that connect and vanish")
        ->capture_default_str();
    app.add_option("--service", settings.service, "The service program")->capture_default_str();
    app.add_option("--only", only, "local, forwarded, block, hislip, vxi11, idle or vanish");
    CLI11_PARSE(app, argc, argv);
    try {
        if (!settings.unpinned) {
            pin_to_cpu(cpu);
        }
        if (only.empty() || only == "local") {
            local_queries(settings);
        }
        if (only.empty() || only == "forwarded") {
            forwarded_queries(settings);
            waits(settings);
        }
        if (only.empty() || only == "block") {
            blocks(settings);
        }
        if (only.empty() || only == "hislip") {
            hislip_queries(settings);
            hislip_blocks(settings);
            hislip_latencies(settings);
        }
        if (only.empty() || only == "vxi11") {
            vxi11_queries(settings);
        }
        if (only == "idle" || (only.empty() && !settings.unpinned)) {
            idle(settings);
        }
        if (only == "vanish" || (only.empty() && !settings.unpinned)) {
            vanishing_clients(settings);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvan-bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
