#include "interrupt_channel.h"

#include <cerrno>

#include <sys/socket.h>
#include <syslog.h>
#include <vxi11.h>

#include "rpc_message.h"

namespace orvan_service {

InterruptChannel::InterruptChannel(const InterruptTarget& target)
    : m_target(target),
      m_socket(::socket(AF_INET, (target.tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = target.address;
    name.sin_port = htons(target.port);
    if (::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0) {
        m_state = State::kOpen;
    } else if (errno != EINPROGRESS) {
        fail();
    }
}

void InterruptChannel::fail()
{
    m_state = State::kFailed;
    m_socket.reset();
}

pollfd InterruptChannel::waiting() const
{
    return {m_socket.get(), static_cast<short>(m_state == State::kConnecting ? POLLOUT : POLLIN), 0};
}

void InterruptChannel::serve()
{
    if (m_state == State::kConnecting) {
        int error = 0;
        socklen_t size = sizeof error;
        ::getsockopt(m_socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) {
            fail();
        } else {
            m_state = State::kOpen;
        }
        return;
    }
    char replies[1024]; // of no interest
    const ssize_t received = ::recv(m_socket.get(), replies, sizeof replies, 0);
    // A datagram that nobody takes is no reason to give up: the client may listen again.
    if (m_target.tcp && (received == 0 || (received < 0 && errno != EAGAIN && errno != EINTR))) {
        fail();
    }
}

void InterruptChannel::request_service(std::string_view handle)
{
    Device_SrqParms parameters{};
    parameters.handle = {static_cast<u_int>(handle.size()), const_cast<char*>(handle.data())};
    const std::string arguments = encode(::xdr_Device_SrqParms, parameters);
    const std::string call =
        rpc_call({++m_xid, m_target.program, m_target.version, DEVICE_INTR_SRQ, arguments});
    const std::string bytes = m_target.tcp ? rpc_record(call) : call;
    const ssize_t sent = ::send(m_socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (m_target.tcp && sent != static_cast<ssize_t>(bytes.size())) {
        ::syslog(LOG_WARNING, "VXI-11: a service request could not be sent");
        fail();
    }
}

} // namespace orvan_service
