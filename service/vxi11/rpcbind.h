#ifndef ORVAN_SERVICE_VXI11_RPCBIND_H
#define ORVAN_SERVICE_VXI11_RPCBIND_H

#include <cstdint>

namespace orvan_service {

/**
 * A program's entry at the local rpcbind, which tells clients its TCP port; removed at the end.
 *
 * It is made through the loopback and not through rpcbind's socket in the file system: that one belongs to
 * another instrument when this one runs in a network namespace.
 */
class RpcbindEntry {
public:
    /**
     * Replaces an entry that an earlier process left. Blocks for three seconds at most.
     *
     * @throws std::runtime_error if there is no rpcbind, or it refuses
     */
    RpcbindEntry(uint32_t program, uint32_t version, uint16_t port);
    ~RpcbindEntry();
    RpcbindEntry(const RpcbindEntry&) = delete;
    RpcbindEntry& operator=(const RpcbindEntry&) = delete;

private:
    const uint32_t m_program;
    const uint32_t m_version;
};

} // namespace orvan_service

#endif
