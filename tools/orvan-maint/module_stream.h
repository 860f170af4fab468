/**
 * The stream of an image to all channel modules.
 *
 * The instrument passes each frame to every module and waits for all acknowledgements before it accepts the
 * next; the tool gets the last one. After the end follow, channel by channel, a module's progress frames and
 * its final frame, or an error frame of the instrument for a silent module; after all channels, if none was
 * silent, the final frame of the whole download. A module's own final frame may look the same, so they are
 * counted.
 */
#ifndef ORVAN_MAINT_MODULE_STREAM_H
#define ORVAN_MAINT_MODULE_STREAM_H

#include <functional>
#include <optional>
#include <vector>

#include "blocks.h"
#include "link.h"
#include "round_trip.h"

namespace orvan_maint {

struct StreamTiming {
    Timing block;
    std::chrono::milliseconds end_wait;     /**< for the acknowledgement of the end */
    std::chrono::milliseconds burn_silence; /**< between two progress frames */
};

/**
 * A frame that is resent while the instrument still waits for a module may arrive after the stream was
 * abandoned, and begin one that never ends. So the waits are longer than the instrument's own: 2 s for each
 * module, 10 s each at the end, and 10 s for a progress frame. This makes a download over a lossy link slow.
 */
constexpr StreamTiming stream_timing(size_t channels)
{
    const auto count = static_cast<std::chrono::seconds::rep>(channels);
    const std::chrono::seconds block(2 * count + 1);
    return {{block, block, block, std::chrono::minutes(5)},
            std::chrono::seconds(10 * count + 5),
            std::chrono::seconds(15)};
}

struct StreamResult {
    /** What each channel's module ended with, in order: 0, or an error code. As many as have reported. */
    std::vector<uint32_t> modules;
    /** The instrument has said that all is done. */
    bool confirmed = false;
};

class ModuleStream {
public:
    /** @param channels number of the instrument's modules
     *  @param progress is called with the bytes that have arrived
     *  @param burning  is called with the channel, from 1, that reports progress; `ended` with its result */
    ModuleStream(Link& link, const hwaddr_t& mac, std::string_view image, size_t channels,
                 const StreamTiming& timing, std::function<void(size_t)> progress,
                 std::function<void(size_t, std::optional<uint32_t>)> burning);

    /** Throws Failure when the stream is not completed, Interrupted as the link does. */
    StreamResult run();

    /** Whether the image's end was sent, so that the modules may be programming it. */
    bool end_sent() const { return m_end_sent; }
    /** Frames resent. */
    size_t resent() const { return m_resent; }

private:
    bool deliver(size_t block, Received& received);
    bool acknowledges(const HALDE_PACKET& frame, size_t block);
    StreamResult follow_burning(std::optional<Received> first);

    Link& m_link;
    hwaddr_t m_mac;
    Blocks m_blocks;
    size_t m_channels;
    StreamTiming m_timing;
    RoundTrip m_round_trip;
    std::function<void(size_t)> m_progress;
    std::function<void(size_t, std::optional<uint32_t>)> m_burning;
    /** Difference of an acknowledgement's number and its block's; taken from the first one. */
    std::optional<uint16_t> m_above;
    size_t m_resent = 0;
    bool m_end_sent = false;
};

/** "a module did not answer in time", with the code. */
std::string error_text(uint32_t code);

} // namespace orvan_maint

#endif
