#include "board/module_power.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include <unique_fd.h>

namespace sim_board {

void report_module_power(Board& board, const std::string& path)
{
    const auto pipe =
        std::make_shared<orvan_common::UniqueFd>(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (!*pipe) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    const auto report = [pipe](bool on) {
        const char word = on ? '1' : '0';
        [[maybe_unused]] const ssize_t written = ::write(pipe->get(), &word, 1);
    };
    board.watch_module_power(report);
    report(board.module_power());
}

} // namespace sim_board
