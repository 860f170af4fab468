#ifndef ORVAN_SERVICE_VXI11_VXI11_SERVER_H
#define ORVAN_SERVICE_VXI11_VXI11_SERVER_H

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

#include "service/executor.h"
#include "service/standard/locks.h"
#include "service/standard/standard_session.h"
#include "vxi11_options.h"

namespace orvan_service {

class RpcbindEntry;
class Vxi11Abort;
class Vxi11Core;
class Vxi11Shared;

/**
 * The instrument as VXI-11 clients see it: core, abort and interrupt channel, on a thread of its own. Its
 * links are sessions of the executor, which may outlive this object.
 */
class Vxi11Server {
public:
    /** @param executor, locks outlive this object; `instrument` also outlives the executor */
    Vxi11Server(Executor& executor, StandardInstrument& instrument, Locks& locks,
                const Vxi11Options& options);
    ~Vxi11Server();
    Vxi11Server(const Vxi11Server&) = delete;
    Vxi11Server& operator=(const Vxi11Server&) = delete;

    /** Starts to serve. False, with a line in the log, if that is not possible: without an rpcbind clients
     *  would not find the port. Blocks for a few seconds at most. */
    bool start();

    /** Closes the links and removes the entry at the rpcbind; messages taken before are still executed. */
    void end();

    /** TCP port of the core channel; 0 unless started. */
    uint16_t port() const;

    /** Wakes the thread, if there is one, when a lock has been released. Any thread. */
    void wake();

private:
    void run();

    Executor& m_executor;
    StandardInstrument& m_instrument;
    Locks& m_locks;
    const Vxi11Options m_options;
    const std::shared_ptr<Vxi11Shared> m_shared;
    std::unique_ptr<Vxi11Abort> m_abort;
    std::unique_ptr<Vxi11Core> m_core;
    std::unique_ptr<RpcbindEntry> m_entry;
    std::atomic<bool> m_ending = false;
    std::thread m_thread;
};

} // namespace orvan_service

#endif
