/** Columns of the tabular data: lists, patterns and user corrections. */
#ifndef ORVAN_SIM_MODULE_DATA_TABLES_H
#define ORVAN_SIM_MODULE_DATA_TABLES_H

#include <array>
#include <cstddef>
#include <span>

#include "settings_table.h"

namespace sim_module {

enum class TableKind { kList, kPattern, kUserCorrection };

inline constexpr std::array kTableKinds = {TableKind::kList, TableKind::kPattern, TableKind::kUserCorrection};

/** Rows of the longest list. */
inline constexpr int kMaxListRows = 4096;

struct TableShape {
    std::span<const Range> columns;
    size_t max_rows;
};

const TableShape& table_shape(TableKind kind);

} // namespace sim_module

#endif
