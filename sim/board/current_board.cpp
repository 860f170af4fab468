#include "board/current_board.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <system_error>

namespace sim_board {
namespace {

// A virtual instrument's EEPROM outlives its processes: the image is a file that its environment names.
std::string image_of_environment()
{
    const char* const path = std::getenv("ORVAN_BOARD_EEPROM");
    return path != nullptr ? path : "";
}

// wiringPi's functions cannot throw, so an image that is of no use leaves a board that forgets.
std::shared_ptr<Board> first_board()
try {
    return std::make_shared<Board>(kPortableWiring, Clock::Mode::kRealTime, image_of_environment());
} catch (const std::system_error& error) {
    std::fprintf(stderr, "sim_board: no EEPROM image: %s\n", error.what());
    return std::make_shared<Board>(kPortableWiring, Clock::Mode::kRealTime);
}

struct Current {
    std::mutex mutex;
    std::shared_ptr<Board> board = first_board();
};

// Never destroyed: threads of the library live as long as the process and may be on the board at its end.
Current& current()
{
    static Current* const instance = new Current;
    return *instance;
}

} // namespace

std::shared_ptr<Board> current_board()
{
    Current& place = current();
    std::lock_guard lock(place.mutex);
    return place.board;
}

std::shared_ptr<Board> set_current_board(std::shared_ptr<Board> board)
{
    Current& place = current();
    std::lock_guard lock(place.mutex);
    place.board.swap(board);
    return board;
}

InstalledBoard::InstalledBoard(std::shared_ptr<Board> board)
    : m_board(std::move(board)), m_before(set_current_board(m_board))
{
}

InstalledBoard::InstalledBoard(const BoardWiring& wiring, Clock::Mode mode, const std::string& eeprom_image)
    : InstalledBoard(std::make_shared<Board>(wiring, mode, eeprom_image))
{
}

InstalledBoard::~InstalledBoard()
{
    set_current_board(m_before);
    m_board->stop();
}

} // namespace sim_board
