#include "mnemonic.h"
#include "pattern.h"
#include "scpi/parser.h"

namespace {

using scpi::fold_mnemonic;

/** Position of the match in the header: at the first character of a node, or after the last node. */
struct HeaderPosition {
    const char* p;
    bool at_node;
};

/**
 * The position after the header's node at `p` if it is the long or short form of the pattern's node, else
 * null. The first differing character decides, whatever follows in pattern and header.
 */
const char* match_node(const char* node, const char* p, const char* end, bool short_form)
{
    const char* const start = p;
    for (; fold_mnemonic(*node) != 0; ++node) {
        if (short_form && scpi::is_lower(*node)) {
            continue;
        }
        if (p == end || fold_mnemonic(*p) != fold_mnemonic(*node)) {
            return nullptr;
        }
        ++p;
    }
    const bool whole_node = p != start && (p == end || fold_mnemonic(*p) == 0);
    return whole_node ? p : nullptr;
}

bool match_nodes(const char* pattern, HeaderPosition at, const char* end)
{
    while (*pattern != '\0' && *pattern != '?') {
        const bool optional = *pattern == '[';
        const char* node = pattern + (optional ? 1 : 0);
        node += *node == ':' ? 1 : 0;

        const char* after = nullptr;
        if (at.at_node) {
            after = match_node(node, at.p, end, false);
            if (after == nullptr) {
                after = match_node(node, at.p, end, true);
            }
        }
        if (after == nullptr && !optional) {
            return false;
        }

        pattern = scpi::pattern_node_end(node, optional);
        if (pattern == nullptr) {
            return false;
        }
        if (after == nullptr) {
            continue;
        }
        const bool more = after != end && *after == ':';
        const HeaderPosition next{more ? after + 1 : after, more};
        if (optional && match_nodes(pattern, next, end)) {
            return true;
        }
        if (!optional) {
            at = next;
        }
    }
    if (at.at_node) {
        return false;
    }
    const bool query = *pattern == '?';
    if (query && pattern[1] != '\0') {
        return false;
    }
    return query ? end - at.p == 1 && *at.p == '?' : at.p == end;
}

} // namespace

scpi_bool_t SCPI_Match(const char* pattern, const char* header, size_t len)
{
    if (pattern == nullptr || header == nullptr || len == 0) {
        return false;
    }
    const char* const end = header + len;
    const bool common = *pattern == '*';
    if (common != (*header == '*')) {
        return false;
    }
    if (common) {
        return match_nodes(pattern + 1, {header + 1, true}, end);
    }
    return match_nodes(pattern, {header + (*header == ':' ? 1 : 0), true}, end);
}
