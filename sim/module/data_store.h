/**
 * Lists, patterns and the user correction: those in memory, and the files they are stored in.
 *
 * Results are 0 or an SCPI error number (SCPI-99 21.8).
 */
#ifndef ORVAN_SIM_MODULE_DATA_STORE_H
#define ORVAN_SIM_MODULE_DATA_STORE_H

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "data_tables.h"

namespace sim_module {

class DataStore {
public:
    /** Rows in sequence, each with the columns of its shape. */
    using Table = std::vector<double>;

    /** Most named tables in memory, and most files, of a kind: as many as a catalog can list in one reply. */
    static constexpr size_t kMaxTables = 50;

    /** Longest name in characters. */
    static constexpr size_t kMaxName = 31;

    /** Clears everything in memory. The files are kept. */
    void reset();

    // In memory. The table without a name always exists and is selected at first.

    /** Selects the table, an empty one if the name is new. -225 past kMaxTables. */
    int define(TableKind kind, const std::string& name);
    const std::string& selected(TableKind kind) const { return memory(kind).selected; }
    Table& table(TableKind kind);
    size_t rows(TableKind kind);

    /** Removes a table; if it was selected, the one without a name is selected. -224 for no such table. */
    int erase(TableKind kind, const std::string& name);
    void erase_all(TableKind kind) { memory(kind) = {}; }

    // Files.

    /** Writes the selected table to the file. -254 past kMaxTables, -257 for an empty name. */
    int store(TableKind kind, const std::string& name);

    /** Reads the file into the table of that name and selects it; a user correction has only one table
     *  and no name. -256 for no such file, -225 as `define`. */
    int load(TableKind kind, const std::string& name);

    /** -256 for no such file. */
    int remove_file(TableKind kind, const std::string& name);

    /** Removes the files of that name, of any kind. -256 when there is none. */
    int remove_files(const std::string& name);
    void remove_all_files() { m_files.clear(); }

    /** Names of the files of a kind in alphabetical order. */
    std::vector<std::string> catalog(TableKind kind) const;

    /** Size in bytes of the file of that name: a list before a pattern before a user correction. -256. */
    int size(const std::string& name, size_t& bytes) const;

private:
    struct Memory {
        std::map<std::string, Table> tables;
        std::string selected;
    };

    Memory& memory(TableKind kind) { return m_memory[static_cast<size_t>(kind)]; }
    const Memory& memory(TableKind kind) const { return m_memory[static_cast<size_t>(kind)]; }

    std::array<Memory, kTableKinds.size()> m_memory;
    std::map<std::pair<TableKind, std::string>, Table> m_files;
};

} // namespace sim_module

#endif
