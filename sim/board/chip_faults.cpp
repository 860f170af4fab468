#include "board/chip_faults.h"

namespace sim_board {

void ChipFaults::absent(bool on)
{
    std::lock_guard lock(m_mutex);
    m_absent = on;
}

void ChipFaults::refuse_after(std::optional<size_t> count)
{
    std::lock_guard lock(m_mutex);
    m_left = count;
}

bool ChipFaults::within_limit()
{
    if (!m_left) {
        return true;
    }
    if (*m_left == 0) {
        return false;
    }
    --*m_left;
    return true;
}

} // namespace sim_board
