/**
 * The nodes of a command pattern, ":NODe[:OPTional]:LAST?".
 */
#ifndef SCPI_SRC_PATTERN_H
#define SCPI_SRC_PATTERN_H

#include <string_view>

#include "mnemonic.h"

namespace scpi {

/** The position after a node whose name starts at `name`, including its "]"; null if there is no name, or
 *  no "]" after an optional one. A pattern with such a node matches nothing. */
inline const char* pattern_node_end(const char* name, bool optional)
{
    const char* p = name;
    while (fold_mnemonic(*p) != 0) {
        ++p;
    }
    if (p == name || (optional && *p != ']')) {
        return nullptr;
    }
    return optional ? p + 1 : p;
}

struct PatternNode {
    std::string_view name;
    bool optional;
};

/** Reads the node at `p`; returns the position after it, or null as pattern_node_end does. */
inline const char* read_pattern_node(const char* p, PatternNode& node)
{
    node.optional = *p == '[';
    const char* name = p + (node.optional ? 1 : 0);
    name += *name == ':' ? 1 : 0;
    const char* const next = pattern_node_end(name, node.optional);
    if (next != nullptr) {
        node.name = {name, static_cast<size_t>(next - name) - (node.optional ? 1 : 0)};
    }
    return next;
}

} // namespace scpi

#endif
