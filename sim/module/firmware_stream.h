/** Receives an image block by block in frames of the maintenance protocol. No socket, no clock. */
#ifndef ORVAN_SIM_MODULE_FIRMWARE_STREAM_H
#define ORVAN_SIM_MODULE_FIRMWARE_STREAM_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "maintenance_frame.h"

namespace sim_module {

class FirmwareStream {
public:
    enum class Step {
        kIgnored,    /**< not a frame of a stream: not acknowledged */
        kTaken,      /**< to be acknowledged, whether or not it was stored */
        kComplete,   /**< the end of an image without a gap */
        kIncomplete, /**< the end of one that is empty or has gaps */
    };

    /**
     * Handles a frame of which `length` bytes were received.
     *
     * Blocks count from 1. Block 0 has no data and restarts the stream; so does block 1, since a sender that
     * waits for each acknowledgement repeats only its last block. A block that is not the next one, or whose
     * data is incomplete, is not stored: its acknowledgement requests the next one again.
     */
    Step take(const HaldeElec::Orvan::HALDE_PACKET& frame, size_t length);

    /** The block that an acknowledgement names. */
    uint16_t expected_block() const { return m_next; }

    /** The end was received, and no new stream has begun since. */
    bool has_ended() const { return m_ended; }

    std::string_view image() const { return m_image; }

    void reset();

private:
    Step end(uint16_t block);

    std::string m_image;
    uint16_t m_next = 1;
    bool m_ended = false;
};

} // namespace sim_module

#endif
