/**
 * Access to the maintenance server's private members.
 */
#ifndef ORVAN_TESTS_SUPPORT_UDP_SERVER_PEER_H
#define ORVAN_TESTS_SUPPORT_UDP_SERVER_PEER_H

#include <algorithm>
#include <cstring>
#include <string>

#include <sys/socket.h>

#include "orvan_sdk/lxi/UdpServer.h"

namespace HaldeElec::Orvan {

struct UdpServerTestPeer {
    CUdpServer& server;

    /** Serves one datagram as if received from this address, with no module sockets; replies go there. */
    int64_t serve(const std::string& datagram, const sockaddr_in& from)
    {
        CUdpServer::Event event;
        event.length = std::min(datagram.size(), sizeof server.buff);
        event.from = from;
        std::memcpy(static_cast<void*>(&server.buff), datagram.data(), event.length);
        return server.serve_frame(event);
    }

    /** The frame buffer. */
    std::string buffer() const { return {reinterpret_cast<const char*>(&server.buff), sizeof server.buff}; }
    void set_own_mac(const std::string& mac) { std::memcpy(server.m_bHWaddr.b, mac.data(), 6); }
    std::string own_mac() const { return {reinterpret_cast<const char*>(server.m_bHWaddr.b), 6}; }
    void set_device(IOrvanDeviceManager* device) { server.devDevHandler = device; }
    IOrvanDeviceManager* device() const { return server.devDevHandler; }
    IDeviceConnectionHandler* handler() const { return server.devConnHandler; }

    int socket() const { return server.m_hSocket; }
    void set_socket(int fd) { server.m_hSocket = fd; }
    int error() const { return server.m_iError; }
    int download_status() const { return server.m_recvFW_file_download_status; }
    void launch_upgrade_service() { server.launch_upgrade_service(); }
    void create_init_marker(const std::string& patch) { server.createNewParent(patch); }
    bool time_to_exit() const { return server.m_bTimeToExit; }
    bool has_thread() const { return server.m_udpDaemonThread.joinable(); }
    bool has_semaphore() const { return server.m_pSharedDataAccess != nullptr; }
    COSSemaphore& semaphore() const { return *server.m_pSharedDataAccess; }
};

} // namespace HaldeElec::Orvan

#endif
