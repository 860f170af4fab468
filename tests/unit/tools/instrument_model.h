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

    /** Replies to a datagram and to those that were waiting. */
    std::vector<Bytes> serve(std::span<const uint8_t> datagram);

    // ---- configuration
    HaldeElec::Orvan::hwaddr_t mac{{0x02, 0x00, 0x0A, 0x00, 0x00, 0x02}};
    std::map<char, std::string> rows; /**< texts by letter */
    std::vector<HaldeElec::Orvan::optEntry_t> options;
    bool is_silent = false;          /**< serves nothing at all */
    uint16_t module_silent_from = 0; /**< the block that no module acknowledges; 0 for none */
    uint16_t acknowledged_above = 1; /**< added to the block's number in a module's acknowledgement */
    std::vector<uint32_t> module_ends{0, 0, 0, 0}; /**< LXI_ERROR_TIMEOUT is the instrument's own frame */
    bool confirms = true;                          /**< sends the final frame of the whole stream */
    /** Software version after a complete transfer; empty for no change. */
    std::string software_after;
    /** After such a transfer: number of requests that wait while it unpacks the package. */
    int busy = 0;
    /** Then, if it restarts: number of requests answered before, and missed during, the restart. */
    bool restarts = false;
    int answers_before = 0;
    int away = 0;
    bool clears_buffer = false; /**< before each datagram, unlike a real instrument */
    uint16_t leaves_at = 0;     /**< the block at which it drops out of a transfer; 0 for none */
    uint16_t stolen_block = 0;  /**< another client sends it first and the tool is acknowledged; 0 for none */
    uint32_t stolen_info = 0;   /**< info of the other client's frame */

    /** Puts it into the middle of a transfer, at this block. */
    void wait_for_block(uint16_t block);

    // ---- results
    std::map<char, std::string> written; /**< the last value of a row, as many bytes as a row has */
    std::string file;                    /**< of the last transfer */
    std::string image;                   /**< of the last stream */
    int transfers = 0;                   /**< started */
    int ended = 0;                       /**< transfers completed */
    int streams = 0;                     /**< streams completed */
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

    Frame m_buffer{}; /**< a short datagram leaves the rest of the previous one */
    bool m_updating = false;
    std::vector<Bytes> m_waiting;
    uint16_t m_next_block = 0;
    size_t m_position = 0;
    bool m_streaming = false;
    bool m_is_gone = false;
};

} // namespace orvan_test

#endif
