#ifndef ORVAN_SERVICE_VXI11_VXI11_ABORT_H
#define ORVAN_SERVICE_VXI11_VXI11_ABORT_H

#include "rpc_channel.h"

namespace orvan_service {

class Vxi11Core;

/** The abort channel (VXI-11 B.6.15), which every client can use while a call of its links waits. */
class Vxi11Abort : public RpcProgram {
public:
    /** @param connections of clients at a time */
    Vxi11Abort(orvan_common::UniqueFd listener, size_t connections);

    /** To be called before the channel is served. @param core outlives this object's use */
    void serve_for(Vxi11Core& core) { m_core = &core; }
    RpcChannel& channel() { return m_channel; }

    Outcome call(const RpcCaller& caller, uint32_t procedure, std::string_view arguments) override;

private:
    Vxi11Core* m_core = nullptr;
    RpcChannel m_channel;
};

} // namespace orvan_service

#endif
