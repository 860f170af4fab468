/**
 * The maintenance server in a private network: its ports are free, and names do not resolve.
 */
#ifndef ORVAN_TESTS_MAINTENANCE_SERVER_BENCH_H
#define ORVAN_TESTS_MAINTENANCE_SERVER_BENCH_H

#include <chrono>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <sys/resource.h>

#include "maintenance_bench.h"
#include "support/loopback.h"
#include "support/private_network.h"

namespace board_test {

inline const std::string kNone(6, '\0');

inline std::string block_of(const std::string& frame)
{
    return frame.size() < HaldeElec::Orvan::FRMHEADERLEN ? "" : frame.substr(4, 2);
}

class MaintenanceServer : public testing::Test {
protected:
    void SetUp() override
    {
        if (!network.refusal().empty()) {
            GTEST_SKIP() << network.refusal();
        }
    }
    void TearDown() override { server.Close(); }

    static std::string address_of(int fd)
    {
        sockaddr_in own = {};
        socklen_t size = sizeof own;
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
        return std::string(inet_ntoa(own.sin_addr)) + ":" + std::to_string(ntohs(own.sin_port));
    }
    template <typename Value>
    Value option(int name)
    {
        Value value = {};
        socklen_t size = sizeof value;
        EXPECT_EQ(getsockopt(peer.socket(), SOL_SOCKET, name, &value, &size), 0);
        return value;
    }

    orvan_test::PrivateNetwork network;
    orvan_test::LogCapture logs;
    HaldeElec::Orvan::CUdpServer server{nullptr, 0, 0, false};
    HaldeElec::Orvan::UdpServerTestPeer peer{server};
};

/** While it lives, the process can open exactly this many more descriptors. */
class FewDescriptors {
public:
    explicit FewDescriptors(size_t more)
    {
        std::vector<orvan_common::UniqueFd> next;
        do {
            next.emplace_back(::dup(STDERR_FILENO));
        } while (next.size() <= more);
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit few = m_before;
        few.rlim_cur = static_cast<rlim_t>(next.back().get());
        ::setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit m_before = {};
};

} // namespace board_test

#endif
