/**
 * Dialogues with the instrument as text: "> " and a line, "< " and its reply without the line end.
 */
#ifndef ORVAN_TESTS_INSTRUMENT_DIALOGUE_H
#define ORVAN_TESTS_INSTRUMENT_DIALOGUE_H

#include <string>
#include <vector>

namespace orvan_test {

struct Exchange {
    std::string line;
    std::string reply;
};

/** All exchanges of a session file; other lines are remarks. Throws std::runtime_error if there are none. */
std::vector<Exchange> read_session(const std::string& path);

/** The exchanges in the "scpi" code blocks of a Markdown document. */
std::vector<Exchange> read_examples(const std::string& path);

} // namespace orvan_test

#endif
