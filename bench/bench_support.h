/**
 * Helpers shared by the benchmark programs: pinning, child programs on a passed socket, medians, the table.
 */
#ifndef ORVAN_BENCH_SUPPORT_H
#define ORVAN_BENCH_SUPPORT_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace orvan_bench {

/** Binds this process, its later threads and children to one CPU. */
void pin_to_cpu(int cpu);

double median(std::vector<double> values);

/**
 * Runs candidate and floor in turn, `rounds` times each, so that whatever slows the machine slows both.
 *
 * @param floor, candidate measure one round and return a rate or a time.
 */
struct Pair {
    double floor;     /**< median */
    double candidate; /**< median */
    double ratio() const { return candidate / floor; }
};
Pair interleaved(int rounds, const std::function<double()>& floor, const std::function<double()>& candidate);

enum class Better { kHigher, kLower };

/** One line: name, ratio, target, whether it was reached, and the two medians. */
void print_ratio(const std::string& name, const Pair& pair, Better better, double target, const char* unit);

/** A TCP socket that listens on a loopback address; port 0 selects a free one. Throws on failure. */
int listen_on(const std::string& address, int port);
int port_of(int socket);

/** A server program as a child; its listening sockets are descriptors 3, raw, and 4, for HiSLIP, announced in
 *  LISTEN_FDS. */
class ChildServer {
public:
    /** Listens on `address` and `port` for the child. The program is a path, or a name next to this
     * program. */
    ChildServer(const std::vector<std::string>& command, const std::string& address = "127.0.0.1",
                int port = 0);
    /** Ends the child. */
    ~ChildServer();
    ChildServer(const ChildServer&) = delete;
    ChildServer& operator=(const ChildServer&) = delete;

    int port() const { return m_port; }
    int hislip_port() const { return m_hislip_port; }
    pid_t pid() const { return m_pid; }
    size_t descriptors() const;
    /** Resident memory in kB. */
    long resident() const;

private:
    int m_port;
    int m_hislip_port;
    pid_t m_pid;
};

} // namespace orvan_bench

#endif
