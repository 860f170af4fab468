// Which sessions are in remote control, in the service's status.
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "hislip_fixture.h"
#include "service/notify.h"

using namespace orvan_service;
using namespace orvan_test;
using namespace std::chrono_literals;

namespace {

/** Receives what is reported to the service manager. */
class RemoteControl : public HislipTest {
protected:
    RemoteControl()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string name = "@orvan-remote-control-test-" + std::to_string(::getpid());
        std::memcpy(address.sun_path, name.data(), name.size());
        address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(::bind(m_manager.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~RemoteControl() override { ::unsetenv("NOTIFY_SOCKET"); }

    /** The next status line; "none" if none comes within `bound`. */
    std::string status(std::chrono::milliseconds bound = 20s)
    {
        pollfd socket{m_manager.get(), POLLIN, 0};
        char text[512];
        const ssize_t count = ::poll(&socket, 1, static_cast<int>(bound.count())) > 0
                                  ? ::recv(m_manager.get(), text, sizeof text, 0)
                                  : -1;
        return count < 0 ? "none" : std::string(text, static_cast<size_t>(count));
    }

private:
    const orvan_common::UniqueFd m_manager{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

} // namespace

TEST_F(RemoteControl, IsShownForAsLongAsASessionIsInIt)
{
    HislipClient first(server.port());
    HislipClient second(server.port());
    EXPECT_EQ(first.ask_async({10, 3}).type, 11);
    EXPECT_EQ(status(), "STATUS=in remote control by 1 session");
    EXPECT_EQ(first.ask_async({10, 3}).type, 11);
    EXPECT_EQ(second.ask_async({10, 5}).type, 11);
    EXPECT_EQ(status(), "STATUS=in remote control by 2 sessions, local lockout requested");
    EXPECT_EQ(first.ask_async({10, 6}).type, 11);
    EXPECT_EQ(status(), "STATUS=in remote control by 1 session, local lockout requested");
    second.async().close();
    EXPECT_EQ(status(), "STATUS=");
    EXPECT_EQ(first.ask_async({10, 1}).type, 11);
    EXPECT_EQ(status(100ms), "none");
}

TEST_F(RemoteControl, DoesNotHideAHang)
{
    HislipClient client(server.port());
    notify_status(StatusPart::kHang, "client 7 hangs");
    EXPECT_EQ(status(), "STATUS=client 7 hangs");
    EXPECT_EQ(client.ask_async({10, 3}).type, 11);
    EXPECT_EQ(status(), "STATUS=client 7 hangs; in remote control by 1 session");
    notify_status(StatusPart::kHang, "");
    EXPECT_EQ(status(), "STATUS=in remote control by 1 session");
    client.async().close();
    EXPECT_EQ(status(), "STATUS=");
}
