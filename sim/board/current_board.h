#ifndef ORVAN_SIM_BOARD_CURRENT_BOARD_H
#define ORVAN_SIM_BOARD_CURRENT_BOARD_H

#include <memory>

#include "board/board.h"

namespace sim_board {

/**
 * The board on which hw_* and wiringPi's functions work, in the whole process. Never null: at first the
 * board that the environment tells, see environment.h. Thread-safe; the caller's pointer keeps the board
 * alive, also when another one takes its place.
 */
std::shared_ptr<Board> current_board();

/** Makes a board the current one and gives back the one before. */
std::shared_ptr<Board> set_current_board(std::shared_ptr<Board> board);

/**
 * A board that is the current one as long as this lives. At the end the board before is current again and
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
