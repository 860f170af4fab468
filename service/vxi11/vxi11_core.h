#ifndef ORVAN_SERVICE_VXI11_VXI11_CORE_H
#define ORVAN_SERVICE_VXI11_VXI11_CORE_H

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>
#include <vxi11.h>

#include "interrupt_channel.h"
#include "rpc_channel.h"
#include "rpc_message.h"
#include "service/executor.h"
#include "service/standard/locks.h"
#include "vxi11_link.h"
#include "vxi11_options.h"
#include "waiting_call.h"

namespace orvan_service {

/** Error codes (VXI-11 table B.2). */
enum class Vxi11Error : int {
    kNone = 0,
    kNotAccessible = 3,
    kInvalidLink = 4,
    kNoChannel = 6,
    kNotSupported = 8,
    kOutOfResources = 9,
    kLockedByOther = 11,
    kNoLockHeld = 12,
    kIoTimeout = 15,
    kInvalidAddress = 21,
    kAborted = 23,
    kChannelExists = 29
};

/**
 * The procedures of the core channel (VXI-11 B.6). A call that has to wait, for a response or for a lock, is
 * kept and tried again; nothing blocks. A link belongs to the connection that created it. A call for a link
 * aborts the one that still waits: the client has given that one up. One thread.
 */
class Vxi11Core : public RpcProgram {
public:
    using Clock = RpcChannel::Clock;

    /** @param executor, instrument, locks outlive this object; `instrument` also the executor's sessions */
    Vxi11Core(Executor& executor, StandardInstrument& instrument, Locks& locks,
              std::shared_ptr<Vxi11Shared> shared, const Vxi11Options& options,
              orvan_common::UniqueFd listener, uint16_t abort_port);
    ~Vxi11Core() override;

    uint16_t port() const { return m_channel.port(); }

    /** device_abort: ends the waiting call of a link. @param address of the client that asks; only the
     *  link's own may */
    Vxi11Error abort(int link, in_addr_t address);

    /** Appends the descriptors to wait for. */
    void add_descriptors(std::vector<pollfd>& waiting);
    /** Serves the appended ones, tries the waiting calls again, and reports requests for service. */
    void serve(std::span<const pollfd> waiting);
    /** When to call serve() even if no descriptor is ready. */
    Clock::time_point due() const;

    Outcome call(const RpcCaller& caller, uint32_t procedure, std::string_view arguments) override;
    void connection_ended(uint64_t connection) override;
    bool needs(uint64_t connection) const override;

private:
    struct Link {
        std::shared_ptr<Vxi11Link> link;
        uint64_t connection;
        in_addr_t address;
        WaitingCall waiting{};
        bool reports_requests = false;
        std::string handle{}; // with which it reports them
    };
    struct Interrupts {
        std::unique_ptr<InterruptChannel> channel;
        WaitingCall waiting{};
    };

    void create_link(const RpcCaller& caller, const Create_LinkParms& parameters);
    void destroy_link(const RpcCaller& caller, Link& link, const Device_Link& id);
    void write(const RpcCaller& caller, Link& link, const Device_WriteParms& parameters);
    void read(const RpcCaller& caller, Link& link, const Device_ReadParms& parameters);
    void read_status(const RpcCaller& caller, Link& link, const Device_GenericParms& parameters);
    template <auto kAction>
    void act(const RpcCaller& caller, Link& link, const Device_GenericParms& parameters);
    void lock(const RpcCaller& caller, Link& link, const Device_LockParms& parameters);
    void unlock(const RpcCaller& caller, Link& link, const Device_Link& id);
    void enable_requests(const RpcCaller& caller, Link& link, const Device_EnableSrqParms& parameters);
    void do_command(const RpcCaller& caller, Link& link, const Device_DocmdParms& parameters);
    void create_interrupts(const RpcCaller& caller, const Device_RemoteFunc& parameters);

    template <typename Parameters, typename Result>
    Outcome take(const RpcCaller& caller, std::string_view arguments, XdrRoutine<Parameters> decoder,
                 XdrRoutine<Result> encoder,
                 void (Vxi11Core::*procedure)(const RpcCaller&, Link&, const Parameters&));

    Link* find(const RpcCaller& caller, int id);
    void destroy(std::map<int, Link>::iterator place);
    void when_admitted(Link& link, int flags, unsigned lock_timeout, std::function<void(Vxi11Error)> then);
    void report_requests();
    template <typename Result>
    void answer(const RpcCaller& caller, XdrRoutine<Result> encoder, const Result& result);
    template <typename Result>
    void refuse(const RpcCaller& caller, XdrRoutine<Result> encoder, Vxi11Error error);
    void answer(const RpcCaller& caller, Vxi11Error error);

    Executor& m_executor;
    StandardInstrument& m_instrument;
    Locks& m_locks;
    const std::shared_ptr<Vxi11Shared> m_shared;
    const Vxi11Options m_options;
    const uint16_t m_abort_port;
    RpcChannel m_channel;
    std::map<int, Link> m_links;
    int m_last_link = 0;
    std::map<uint64_t, Interrupts> m_interrupts; // by connection
    std::vector<uint64_t> m_waiting;             // connections whose interrupt channels were appended
};

} // namespace orvan_service

#endif
