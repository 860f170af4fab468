/**
 * A model of an instrument's maintenance port, frame by frame and without a network.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_MODEL_H
#define ORVAN_TESTS_INSTRUMENT_MODEL_H

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "support/bytes.h"
#include <maintenance_frame.h>

namespace orvan_test {

class InstrumentModel {
public:
    InstrumentModel();

    /** Its replies to a datagram, and to those that waited. */
    std::vector<Bytes> serve(std::span<const uint8_t> datagram);

    // ---- how it is
    HaldeElec::Orvan::hwaddr_t mac{{0x02, 0x00, 0x0A, 0x00, 0x00, 0x02}};
    std::map<char, std::string> rows; /**< texts by letter */
    std::vector<HaldeElec::Orvan::optEntry_t> options;
    bool is_silent = false;          /**< serves nothing at all */
    uint16_t module_silent_from = 0; /**< the block that no module acknowledges; 0 for none */
    uint16_t acknowledged_above = 1; /**< by this a module's acknowledgement is above its block */
    std::vector<uint32_t> module_ends{0, 0, 0, 0}; /**< LXI_ERROR_TIMEOUT is the instrument's own frame */
    bool confirms = true;                          /**< sends the final frame of the whole */
    /** Its software after the end of a transfer that began with its header; empty for the same. */
    std::string software_after;
    /** After such an end: requests that wait until it has dealt with the package. */
    int busy = 0;
    /** And then, when it restarts: requests that it answers before, and that it misses meanwhile. */
    bool restarts = false;
    int answers_before = 0;
    int away = 0;
    bool clears_buffer = false; /**< before each datagram, unlike an instrument */
    uint16_t leaves_at = 0;     /**< the block at which it drops out of a transfer; 0 for none */
    uint16_t stolen_block = 0;  /**< someone else's comes first, acknowledged to the tool; 0 for none */
    uint32_t stolen_info = 0;   /**< of someone else's frame */

    /** In the middle of a transfer, at this block. */
    void wait_for_block(uint16_t block);

    // ---- what was done to it
    std::map<char, std::string> written; /**< the last value of a row, as many bytes as a row has */
    std::string file;                    /**< of the last transfer */
    std::string image;                   /**< of the last stream */
    int transfers = 0;                   /**< begun */
    int ended = 0;                       /**< transfers that came to their end */
    int streams = 0;                     /**< that came to their end */
    bool in_transfer() const { return m_next_block != 0; }

private:
    using Frame = HaldeElec::Orvan::HALDE_PACKET;

    std::vector<Bytes> serve_update(std::span<const uint8_t> datagram);
    std::vector<Bytes> serve_now(std::span<const uint8_t> datagram);
    std::vector<Bytes> serve_transfer(Frame& frame);
    std::vector<Bytes> serve_stream(Frame& frame);
    Bytes reply(const Frame& frame, size_t length) const;
    void put_rows(Frame& frame) const;
    void write_rows(const Frame& frame);
    Bytes final_frame(uint32_t error) const;

    Frame m_buffer{}; /**< what a datagram leaves out is as the one before left it */
    bool m_updating = false;
    std::vector<Bytes> m_waiting;
    uint16_t m_next_block = 0;
    size_t m_position = 0;
    bool m_streaming = false;
    bool m_is_gone = false;
};

} // namespace orvan_test

#endif
