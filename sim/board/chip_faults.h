#ifndef ORVAN_SIM_BOARD_CHIP_FAULTS_H
#define ORVAN_SIM_BOARD_CHIP_FAULTS_H

#include <cstddef>
#include <mutex>
#include <optional>

namespace sim_board {

/** The injectable faults that a chip can have on either bus. Thread-safe. */
class ChipFaults {
public:
    /** Not fitted. */
    void absent(bool on);
    /** `count` more transfers are carried out, later ones fail; nullopt removes the limit. */
    void refuse_after(std::optional<size_t> count);

protected:
    ~ChipFaults() = default;

    /** Counts a transfer; false if it is one to fail. With m_mutex held. */
    bool within_limit();

    mutable std::mutex m_mutex;
    bool m_absent = false;

private:
    std::optional<size_t> m_left{};
};

} // namespace sim_board

#endif
