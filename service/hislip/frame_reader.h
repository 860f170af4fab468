#ifndef ORVAN_SERVICE_HISLIP_FRAME_READER_H
#define ORVAN_SERVICE_HISLIP_FRAME_READER_H

#include <optional>
#include <string_view>
#include <vector>

#include "frame.h"

namespace orvan_service::hislip {

/**
 * Takes a stream of HiSLIP messages apart, however it is split: header() first, then pieces of its payload
 * until left() is 0, then the next header().
 */
class FrameReader {
public:
    enum class Next {
        kNeedMore, /**< receive more */
        kHeader,   /**< `header` is the next message's */
        kBad       /**< the bytes are no header; nothing after them can be read */
    };

    /** Where to receive; never empty after kNeedMore, and after piece() returned nothing. */
    std::span<char> space();
    void received(size_t count) { m_end += count; }

    /** Only between messages: left() is 0. */
    Next next(Header& header);

    /** Bytes of the current message's payload that have not been returned. */
    uint64_t left() const { return m_left; }

    /** The next bytes of the payload, at most `most`; empty if none have been received. Valid until space().
     */
    std::string_view piece(size_t most);

    /** `count` bytes of the payload were received elsewhere; only when piece() is empty. */
    void bypassed(size_t count) { m_left -= count; }

private:
    std::vector<char> m_buffer;
    size_t m_begin = 0;
    size_t m_end = 0;
    uint64_t m_left = 0;
};

} // namespace orvan_service::hislip

#endif
