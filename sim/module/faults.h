/**
 * How the module misbehaves on its connections. It stands between the SCPI server's transport and the
 * instrument; the instrument knows nothing of it.
 */
#ifndef ORVAN_SIM_MODULE_FAULTS_H
#define ORVAN_SIM_MODULE_FAULTS_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim_module {

enum class FaultMode {
    kUp,     /**< none: a reply is one write, at once */
    kSilent, /**< requests are taken, and neither executed nor answered */
    kRefuse, /**< the port is closed */
    kClose,  /**< connections are accepted and ended without a word; nothing is executed */
    kSlow,   /**< each reply comes late */
    kSplit,  /**< each reply comes in two pieces with a pause between them */
    kLong,   /**< each reply is longer than a controller's buffer */
};

/** A piece of a reply: sent in one write, `delay` after the piece ahead of it. */
struct ReplyPiece {
    std::chrono::milliseconds delay;
    std::string bytes;
};

class Faults {
public:
    static constexpr std::chrono::milliseconds kDefaultSlow{1000};
    static constexpr std::chrono::milliseconds kDefaultGap{50};
    static constexpr std::chrono::milliseconds kMaxDelay{600'000};

    /** Bytes of a reply in mode kLong. */
    static constexpr size_t kLongReply = 5000;

    void set(FaultMode mode, std::chrono::milliseconds delay = {});

    FaultMode mode() const { return m_mode; }
    std::chrono::milliseconds delay() const { return m_delay; }

    bool port_open() const { return m_mode != FaultMode::kRefuse; }
    bool ends_connections() const { return m_mode == FaultMode::kClose; }
    bool executes() const { return m_mode != FaultMode::kSilent && m_mode != FaultMode::kClose; }

    /** How a reply goes out. Every mode that executes gives at least one piece. */
    std::vector<ReplyPiece> shape(std::string reply) const;

private:
    FaultMode m_mode = FaultMode::kUp;
    std::chrono::milliseconds m_delay{0};
};

/** "up", "silent", "refuse", "close", "slow", "split", "long". */
std::string_view fault_name(FaultMode mode);

/** The mode of a name, "drop" and "drop-connection" being kClose as well; nothing for any other word. */
std::optional<FaultMode> fault_by_name(std::string_view name);

} // namespace sim_module

#endif
