#include "board/current_board.h"

#include <cstdio>
#include <mutex>
#include <sstream>
#include <string>
#include <system_error>

#include "board/board_verbs.h"
#include "board/environment.h"
#include "board/module_power.h"

namespace sim_board {
namespace {

// wiringPi's functions cannot throw, so an unusable image leaves a board that does not save.
std::shared_ptr<Board> make_board(const BoardEnvironment& environment)
{
    try {
        return std::make_shared<Board>(*environment.wiring, Clock::Mode::kRealTime, environment.eeprom_image,
                                       environment.clock_rate);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "sim_board: no EEPROM image: %s\n", error.what());
        return std::make_shared<Board>(*environment.wiring, Clock::Mode::kRealTime, "",
                                       environment.clock_rate);
    }
}

void report_power(Board& board, const std::string& path)
{
    if (path.empty()) {
        return;
    }
    try {
        report_module_power(board, path);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "sim_board: no report of the module power: %s\n", error.what());
    }
}

std::shared_ptr<Board> first_board()
{
    const BoardEnvironment environment = board_environment();
    std::shared_ptr<Board> board = make_board(environment);
    if (environment.start_up) {
        board->clock().start_up_begins();
    }
    report_power(*board, environment.module_power_path);
    std::istringstream verbs(environment.at_power_on);
    for (std::string verb; std::getline(verbs, verb, ';');) {
        const std::string reply = execute_on_board(*board, verb);
        if (!reply.starts_with("ok")) {
            std::fprintf(stderr, "sim_board: ORVAN_BOARD_AT_POWER_ON: %s", reply.c_str());
        }
    }
    return board;
}

struct Current {
    std::mutex mutex;
    std::shared_ptr<Board> board = first_board();
};

// Never destroyed: the library's threads live as long as the process and may use the board at exit.
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
