/** Shapes of the tabular data: the columns of a list, of a pattern and of a user correction. */
#pragma once

#include "settings_table.h"

#include <array>
#include <cstddef>
#include <span>

namespace sim_module {

enum class TableKind { kList, kPattern, kUserCorrection };

inline constexpr std::array kTableKinds = {TableKind::kList, TableKind::kPattern, TableKind::kUserCorrection};

/** Rows of the longest list. */
inline constexpr int kMaxListRows = 4096;

struct TableShape {
    std::span<const Range> columns;
    std::size_t max_rows;
};

const TableShape& table_shape(TableKind kind);

} // namespace sim_module
