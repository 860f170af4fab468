#include "rpc_message.h"

#include <arpa/inet.h>

namespace orvan_service {
namespace {

// Of a call or a reply, without arguments and results; credentials are at most MAX_AUTH_BYTES long.
constexpr u_int kLongestHeader = 128;

bool_t no_results(XDR*, ...)
{
    return 1;
}

std::string encode_header(bool_t (*routine)(XDR*, rpc_msg*), rpc_msg& message)
{
    char header[kLongestHeader];
    XDR stream;
    ::xdrmem_create(&stream, header, sizeof header, XDR_ENCODE);
    routine(&stream, &message);
    return {header, xdr_getpos(&stream)};
}

std::string reply_header(uint32_t xid, accept_stat status)
{
    rpc_msg message{};
    message.rm_xid = xid;
    message.rm_direction = REPLY;
    message.rm_reply.rp_stat = MSG_ACCEPTED;
    message.acpted_rply.ar_stat = status;
    if (status == PROG_MISMATCH) {
        message.acpted_rply.ar_vers = {1, 1};
    } else {
        message.acpted_rply.ar_results.proc = no_results;
    }
    return encode_header(::xdr_replymsg, message);
}

} // namespace

std::optional<RpcCall> RpcCall::of(std::string_view record)
{
    char credentials[MAX_AUTH_BYTES];
    char verifier[MAX_AUTH_BYTES];
    rpc_msg message{};
    message.rm_call.cb_cred.oa_base = credentials;
    message.rm_call.cb_verf.oa_base = verifier;
    XDR stream;
    ::xdrmem_create(&stream, const_cast<char*>(record.data()), static_cast<u_int>(record.size()), XDR_DECODE);
    if (::xdr_callmsg(&stream, &message) == 0) {
        return std::nullopt;
    }
    return RpcCall{message.rm_xid, message.rm_call.cb_prog, message.rm_call.cb_vers, message.rm_call.cb_proc,
                   record.substr(xdr_getpos(&stream))};
}

std::string rpc_reply(uint32_t xid, std::string_view results)
{
    return rpc_record(reply_header(xid, SUCCESS).append(results));
}

std::string rpc_refusal(uint32_t xid, accept_stat status)
{
    return rpc_record(reply_header(xid, status));
}

std::string rpc_call(const RpcCall& call)
{
    rpc_msg message{};
    message.rm_xid = call.xid;
    message.rm_direction = CALL;
    message.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    message.rm_call.cb_prog = call.program;
    message.rm_call.cb_vers = call.version;
    message.rm_call.cb_proc = call.procedure;
    return encode_header(::xdr_callmsg, message).append(call.arguments);
}

std::string rpc_record(std::string_view message)
{
    constexpr uint32_t kLast = 0x80000000;
    const uint32_t mark = htonl(kLast | static_cast<uint32_t>(message.size()));
    return std::string(reinterpret_cast<const char*>(&mark), sizeof mark).append(message);
}

} // namespace orvan_service
