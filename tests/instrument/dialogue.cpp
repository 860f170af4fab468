#include "dialogue.h"

#include <fstream>
#include <stdexcept>

namespace orvan_test {

namespace {

std::vector<Exchange> read(const std::string& path, bool in_block, const std::string& block)
{
    std::vector<Exchange> all;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (!block.empty() && line.starts_with("```")) {
            in_block = line == block;
        } else if (in_block && line.starts_with("> ")) {
            all.push_back({line.substr(2), {}});
        } else if (in_block && line.starts_with("< ") && !all.empty()) {
            all.back().reply = line.substr(2);
        }
    }
    if (all.empty()) {
        throw std::runtime_error(path + " holds no dialogue");
    }
    return all;
}

} // namespace

std::vector<Exchange> read_session(const std::string& path)
{
    return read(path, true, {});
}

std::vector<Exchange> read_examples(const std::string& path)
{
    return read(path, false, "```scpi");
}

} // namespace orvan_test
