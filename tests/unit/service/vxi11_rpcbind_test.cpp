// The entry at the rpcbind: Debian's own, in a network of the test.
#include <filesystem>
#include <memory>
#include <signal.h>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "support/loopback.h"
#include "support/namespaces.h"
#include "support/private_network.h"
#include "vxi11_fixture.h"

// clang-format off
#include <rpc/rpc.h>
#include <rpc/pmap_prot.h> // needs the types of the one before
#include <rpc/pmap_clnt.h>
// clang-format on

using namespace orvan_service;
using namespace orvan_test;

namespace {

Vxi11Options registered()
{
    Vxi11Options options = RunningVxi11::loopback();
    options.use_rpcbind = true;
    return options;
}

/** Its port in the test's network; 0 if there is no entry. */
uint16_t registered_port(u_long program = DEVICE_CORE)
{
    sockaddr_in rpcbind{};
    rpcbind.sin_family = AF_INET;
    rpcbind.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::pmap_getport(&rpcbind, program, 1, IPPROTO_TCP);
}

/** Debian's, which leaves its socket in a /run of its own. */
class Rpcbind {
public:
    static constexpr const char* kProgram = "/sbin/rpcbind";

    Rpcbind()
    {
        m_pid = ::fork();
        if (m_pid == 0) {
            if (enter_namespace(CLONE_NEWNS) &&
                ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                ::mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "") == 0) {
                // In a user namespace it could not become another user, and would end.
                const char* const environment[] = {"LD_PRELOAD=libuid_wrapper.so", "UID_WRAPPER=1",
                                                   "UID_WRAPPER_ROOT=1", nullptr};
                ::execle(kProgram, kProgram, "-f", nullptr, environment);
            }
            ::_exit(127);
        }
    }
    ~Rpcbind()
    {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    Rpcbind(const Rpcbind&) = delete;
    Rpcbind& operator=(const Rpcbind&) = delete;

    static bool answers()
    {
        return eventually([] {
            const orvan_common::UniqueFd socket(connect_to_loopback("127.0.0.1", PMAPPORT));
            return static_cast<bool>(socket);
        });
    }

private:
    pid_t m_pid;
};

class Vxi11RpcbindTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!m_network.refusal().empty()) {
            GTEST_SKIP() << m_network.refusal();
        }
    }

    LogCapture log;

private:
    const PrivateNetwork m_network; // before any other thread
};

class Vxi11WithRpcbindTest : public Vxi11RpcbindTest {
protected:
    void SetUp() override
    {
        Vxi11RpcbindTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        if (!std::filesystem::exists(Rpcbind::kProgram)) {
            GTEST_SKIP() << "there is no " << Rpcbind::kProgram;
        }
        m_rpcbind = std::make_unique<Rpcbind>();
        ASSERT_TRUE(Rpcbind::answers());
    }

private:
    std::unique_ptr<Rpcbind> m_rpcbind;
};

} // namespace

TEST_F(Vxi11RpcbindTest, WithoutRpcbindVxi11IsOff)
{
    const RunningVxi11 vxi11(registered());
    EXPECT_FALSE(vxi11.started);
    EXPECT_EQ(vxi11.port(), 0);
    EXPECT_EQ(
        log.count(LOG_WARNING, "VXI-11 is off: no rpcbind: RPC: Remote system error - Connection refused"),
        1u);
}

// It accepts connections, and says nothing.
TEST_F(Vxi11RpcbindTest, ADeafRpcbindDoesNotHoldTheStartUp)
{
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    name.sin_port = htons(PMAPPORT);
    const orvan_common::UniqueFd deaf(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(deaf.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(::listen(deaf.get(), 5), 0);
    const RunningVxi11 vxi11(registered());
    EXPECT_FALSE(vxi11.started);
    EXPECT_EQ(log.count(LOG_WARNING, "VXI-11 is off: rpcbind: RPC: Timed out"), 1u);
}

TEST_F(Vxi11WithRpcbindTest, ClientsFindThePort)
{
    EXPECT_EQ(registered_port(), 0);
    {
        const RunningVxi11 vxi11(registered());
        ASSERT_TRUE(vxi11.started);
        EXPECT_EQ(registered_port(), vxi11.port());
        EXPECT_EQ(registered_port(DEVICE_ASYNC), 0);
        Vxi11Client client(registered_port());
        EXPECT_EQ(client.create().error, 0);
        EXPECT_EQ(client.ask("A?"), "A?\n");
    }
    EXPECT_EQ(registered_port(), 0);
}

TEST_F(Vxi11WithRpcbindTest, ReplacesAStaleEntry)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const auto* const killed = new RunningVxi11(registered());
        ::_exit(killed->started ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    const uint16_t stale = registered_port();
    EXPECT_NE(stale, 0);
    const RunningVxi11 vxi11(registered());
    EXPECT_TRUE(vxi11.started);
    EXPECT_EQ(registered_port(), vxi11.port());
}
