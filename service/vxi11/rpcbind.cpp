#include "rpcbind.h"

#include <memory>
#include <stdexcept>

#include <netinet/in.h>
// clang-format off
#include <rpc/rpc.h>
#include <rpc/pmap_prot.h> // needs the types of the one before
// clang-format on

namespace orvan_service {
namespace {

constexpr timeval kPatience{1, 0}; // for one reply

struct Destroy {
    void operator()(CLIENT* client) const { clnt_destroy(client); }
};
using Client = std::unique_ptr<CLIENT, Destroy>;

// From a port below 1024 if the process may have one: rpcbind takes changes from no other.
Client connect()
{
    sockaddr_in rpcbind{};
    rpcbind.sin_family = AF_INET;
    rpcbind.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    rpcbind.sin_port = htons(PMAPPORT);
    int socket = RPC_ANYSOCK;
    Client client(::clnttcp_create(&rpcbind, PMAPPROG, PMAPVERS, &socket, 0, 0));
    if (!client) {
        throw std::runtime_error(::clnt_spcreateerror("no rpcbind"));
    }
    return client;
}

bool change(CLIENT* client, rpcproc_t procedure, pmap entry)
{
    bool_t done = 0;
    const clnt_stat status = clnt_call(client, procedure, reinterpret_cast<xdrproc_t>(::xdr_pmap), &entry,
                                       reinterpret_cast<xdrproc_t>(::xdr_bool), &done, kPatience);
    if (status != RPC_SUCCESS) {
        throw std::runtime_error(::clnt_sperror(client, "rpcbind"));
    }
    return done != 0;
}

} // namespace

RpcbindEntry::RpcbindEntry(uint32_t program, uint32_t version, uint16_t port)
    : m_program(program), m_version(version)
{
    const Client client = connect();
    change(client.get(), PMAPPROC_UNSET, {program, version, 0, 0});
    if (!change(client.get(), PMAPPROC_SET, {program, version, IPPROTO_TCP, port})) {
        throw std::runtime_error("rpcbind refuses the entry");
    }
}

RpcbindEntry::~RpcbindEntry()
{
    try {
        change(connect().get(), PMAPPROC_UNSET, {m_program, m_version, 0, 0});
    } catch (const std::exception&) { // it ended before
    }
}

} // namespace orvan_service
