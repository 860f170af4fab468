#include "orvan_sdk/lxi/UdpServer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <system_error>

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "orvan_sdk/lxi/PersistentData.h"

namespace HaldeElec::Orvan {
namespace {

constexpr size_t kPortTextSize = 6;

bool to_port(const char* port, const char* proto, in_port_t& sin_port)
{
    char* end = nullptr;
    const long number = std::strtol(port, &end, 0);
    if (end != port && *end == '\0') {
        sin_port = htons(static_cast<uint16_t>(number));
        return true;
    }
    const servent* const service = ::getservbyname(port, proto);
    if (service == nullptr) {
        return false;
    }
    sin_port = static_cast<in_port_t>(service->s_port);
    return true;
}

bool to_address(const char* ip_addr, in_addr& address)
{
    if (::inet_aton(ip_addr, &address) != 0) {
        return true;
    }
    const hostent* const host = ::gethostbyname(ip_addr);
    if (host == nullptr || host->h_addrtype != AF_INET) {
        return false;
    }
    std::memcpy(&address, host->h_addr_list[0], sizeof address);
    return true;
}

} // namespace

const char* CUdpServer::modulAddr[kMaxModules] = {"192.168.7.1", "192.168.8.1", "192.168.9.1",
                                                  "192.168.10.1"};

CUdpServer::CUdpServer(const char* eth_name, int port, IDeviceConnectionHandler* _devConnHandler,
                       IOrvanDeviceManager* _devDevHandler, unsigned long ip_addr, bool startup)
    : m_psPort(new(std::nothrow) char[kPortTextSize]{}), devConnHandler(_devConnHandler),
      devDevHandler(_devDevHandler)
{
    if (startup) {
        CleanUpgrdaeFW_Files();
        if (const uint32_t error = Init(ip_addr, port, eth_name); error != IF_SUCCESS) {
            ::syslog(LOG_ERR, "[CUdpServer] no maintenance on port %d (0x%X)", port, error);
        }
    }
    if (eth_name == nullptr) {
        m_bHWaddr = halde_mac;
    }
    m_bTimeToExit = false;
    try {
        m_udpDaemonThread = std::thread(&CUdpServer::ThreadMain, this);
    } catch (const std::system_error& error) {
        ::syslog(LOG_ERR, "[CUdpServer] no thread: %s", error.what());
    }
    // The thread does not need these until a firmware transfer.
    m_recvFW_file_download_status = -1;
    m_pSharedDataAccess = new (std::nothrow) COSSemaphore(1, 1);
}

CUdpServer::CUdpServer(const char* eth_name, int port, unsigned long ip_addr, bool startup)
    : m_psPort(new(std::nothrow) char[kPortTextSize]{})
{
    if (startup) {
        Init(ip_addr, port, eth_name);
    }
    if (eth_name == nullptr) {
        m_bHWaddr = halde_mac;
    }
    m_pSharedDataAccess = new (std::nothrow) COSSemaphore(1, 1);
}

CUdpServer::~CUdpServer()
{
    m_bTimeToExit = true;
    if (m_udpDaemonThread.joinable()) {
        m_udpDaemonThread.join();
    }
    delete[] m_psPort;
    delete m_pSharedDataAccess;
}

uint32_t CUdpServer::Init(unsigned long ip_addr, int port, const char* eth_name)
{
    char address[64];
    std::snprintf(address, sizeof address, "%lu.%lu.%lu.%lu", ip_addr & 0xFF, ip_addr >> 8 & 0xFF,
                  ip_addr >> 16 & 0xFF, ip_addr >> 24 & 0xFF);
    const uint32_t result = Init(address, std::to_string(port).c_str(), eth_name);
    m_iError = static_cast<int>(result);
    return result;
}

uint32_t CUdpServer::Init(const char* ip_addr, const char* port, const char* eth_name)
{
    m_State = 0;
    sockaddr_in address;
    if (InitSocketAddrStruct(ip_addr, port, &address, "udp") != 0) {
        return LXI_ERROR_INIT_SOCK_ADDR;
    }
    m_hSocket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_hSocket == -1) {
        return LXI_ERROR_INV_SOCK;
    }
    if (::bind(m_hSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        Close();
        return LXI_ERROR_BIND_SOCK;
    }
    const int room = RECV_BUF_SIZE;
    ::setsockopt(m_hSocket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    const int on = 1;
    ::setsockopt(m_hSocket, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    // Rejected, as the value is too short for a timeval: the socket stays blocking, as it must.
    const int32_t timeout = TIMEOUT_MS;
    ::setsockopt(m_hSocket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

    GetHWaddr(eth_name);
    if (m_psPort != nullptr) {
        std::snprintf(m_psPort, kPortTextSize, "%s", port);
    }
    m_bTimeToExit = false;
    std::signal(SIGIO, _SignalHandler);
    return IF_SUCCESS;
}

int CUdpServer::Close()
{
    if (m_hSocket != -1) {
        ::close(m_hSocket);
        m_hSocket = -1;
    }
    return 0;
}

long CUdpServer::GetPort() const
{
    return m_psPort != nullptr ? std::atol(m_psPort) : 0;
}

void CUdpServer::GetHWaddr(const char* eth_name)
{
    if (eth_name == nullptr) {
        return;
    }
    ifreq request = {};
    std::snprintf(request.ifr_name, sizeof request.ifr_name, "%s", eth_name);
    if (::ioctl(m_hSocket, SIOCGIFHWADDR, &request) == 0) {
        std::memcpy(m_bHWaddr.b, request.ifr_hwaddr.sa_data, sizeof m_bHWaddr.b);
    }
}

int CUdpServer::InitSocketAddrStruct(const char* ip_addr, const char* port, sockaddr_in* lpSA,
                                     const char* proto)
{
    if (port == nullptr || lpSA == nullptr || proto == nullptr) {
        return -1;
    }
    *lpSA = {};
    lpSA->sin_family = AF_INET;
    lpSA->sin_addr.s_addr = htonl(INADDR_ANY);
    if (ip_addr != nullptr && !to_address(ip_addr, lpSA->sin_addr)) {
        return -1;
    }
    return to_port(port, proto, lpSA->sin_port) ? 0 : -1;
}

void CUdpServer::_SignalHandler(int) {}

state_t CUdpServer::GetState() const
{
    tOSStatus status = kOSStatusSuccess;
    m_pSharedDataAccess->Acquire(kOSTimeoutInfinite, status);
    const auto state = static_cast<state_t>(m_State);
    m_pSharedDataAccess->Release();
    return state;
}

void CUdpServer::enter_state(state_t bit)
{
    tOSStatus status = kOSStatusSuccess;
    m_pSharedDataAccess->Acquire(kOSTimeoutInfinite, status);
    m_State |= static_cast<int>(bit);
    m_pSharedDataAccess->Release();
}

void CUdpServer::ThreadMain()
{
    while (!m_bTimeToExit) {
        switch (WaitForEvent()) {
        case LXI_ERROR_INV_RSRC:
            m_bTimeToExit = true;
            break;
        case IF_SUCCESS_RECV_FIRMWARE:
            launch_upgrade_service();
            break;
        case IF_SUCCESS_FPGA_UPDATED:
            enter_state(IFC_RECV_FIRMWARE);
            m_bTimeToExit = true;
            break;
        case IF_SUCCESS_NET_CONFIG:
            enter_state(IFC_RECV_NETCONFIG);
            m_bTimeToExit = true;
            break;
        default:
            break;
        }
    }
}

int64_t CUdpServer::WaitForEvent()
{
    Event event;
    open_module_sockets(event);
    socklen_t from_size = sizeof event.from;
    const ssize_t received =
        ::recvfrom(m_hSocket, &buff, sizeof buff, 0, reinterpret_cast<sockaddr*>(&event.from), &from_size);
    if (received < 0) {
        return errno == EBADF ? LXI_ERROR_INV_RSRC : IF_FAILED;
    }
    event.length = static_cast<size_t>(received);
    return serve_frame(event);
}

void CUdpServer::open_module_sockets(Event& event)
{
    CPersistentData* const persistent = CPersistentData::GetInstance();
    const EEPROM_DEVICE_SETTINGS* const eprSettings =
        persistent != nullptr ? persistent->getSettings() : nullptr;
    event.numDevices =
        eprSettings != nullptr ? std::min<int>(eprSettings->numDevices, kMaxModules) : kMaxModules;
    for (int i = 0; i < event.numDevices; ++i) {
        event.sockFd[i] = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (event.sockFd[i] < 0) {
            const int cause = errno;
            ::syslog(LOG_INFO, "[CUdpServer]::WaitForEvent socket creation failed");
            ::syslog(
                LOG_ERR,
                "[CUdpServer] the process ends with exit code 1: no socket to module %d: %s; every frame "
                "leaves one open",
                i + 1, std::strerror(cause));
            // Skips the static destructors, some of which wait for threads.
            std::fflush(stdout);
            std::_Exit(EXIT_FAILURE);
        }
        sockaddr_in& address = event.servaddr[i];
        address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(PORTUDP);
        address.sin_addr.s_addr = ::inet_addr(modulAddr[i]);
    }
}

bool CUdpServer::accepts(const sockaddr_in& from) const
{
    return from.sin_addr.s_addr == htonl(INADDR_LOOPBACK) ||
           std::memcmp(buff.mac, m_bHWaddr.b, sizeof buff.mac) == 0 ||
           std::memcmp(buff.mac, eth_brdcast_addr.b, sizeof buff.mac) == 0;
}

int64_t CUdpServer::serve_frame(Event& event)
{
    if (!accepts(event.from)) {
        return IF_SUCCESS;
    }
    ::syslog(LOG_INFO, "[CUdpServer]::WaitForEvent sending HEID============================");
    return serve_command(event);
}

bool CUdpServer::send_frame(const Event& event, size_t length)
{
    static constexpr uint8_t kPastTheEnd[FRMHEADERLEN] = {};
    iovec parts[] = {
        {&buff, std::min(length, sizeof buff)},
        {const_cast<uint8_t*>(kPastTheEnd), length - std::min(length, sizeof buff)},
    };
    sockaddr_in to = event.from;
    msghdr message = {};
    message.msg_name = &to;
    message.msg_namelen = sizeof to;
    message.msg_iov = parts;
    message.msg_iovlen = std::size(parts);
    return ::sendmsg(m_hSocket, &message, 0) == static_cast<ssize_t>(length);
}

} // namespace HaldeElec::Orvan
