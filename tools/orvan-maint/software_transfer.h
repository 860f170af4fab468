/**
 * The transfer of a software package to the controller.
 *
 * The instrument stores blocks in their order and acknowledges each by the number that it expects next; what
 * it does not expect it neither takes nor answers, so that a block whose acknowledgement got lost is answered
 * no more. Block 0 of whatever opcode takes it back to block 1, so
 * that another PC's search for instruments is enough. It stays in the transfer until it has its end, however
 * long that takes, and answers nothing else meanwhile.
 *
 * A transfer begins with an HESU frame. The frames behind it are HEID: in the transfer no opcode is looked
 * at, and outside it such a frame, late or sent once too often, does no more than identify the instrument,
 * where an HESU frame would begin another transfer. It also tells that the instrument is not in a transfer.
 */
#ifndef ORVAN_MAINT_SOFTWARE_TRANSFER_H
#define ORVAN_MAINT_SOFTWARE_TRANSFER_H

#include <functional>
#include <vector>

#include "blocks.h"
#include "link.h"
#include "round_trip.h"

namespace orvan_maint {

/** The instrument may be at its disk for a while, and a frame too many does no harm. */
inline constexpr Timing kSoftwareTiming{std::chrono::milliseconds(500), std::chrono::milliseconds(10),
                                        std::chrono::milliseconds(250), std::chrono::seconds(30)};

class SoftwareTransfer {
public:
    /** @param progress is told the bytes that have arrived, which fall back when the instrument does */
    SoftwareTransfer(Link& link, const hwaddr_t& mac, std::string_view package, const Timing& timing,
                     std::function<void(size_t)> progress);

    /** Throws Failure when the instrument stops answering, has left the transfer or is taken back to its
     * start again and again; Interrupted as the link does. */
    void run();

    /** Whether the package's end was sent, so that the instrument may be at work on it. */
    bool end_sent() const { return m_end_sequence != 0; }
    /** Whether the instrument acknowledged a block that it did not get from here, so that another sender's
     *  blocks are in the package. */
    bool damaged() const { return m_damaged; }
    /** Frames that were sent again. */
    size_t resent() const { return m_resent; }

private:
    size_t open();
    size_t deliver(size_t block);
    bool acknowledges(const HALDE_PACKET& frame);
    size_t left_at(size_t block, uint32_t answered);
    size_t companion_of(size_t block, size_t resends) const;
    void send_header();
    void send_rewind();
    void send_block(size_t block);
    void check_patience();
    void count_restart();

    Link& m_link;
    hwaddr_t m_mac;
    Blocks m_blocks;
    Timing m_timing;
    RoundTrip m_round_trip;
    std::function<void(size_t)> m_progress;
    Clock::time_point m_last_advance;
    size_t m_resent = 0;
    int m_restarts = 0;
    std::vector<size_t> m_sent;  /**< blocks in their order; `info` of a block is its place, from 1 on */
    uint32_t m_end_sequence = 0; /**< `info` of the end; 0 when it was not sent */
    bool m_damaged = false;
};

/**
 * Ends a transfer that was broken off, so that the instrument serves again: what has arrived of the package
 * is spoilt and its end sent. To an instrument that is in no transfer these are identifications.
 *
 * @return whether the instrument answers now
 */
bool end_broken_transfer(Link& link, const hwaddr_t& mac, std::chrono::milliseconds time);

} // namespace orvan_maint

#endif
