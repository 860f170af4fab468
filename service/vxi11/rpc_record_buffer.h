#ifndef ORVAN_SERVICE_VXI11_RPC_RECORD_BUFFER_H
#define ORVAN_SERVICE_VXI11_RPC_RECORD_BUFFER_H

#include <cstdint>
#include <string>
#include <string_view>

namespace orvan_service {

/**
 * Assembles the records of a stream from their fragments (RFC 5531 11). Takes only as much memory as bytes
 * have arrived, whatever length a fragment announces.
 */
class RpcRecordBuffer {
public:
    /** @param longest bytes of the longest record */
    explicit RpcRecordBuffer(size_t longest) : m_longest(longest) {}

    enum class State {
        kUnfinished, /**< all bytes are taken, more are needed */
        kComplete,   /**< record() is there; the bytes after it are not taken */
        kTooLong     /**< the stream is of no more use */
    };

    /** Takes bytes of the stream, removing them from `bytes`. What record() returned is gone. */
    State take(std::string_view& bytes);

    std::string_view record() const { return m_record; }

private:
    const size_t m_longest;
    std::string m_record;
    uint32_t m_mark = 0;
    unsigned m_mark_bytes = 0; // of the mark that have arrived
    size_t m_left = 0;         // bytes of the fragment to come
    bool m_complete = false;
};

} // namespace orvan_service

#endif
