#include "board/board_verbs.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "board/board_state.h"

namespace sim_board {
namespace {

std::vector<std::string_view> words_of(std::string_view line)
{
    static constexpr std::string_view kBlanks = " \t\r";
    std::vector<std::string_view> words;
    while (true) {
        line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
        if (line.empty()) {
            return words;
        }
        words.push_back(line.substr(0, line.find_first_of(kBlanks)));
        line.remove_prefix(words.back().size());
    }
}

std::string usage(const BoardVerb& verb)
{
    return std::string(verb.name) + (verb.arguments.empty() ? "" : " ") + std::string(verb.arguments);
}

std::string list_verbs(Board& board)
{
    std::string lines;
    for (const std::span<const BoardVerb> table : all_verbs()) {
        for (const BoardVerb& verb : table) {
            if (verb.fits != nullptr && !verb.fits(board)) {
                continue;
            }
            std::string line = usage(verb);
            line.resize(std::max<size_t>(line.size(), 32), ' ');
            lines += line + "  " + std::string(verb.help) + "\n";
        }
    }
    return verb_done(lines);
}

std::string run_verb(Board& board, const BoardVerb& verb, Words words)
{
    if (verb.fits != nullptr && !verb.fits(board)) {
        return verb_error("a " + std::string(board.wiring().name) + " board has nothing for '" +
                          std::string(verb.name) + "'");
    }
    if (words.size() < verb.least_words || words.size() > verb.most_words) {
        return verb_error("'" + usage(verb) + "' expected");
    }
    return verb.run(board, words);
}

std::string show_state(Board& board, Words)
{
    return verb_done(board_state(board));
}

std::string note_serving(Board& board, Words)
{
    board.clock().start_up_ends();
    return verb_done();
}

constexpr BoardVerb kState[] = {
    {"board", "", "the state of relays, outputs, fan and lines", 0, 0, nullptr, show_state},
    {"serving", "", "the instrument is ready: from now on the clock shortens periods too", 0, 0, nullptr,
     note_serving},
};

} // namespace

constinit const std::span<const BoardVerb> kStateVerbs = kState;

std::span<const std::span<const BoardVerb>> all_verbs()
{
    static const std::span<const BoardVerb> tables[] = {kStateVerbs, kI2cVerbs,     kSpiVerbs,
                                                        kPowerVerbs, kBatteryVerbs, kKeypadVerbs};
    return tables;
}

std::optional<int> verb_number(std::string_view word, int most)
{
    int value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || value < 0 || value > most) {
        return std::nullopt;
    }
    return value;
}

std::string verb_done(std::string_view lines)
{
    return "ok\n" + std::string(lines);
}

std::string verb_error(std::string_view text)
{
    return "error " + std::string(text) + "\n";
}

std::string execute_on_board(Board& board, std::string_view line)
{
    const std::vector<std::string_view> words = words_of(line);
    if (words.empty()) {
        return verb_error("a verb expected; 'help' lists them");
    }
    if (words.front() == "help") {
        return words.size() == 1 ? list_verbs(board) : verb_error("'help' expected");
    }
    for (const std::span<const BoardVerb> table : all_verbs()) {
        for (const BoardVerb& verb : table) {
            if (verb.name == words.front()) {
                return run_verb(board, verb, Words(words).subspan(1));
            }
        }
    }
    return verb_error("unknown verb '" + std::string(words.front()) + "'; 'help' lists them");
}

} // namespace sim_board
