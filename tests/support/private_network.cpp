#include "support/private_network.h"

#include <cstring>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "support/namespaces.h"
#include "unique_fd.h"

namespace orvan_test {
namespace {

std::string raise_loopback()
{
    const orvan_common::UniqueFd socket_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    if (!socket_fd || ::ioctl(socket_fd.get(), SIOCSIFFLAGS, &request) != 0) {
        return failure("no loopback");
    }
    return {};
}

const std::string& enter_once()
{
    static const std::string refusal = [] {
        return enter_namespace(CLONE_NEWNET) ? raise_loopback() : failure("no network namespace");
    }();
    return refusal;
}

} // namespace

PrivateNetwork::PrivateNetwork() : m_refusal(enter_once()) {}

} // namespace orvan_test
