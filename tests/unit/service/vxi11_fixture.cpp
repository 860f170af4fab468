#include "vxi11_fixture.h"

#include <cerrno>
#include <ostream>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "service/process.h"
#include "support/loopback.h"

namespace orvan_test {

orvan_service::Vxi11Options RunningVxi11::loopback()
{
    orvan_service::Vxi11Options options;
    options.address = "127.0.0.1";
    options.use_rpcbind = false;
    return options;
}

RunningVxi11::RunningVxi11(const orvan_service::Vxi11Options& options)
    : server(executor, instrument, locks, options)
{
    orvan_service::ignore_broken_pipes();
    locks.on_change([this] { server.wake(); });
    started = server.start();
}

RunningVxi11::~RunningVxi11()
{
    instrument.open();
    EXPECT_TRUE(executor.end(std::chrono::seconds(30)));
    server.end();
}

RpcClient::RpcClient(uint16_t port, uint32_t program, const std::string& from)
{
    int socket = connect_to_loopback("127.0.0.1", port, from);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    m_client = ::clnttcp_create(&address, program, 1, &socket, 0, 0);
    EXPECT_NE(m_client, nullptr) << ::clnt_spcreateerror("client");
    if (m_client != nullptr) {
        clnt_control(m_client, CLSET_FD_CLOSE, nullptr);
    }
}

RpcClient::~RpcClient()
{
    close();
}

void RpcClient::close()
{
    if (m_client != nullptr) {
        clnt_destroy(m_client);
        m_client = nullptr;
    }
}

void PrintTo(const ReadResult& result, std::ostream* out)
{
    *out << "error " << result.error << ", reason " << result.reason << ", " << result.data.size()
         << " bytes: " << result.data.substr(0, 200);
}

Create_LinkResp Vxi11Client::create(const std::string& device, bool lock, unsigned lock_timeout)
{
    created = {};
    const Create_LinkParms parameters{1, lock, lock_timeout, const_cast<char*>(device.c_str())};
    if (call(CREATE_LINK, ::xdr_Create_LinkParms, parameters, ::xdr_Create_LinkResp, created) !=
        RPC_SUCCESS) {
        created.error = -1;
    }
    link = created.lid;
    return created;
}

Device_WriteResp Vxi11Client::write(const std::string& data, int flags, unsigned io_timeout,
                                    unsigned lock_timeout)
{
    Device_WriteParms parameters{link, io_timeout, lock_timeout, flags, {}};
    parameters.data = {static_cast<u_int>(data.size()), const_cast<char*>(data.data())};
    Device_WriteResp result{};
    if (call(DEVICE_WRITE, ::xdr_Device_WriteParms, parameters, ::xdr_Device_WriteResp, result) !=
        RPC_SUCCESS) {
        result.error = -1;
    }
    return result;
}

ReadResult Vxi11Client::read(unsigned io_timeout, unsigned requested, int flags, char end_char,
                             unsigned lock_timeout)
{
    const Device_ReadParms parameters{link, requested, io_timeout, lock_timeout, flags, end_char};
    Device_ReadResp result{};
    if (call(DEVICE_READ, ::xdr_Device_ReadParms, parameters, ::xdr_Device_ReadResp, result) != RPC_SUCCESS) {
        return {-1, 0, {}};
    }
    ReadResult copy{result.error, result.reason, {result.data.data_val, result.data.data_len}};
    ::xdr_free(reinterpret_cast<xdrproc_t>(::xdr_Device_ReadResp), &result);
    return copy;
}

std::string Vxi11Client::ask(const std::string& query)
{
    return write(query).error == 0 ? read().data : std::string();
}

std::pair<int, int> Vxi11Client::read_status(int flags, unsigned lock_timeout)
{
    const Device_GenericParms parameters{link, flags, lock_timeout, 60'000};
    Device_ReadStbResp result{};
    if (call(DEVICE_READSTB, ::xdr_Device_GenericParms, parameters, ::xdr_Device_ReadStbResp, result) !=
        RPC_SUCCESS) {
        result.error = -1;
    }
    return {result.error, result.stb};
}

int Vxi11Client::act(uint32_t procedure, int flags, unsigned lock_timeout)
{
    const Device_GenericParms parameters{link, flags, lock_timeout, 60'000};
    Device_Error result{};
    return call(procedure, ::xdr_Device_GenericParms, parameters, ::xdr_Device_Error, result) == RPC_SUCCESS
               ? result.error
               : -1;
}

int Vxi11Client::lock(int flags, unsigned lock_timeout)
{
    const Device_LockParms parameters{link, flags, lock_timeout};
    Device_Error result{};
    return call(DEVICE_LOCK, ::xdr_Device_LockParms, parameters, ::xdr_Device_Error, result) == RPC_SUCCESS
               ? result.error
               : -1;
}

int Vxi11Client::call_for_link(uint32_t procedure)
{
    Device_Error result{};
    return call(procedure, ::xdr_Device_Link, link, ::xdr_Device_Error, result) == RPC_SUCCESS ? result.error
                                                                                               : -1;
}

int Vxi11Client::enable_requests(bool enable, const std::string& handle)
{
    Device_EnableSrqParms parameters{link, enable, {}};
    parameters.handle = {static_cast<u_int>(handle.size()), const_cast<char*>(handle.data())};
    Device_Error result{};
    return call(DEVICE_ENABLE_SRQ, ::xdr_Device_EnableSrqParms, parameters, ::xdr_Device_Error, result) ==
                   RPC_SUCCESS
               ? result.error
               : -1;
}

int Vxi11Client::create_interrupts(const Device_RemoteFunc& target)
{
    Device_Error result{};
    return call(CREATE_INTR_CHAN, ::xdr_Device_RemoteFunc, target, ::xdr_Device_Error, result) == RPC_SUCCESS
               ? result.error
               : -1;
}

int Vxi11Client::destroy_interrupts()
{
    Device_Error result{};
    // No arguments: zero bytes.
    const auto none = [](XDR*, int*) -> bool_t { return 1; };
    return call(DESTROY_INTR_CHAN, +none, 0, ::xdr_Device_Error, result) == RPC_SUCCESS ? result.error : -1;
}

bool sees_end(int socket)
{
    return eventually([socket] {
        char bytes[4096];
        const ssize_t received = ::recv(socket, bytes, sizeof bytes, MSG_DONTWAIT);
        return received == 0 || (received < 0 && errno == ECONNRESET);
    });
}

int abort_link(uint16_t port, int link, const std::string& from)
{
    RpcClient client(port, DEVICE_ASYNC, from);
    Device_Error result{};
    return client.call(DEVICE_ABORT, ::xdr_Device_Link, link, ::xdr_Device_Error, result) == RPC_SUCCESS
               ? result.error
               : -1;
}

} // namespace orvan_test
