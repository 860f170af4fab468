/** An image that comes block by block in frames of the maintenance protocol. No socket, no clock. */
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
        kIgnored,    /**< no frame of a stream: not even acknowledged */
        kTaken,      /**< to be acknowledged, whatever became of it */
        kComplete,   /**< the end of an image without a gap */
        kIncomplete, /**< the end of one that is empty or has gaps */
    };

    /**
     * Takes a frame of which `length` bytes have come.
     *
     * Blocks count from 1. Block 0 holds nothing and begins anew; so does block 1, since a sender that waits
     * for each acknowledgement repeats only its last block. A block that is not the next one, and one whose
     * data have not come whole, is not stored: its acknowledgement asks for the next one again.
     */
    Step take(const HaldeElec::Orvan::HALDE_PACKET& frame, size_t length);

    /** The block that an acknowledgement names. */
    uint16_t expected_block() const { return m_next; }

    /** The end has come, and nothing has begun anew since. */
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
