#ifndef ORVAN_SIM_BOARD_CURRENT_BOARD_H
#define ORVAN_SIM_BOARD_CURRENT_BOARD_H

#include <memory>

#include "board/board.h"

namespace sim_board {

/**
 * The board on which hw_* and wiringPi's functions work, process-wide. Never null: at first the board that
 * the environment describes, see environment.h. Thread-safe; the caller's pointer keeps the board alive even
 * when it is replaced.
 */
std::shared_ptr<Board> current_board();

/** Makes a board the current one and returns the previous one. */
std::shared_ptr<Board> set_current_board(std::shared_ptr<Board> board);

/**
 * Makes a board the current one for its own lifetime. On destruction the previous board is current again and
 * this one is stopped: its waits end and its interrupt threads are joined.
 */
class InstalledBoard {
public:
    explicit InstalledBoard(std::shared_ptr<Board> board);
    /** Makes the board too. */
    explicit InstalledBoard(const BoardWiring& wiring, Clock::Mode mode = Clock::Mode::kManual,
                            const std::string& eeprom_image = {});
    ~InstalledBoard();
    InstalledBoard(const InstalledBoard&) = delete;
    InstalledBoard& operator=(const InstalledBoard&) = delete;

    Board& operator*() const { return *m_board; }
    Board* operator->() const { return m_board.get(); }

private:
    std::shared_ptr<Board> m_board;
    std::shared_ptr<Board> m_before;
};

} // namespace sim_board

#endif
