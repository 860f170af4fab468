/**
 * Look-up of a header in a command table, in time that depends only on the header's length.
 *
 * The patterns of the table form one automaton: a state represents the set of places in all patterns
 * that the nodes read so far can lead to, and each spelling of a node that some pattern accepts there leads
 * to the next state. Optional nodes and spellings shared by several patterns thus need no backtracking, and
 * a state holds the first row, in table order, that ends in it. For the usual table the automaton is the
 * tree of its nodes.
 */
#ifndef SCPI_SRC_COMMAND_INDEX_H
#define SCPI_SRC_COMMAND_INDEX_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "scpi/types.h"

namespace scpi {

class CommandIndex {
public:
    /** The table must outlive the index. A row whose pattern is malformed is never found. */
    explicit CommandIndex(const scpi_command_t* commands);

    /** First row that the header matches, by the rules of SCPI_Match; null if there is none. */
    const scpi_command_t* find(const char* header, size_t len) const;

private:
    friend class CommandIndexBuilder;

    struct State {
        const scpi_command_t* set_row;
        const scpi_command_t* query_row;
    };

    /** Slot of an open hash table over (state, spelling). */
    struct Edge {
        uint32_t from;
        uint32_t to;
        uint32_t text; /**< offset of the spelling, in upper case, in `m_spellings` */
        uint32_t len;  /**< 0 marks an empty slot */
    };

    const State* step(uint32_t from, const char* mnemonic, size_t len, uint32_t hash, uint32_t& to) const;

    std::vector<State> m_states;
    std::vector<Edge> m_edges;
    uint32_t m_edge_mask = 0;
    std::string m_spellings;
};

} // namespace scpi

#endif
