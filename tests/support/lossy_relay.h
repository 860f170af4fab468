/**
 * A relay of datagrams between a client and a server on loopback that loses and doubles some, by a generator
 * with a seed.
 */
#ifndef ORVAN_TESTS_SUPPORT_LOSSY_RELAY_H
#define ORVAN_TESTS_SUPPORT_LOSSY_RELAY_H

#include <atomic>
#include <cstddef>
#include <thread>

namespace orvan_test {

class LossyRelay {
public:
    /** @param server   UDP port on 127.0.0.1
     *  @param loss     part of the datagrams of each direction that gets lost
     *  @param doubling part that arrives twice */
    LossyRelay(int server, double loss, double doubling, unsigned seed = 1);
    ~LossyRelay();
    LossyRelay(const LossyRelay&) = delete;
    LossyRelay& operator=(const LossyRelay&) = delete;

    int port() const { return m_port; }
    size_t lost() const { return m_lost; }
    size_t doubled() const { return m_doubled; }

private:
    void run(double loss, double doubling, unsigned seed);

    int m_outer = -1;
    int m_inner = -1;
    int m_stop = -1;
    int m_port = 0;
    std::atomic<size_t> m_lost{0};
    std::atomic<size_t> m_doubled{0};
    std::thread m_thread;
};

} // namespace orvan_test

#endif
