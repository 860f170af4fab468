/**
 * Injectable faults of the module's connections, between the SCPI server's transport and the instrument,
 * which is not aware of them.
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
    kSilent, /**< requests are read, but neither executed nor answered */
    kRefuse, /**< the port is closed */
    kClose,  /**< connections are accepted and closed at once; nothing is executed */
    kSlow,   /**< each reply is delayed */
    kSplit,  /**< each reply is sent in two pieces with a pause between them */
    kLong,   /**< each reply is longer than a controller's buffer */
};

/** A piece of a reply: sent in one write, `delay` after the previous one. */
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

    /** Splits a reply for sending. Every mode that executes requests returns at least one piece. */
    std::vector<ReplyPiece> shape(std::string reply) const;

private:
    FaultMode m_mode = FaultMode::kUp;
    std::chrono::milliseconds m_delay{0};
};

/** "up", "silent", "refuse", "close", "slow", "split", "long". */
std::string_view fault_name(FaultMode mode);

/** The mode of a name; "drop" and "drop-connection" also mean kClose. Empty for any other word. */
std::optional<FaultMode> fault_by_name(std::string_view name);

} // namespace sim_module

#endif
