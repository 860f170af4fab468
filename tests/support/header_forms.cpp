#include "header_forms.h"

#include <algorithm>
#include <cctype>

namespace orvan_test {

namespace {

struct Node {
    std::string text; // with its colon
    bool optional;
};

std::vector<Node> nodes_of(std::string_view pattern)
{
    std::vector<Node> nodes;
    while (!pattern.empty()) {
        const bool optional = pattern.front() == '[';
        const size_t end =
            optional ? pattern.find(']') : std::min(pattern.find_first_of("[:", 1), pattern.size());
        nodes.push_back({std::string(pattern.substr(optional, end - optional)), optional});
        pattern.remove_prefix(optional ? end + 1 : end);
    }
    return nodes;
}

std::string shortened(std::string text)
{
    std::erase_if(text, [](unsigned char c) { return std::islower(c) != 0; });
    return text;
}

std::string in_small_letters(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace

std::vector<std::string> header_forms(std::string_view pattern)
{
    const std::vector<Node> nodes = nodes_of(pattern);
    const auto optional = static_cast<unsigned>(std::ranges::count_if(nodes, &Node::optional));
    std::vector<std::string> forms;
    for (unsigned chosen = 0; chosen < 1U << optional; ++chosen) {
        std::string brief;
        std::string full;
        std::string mixed;
        unsigned next = 0;
        bool full_turn = true;
        for (const Node& node : nodes) {
            if (node.optional && (chosen >> next++ & 1) == 0) {
                continue;
            }
            mixed += full_turn ? node.text : shortened(node.text);
            full_turn = !full_turn;
            brief += shortened(node.text);
            full += node.text;
        }
        forms.insert(forms.end(), {brief, full, mixed, in_small_letters(full)});
        if (brief.front() == ':') {
            forms.push_back(brief.substr(1));
        }
    }
    return forms;
}

std::string short_header(std::string_view pattern)
{
    return header_forms(pattern).front();
}

} // namespace orvan_test
