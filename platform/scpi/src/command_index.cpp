#include "command_index.h"

#include <bit>
#include <map>
#include <utility>

#include "mnemonic.h"
#include "pattern.h"

namespace scpi {
namespace {

constexpr uint32_t kRoot = 0;       // tree of the headers with ':'
constexpr uint32_t kCommonRoot = 1; // after the '*'

constexpr uint32_t hash_start(uint32_t state)
{
    return state * 0x9e3779b9u;
}

constexpr uint32_t hash_step(uint32_t hash, char folded)
{
    return std::rotl(hash, 5) ^ static_cast<unsigned char>(folded);
}

constexpr uint32_t hash_slot(uint32_t hash)
{
    hash *= 0x85ebca6bu;
    return hash ^ (hash >> 15);
}

uint32_t hash_spelling(uint32_t state, const std::string& spelling)
{
    uint32_t hash = hash_start(state);
    for (const char c : spelling) {
        hash = hash_step(hash, c);
    }
    return hash;
}

} // namespace

/** Builds the automaton from the patterns, one reachable set of places at a time. */
class CommandIndexBuilder {
public:
    CommandIndexBuilder(CommandIndex& index, const scpi_command_t* commands) : m_index(index)
    {
        for (const scpi_command_t* row = commands; row != nullptr && row->pattern != nullptr; ++row) {
            add_row(row);
        }
    }

    void build()
    {
        Places roots[2];
        for (uint32_t i = 0; i < m_rows.size(); ++i) {
            add_place(roots[m_rows[i].common ? kCommonRoot : kRoot], i, 0);
        }
        // Both are added unshared, as their numbers are fixed even if both are empty.
        add_state(roots[kRoot]);
        add_state(roots[kCommonRoot]);
        // The loop appends states.
        for (uint32_t state = 0; state < m_places.size(); ++state) {
            add_edges_of(state);
        }
        fill_edge_table();
    }

private:
    struct Row {
        const scpi_command_t* command;
        std::vector<PatternNode> nodes;
        bool common;
        bool query;
    };

    /** A row's number and how many of its nodes have been passed. Ordered, so rows come in table order. */
    using Places = std::map<std::pair<uint32_t, uint32_t>, char>;

    struct PendingEdge {
        uint32_t from;
        uint32_t to;
        std::string spelling;
    };

    void add_row(const scpi_command_t* command)
    {
        Row row{command, {}, *command->pattern == '*', false};
        const char* p = command->pattern + (row.common ? 1 : 0);
        while (*p != '\0' && *p != '?') {
            PatternNode node;
            p = read_pattern_node(p, node);
            if (p == nullptr) {
                return;
            }
            row.nodes.push_back(node);
        }
        row.query = *p == '?';
        if (!row.query || p[1] == '\0') {
            m_rows.push_back(std::move(row));
        }
    }

    /** Adds a place and those reached from it by skipping optional nodes. */
    void add_place(Places& places, uint32_t row, uint32_t passed) const
    {
        const std::vector<PatternNode>& nodes = m_rows[row].nodes;
        places.emplace(std::pair(row, passed), '\0');
        for (; passed < nodes.size() && nodes[passed].optional; ++passed) {
            places.emplace(std::pair(row, passed + 1), '\0');
        }
    }

    uint32_t add_state(const Places& places)
    {
        CommandIndex::State state{nullptr, nullptr};
        for (const auto& [place, unused] : places) {
            const Row& row = m_rows[place.first];
            if (place.second != row.nodes.size()) {
                continue;
            }
            const scpi_command_t*& first = row.query ? state.query_row : state.set_row;
            if (first == nullptr) {
                first = row.command;
            }
        }
        m_index.m_states.push_back(state);
        m_places.push_back(places);
        return static_cast<uint32_t>(m_places.size() - 1);
    }

    uint32_t state_of(const Places& places)
    {
        const auto known = m_known.find(places);
        if (known != m_known.end()) {
            return known->second;
        }
        const uint32_t state = add_state(places);
        m_known.emplace(places, state);
        return state;
    }

    void add_edges_of(uint32_t state)
    {
        std::map<std::string, Places> targets;
        for (const auto& [place, unused] : m_places[state]) {
            const auto [row, passed] = place;
            if (passed == m_rows[row].nodes.size()) {
                continue;
            }
            std::string long_form;
            std::string short_form;
            for (const char c : m_rows[row].nodes[passed].name) {
                long_form += to_upper(c);
                if (!is_lower(c)) {
                    short_form += c;
                }
            }
            add_place(targets[long_form], row, passed + 1);
            if (!short_form.empty()) {
                add_place(targets[short_form], row, passed + 1);
            }
        }
        for (const auto& [spelling, places] : targets) {
            m_pending.push_back({state, state_of(places), spelling});
        }
    }

    void fill_edge_table()
    {
        const size_t slots = std::bit_ceil(m_pending.size() * 2 + 1);
        m_index.m_edges.assign(slots, {0, 0, 0, 0});
        m_index.m_edge_mask = static_cast<uint32_t>(slots - 1);
        std::map<std::string, uint32_t> offsets;
        for (const PendingEdge& edge : m_pending) {
            const auto [text, is_new] =
                offsets.emplace(edge.spelling, static_cast<uint32_t>(m_index.m_spellings.size()));
            if (is_new) {
                m_index.m_spellings += edge.spelling;
            }
            uint32_t slot = hash_slot(hash_spelling(edge.from, edge.spelling)) & m_index.m_edge_mask;
            while (m_index.m_edges[slot].len != 0) {
                slot = (slot + 1) & m_index.m_edge_mask;
            }
            m_index.m_edges[slot] = {edge.from, edge.to, text->second,
                                     static_cast<uint32_t>(edge.spelling.size())};
        }
    }

    CommandIndex& m_index;
    std::vector<Row> m_rows;
    std::vector<Places> m_places; // of each state
    std::map<Places, uint32_t> m_known;
    std::vector<PendingEdge> m_pending;
};

CommandIndex::CommandIndex(const scpi_command_t* commands)
{
    CommandIndexBuilder(*this, commands).build();
}

const CommandIndex::State* CommandIndex::step(uint32_t from, const char* mnemonic, size_t len, uint32_t hash,
                                              uint32_t& to) const
{
    for (uint32_t slot = hash_slot(hash) & m_edge_mask; m_edges[slot].len != 0;
         slot = (slot + 1) & m_edge_mask) {
        const Edge& edge = m_edges[slot];
        if (edge.from != from || edge.len != len) {
            continue;
        }
        const char* const text = m_spellings.data() + edge.text;
        size_t i = 0;
        while (i < len && fold_mnemonic(mnemonic[i]) == text[i]) {
            ++i;
        }
        if (i == len) {
            to = edge.to;
            return &m_states[to];
        }
    }
    return nullptr;
}

const scpi_command_t* CommandIndex::find(const char* header, size_t len) const
{
    if (len == 0) {
        return nullptr;
    }
    const char* p = header;
    const char* const end = header + len;
    uint32_t at = kRoot;
    if (*p == '*') {
        at = kCommonRoot;
        ++p;
    } else if (*p == ':') {
        ++p;
    }
    for (;;) {
        const char* const mnemonic = p;
        uint32_t hash = hash_start(at);
        for (; p != end; ++p) {
            const char folded = fold_mnemonic(*p);
            if (folded == 0) {
                break;
            }
            hash = hash_step(hash, folded);
        }
        if (p == mnemonic) {
            return nullptr;
        }
        const State* const state = step(at, mnemonic, static_cast<size_t>(p - mnemonic), hash, at);
        if (state == nullptr) {
            return nullptr;
        }
        if (p == end) {
            return state->set_row;
        }
        if (*p == '?') {
            return end - p == 1 ? state->query_row : nullptr;
        }
        if (*p != ':') {
            return nullptr;
        }
        ++p;
    }
}

} // namespace scpi
