#ifndef ORVAN_SERVICE_VXI11_RPC_MESSAGE_H
#define ORVAN_SERVICE_VXI11_RPC_MESSAGE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <rpc/rpc.h>

namespace orvan_service {

/** The routine of rpcgen that encodes, decodes and frees a T. */
template <typename T>
using XdrRoutine = bool_t (*)(XDR*, T*);

/** A value decoded from XDR (RFC 4506), with what the decoding allocated. */
template <typename T>
class Decoded {
public:
    Decoded(XdrRoutine<T> routine, std::string_view bytes) : m_routine(routine)
    {
        XDR stream;
        // Only read, as it decodes.
        ::xdrmem_create(&stream, const_cast<char*>(bytes.data()), static_cast<u_int>(bytes.size()),
                        XDR_DECODE);
        m_good = routine(&stream, &m_value) != 0;
    }
    ~Decoded()
    {
        XDR stream{};
        stream.x_op = XDR_FREE;
        m_routine(&stream, &m_value);
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    /** Whether the bytes were a T; what follows it in them is ignored. */
    explicit operator bool() const { return m_good; }
    const T& operator*() const { return m_value; }

private:
    const XdrRoutine<T> m_routine;
    T m_value{};
    bool m_good;
};

/** `value` as XDR; empty if it exceeds the bounds of its type. */
template <typename T>
std::string encode(XdrRoutine<T> routine, T value)
{
    std::string bytes(::xdr_sizeof(reinterpret_cast<xdrproc_t>(routine), &value), '\0');
    XDR stream;
    ::xdrmem_create(&stream, bytes.data(), static_cast<u_int>(bytes.size()), XDR_ENCODE);
    return routine(&stream, &value) != 0 ? bytes : std::string();
}

/** The header of a call (RFC 5531 9). */
struct RpcCall {
    uint32_t xid;
    uint32_t program;
    uint32_t version;
    uint32_t procedure;
    std::string_view arguments; /**< part of the record */

    /** Empty if the record is not a call of RPC version 2. Credentials are ignored. */
    static std::optional<RpcCall> of(std::string_view record);
};

/** A reply with `results`, as a record with its mark. */
std::string rpc_reply(uint32_t xid, std::string_view results);

/** A reply without results, for every status but SUCCESS; for PROG_MISMATCH only version 1 exists. */
std::string rpc_refusal(uint32_t xid, accept_stat status);

/** A call without credentials and without a record mark, as a datagram has it. */
std::string rpc_call(const RpcCall& call);

/** `message` as a record of one fragment (RFC 5531 11). */
std::string rpc_record(std::string_view message);

} // namespace orvan_service

#endif
