#include "vxi11_abort.h"

#include "rpc_message.h"
#include "vxi11_core.h"

namespace orvan_service {
namespace {

constexpr size_t kLongestRecord = 1024; // a call and its credentials

} // namespace

Vxi11Abort::Vxi11Abort(orvan_common::UniqueFd listener, size_t connections)
    : m_channel(std::move(listener), DEVICE_ASYNC, {kLongestRecord, connections}, *this)
{
}

RpcProgram::Outcome Vxi11Abort::call(const RpcCaller& caller, uint32_t procedure, std::string_view arguments)
{
    if (procedure != DEVICE_ABORT) {
        return Outcome::kNoProcedure;
    }
    const Decoded<Device_Link> link(::xdr_Device_Link, arguments);
    if (!link) {
        return Outcome::kBadArguments;
    }
    const Device_Error result{static_cast<int>(m_core->abort(*link, caller.address))};
    m_channel.reply(caller, encode(::xdr_Device_Error, result));
    return Outcome::kTaken;
}

} // namespace orvan_service
