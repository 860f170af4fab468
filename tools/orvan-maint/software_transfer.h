/**
 * The transfer of a software package to the controller.
 *
 * The instrument stores blocks in order and acknowledges each with the number that it expects next; it
 * ignores any other block, so a block whose acknowledgement was lost is not answered again. Block 0 of any
 * opcode takes it back to block 1, so another PC's search for instruments is enough. It stays in the transfer
 * until its end, however long that takes, and answers nothing else meanwhile.
 *
 * A transfer begins with an HESU frame. The following frames are HEID: in the transfer the opcode is ignored,
 * and outside it such a frame, late or duplicated, only identifies the instrument, whereas an HESU frame
 * would begin another transfer. The answer also shows that the instrument is not in a transfer.
 */
#ifndef ORVAN_MAINT_SOFTWARE_TRANSFER_H
#define ORVAN_MAINT_SOFTWARE_TRANSFER_H

#include <functional>
#include <vector>

#include "blocks.h"
#include "link.h"
#include "round_trip.h"

namespace orvan_maint {

/** The instrument may be busy with its disk for a while, and an extra frame does no harm. */
inline constexpr Timing kSoftwareTiming{std::chrono::milliseconds(500), std::chrono::milliseconds(10),
                                        std::chrono::milliseconds(250), std::chrono::seconds(30)};

class SoftwareTransfer {
public:
    /** @param progress is called with the bytes that have arrived; they decrease when it restarts */
    SoftwareTransfer(Link& link, const hwaddr_t& mac, std::string_view package, const Timing& timing,
                     std::function<void(size_t)> progress);

    /** Throws Failure when the instrument stops answering, has left the transfer or is taken back to its
     * start repeatedly; Interrupted as the link does. */
    void run();

    /** Whether the package's end was sent, so that the instrument may be processing it. */
    bool end_sent() const { return m_end_sequence != 0; }
    /** Whether the instrument acknowledged a block that it did not get from here, so that another sender's
     *  blocks are in the package. */
    bool damaged() const { return m_damaged; }
    /** Frames resent. */
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
    std::vector<size_t> m_sent;  /**< blocks in sending order; `info` of a block is its position, from 1 */
    uint32_t m_end_sequence = 0; /**< `info` of the end; 0 when it was not sent */
    bool m_damaged = false;
};

/**
 * Ends an interrupted transfer, so that the instrument serves again: corrupts what has arrived of the package
 * and sends its end. To an instrument that is not in a transfer these are identifications.
 *
 * @return whether the instrument answers now
 */
bool end_broken_transfer(Link& link, const hwaddr_t& mac, std::chrono::milliseconds time);

} // namespace orvan_maint

#endif
