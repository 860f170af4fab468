/**
 * A VXI-11 server on the loopback with an instrument of the test, and clients for it.
 */
#ifndef ORVAN_TESTS_VXI11_FIXTURE_H
#define ORVAN_TESTS_VXI11_FIXTURE_H

#include <string>
#include <utility>

#include <rpc/rpc.h>
#include <vxi11.h>

#include "scripted_instrument.h"
#include "service/executor.h"
#include "service/standard/locks.h"
#include "service/vxi11/vxi11_server.h"
#include "support/eventually.h"
#include "support/log_capture.h"
#include <unique_fd.h>

namespace orvan_test {

/** The server with its executor. */
class RunningVxi11 {
public:
    explicit RunningVxi11(const orvan_service::Vxi11Options& options = loopback());
    ~RunningVxi11();

    static orvan_service::Vxi11Options loopback();

    uint16_t port() const { return server.port(); }

    ScriptedInstrument instrument;
    orvan_service::Executor executor;
    orvan_service::Locks locks;
    orvan_service::Vxi11Server server;
    bool started;
};

/** A connection to an RPC program's port, by libtirpc's client. */
class RpcClient {
public:
    /** @param from own address on the loopback */
    RpcClient(uint16_t port, uint32_t program, const std::string& from = "127.0.0.1");
    ~RpcClient();
    RpcClient(const RpcClient&) = delete;
    RpcClient& operator=(const RpcClient&) = delete;

    /** The status of the call; `result` is to be freed with xdr_free. */
    template <typename Parameters, typename Result>
    clnt_stat call(uint32_t procedure, bool_t (*encoder)(XDR*, Parameters*), Parameters parameters,
                   bool_t (*decoder)(XDR*, Result*), Result& result)
    {
        return clnt_call(m_client, procedure, reinterpret_cast<xdrproc_t>(encoder), &parameters,
                         reinterpret_cast<xdrproc_t>(decoder), &result, (timeval{30, 0}));
    }
    void close();

private:
    CLIENT* m_client;
};

struct ReadResult {
    int error;
    int reason;
    std::string data;

    bool operator==(const ReadResult&) const = default;
};

/** For GoogleTest's messages. */
void PrintTo(const ReadResult& result, std::ostream* out);

// Longer than a call waits for its reply: a test cannot pass because a limit ends it.
constexpr int kWaitLock = 0x01;
constexpr int kEnd = 0x08;
constexpr int kEndCharSet = 0x80;

/** A client of the core channel, and the link it created last. Errors of the RPC itself are error -1. */
class Vxi11Client : public RpcClient {
public:
    explicit Vxi11Client(uint16_t port, const std::string& from = "127.0.0.1")
        : RpcClient(port, DEVICE_CORE, from)
    {
    }

    Create_LinkResp create(const std::string& device = "inst0", bool lock = false, unsigned lock_timeout = 0);
    Device_WriteResp write(const std::string& data, int flags = kEnd, unsigned io_timeout = 60'000,
                           unsigned lock_timeout = 0);
    ReadResult read(unsigned io_timeout = 60'000, unsigned requested = 1000, int flags = 0, char end_char = 0,
                    unsigned lock_timeout = 0);
    /** The response to a query; empty if there is an error. */
    std::string ask(const std::string& query);
    /** Error and status byte. */
    std::pair<int, int> read_status(int flags = 0, unsigned lock_timeout = 0);
    /** DEVICE_TRIGGER, DEVICE_CLEAR, DEVICE_REMOTE or DEVICE_LOCAL. */
    int act(uint32_t procedure, int flags = 0, unsigned lock_timeout = 0);
    int lock(int flags = 0, unsigned lock_timeout = 0);
    int unlock() { return call_for_link(DEVICE_UNLOCK); }
    int destroy() { return call_for_link(DESTROY_LINK); }
    int enable_requests(bool enable, const std::string& handle);
    int create_interrupts(const Device_RemoteFunc& target);
    int destroy_interrupts();

    int link = 0;
    Create_LinkResp created{};

private:
    int call_for_link(uint32_t procedure);
};

/** True once the peer has ended the connection, with or without a reset; what it sent is discarded. */
bool sees_end(int socket);

/** Error of device_abort on the abort channel. */
int abort_link(uint16_t port, int link, const std::string& from = "127.0.0.1");

} // namespace orvan_test

#endif
