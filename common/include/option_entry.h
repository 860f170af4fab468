/**
 * One row of the table of instrument options.
 */
#ifndef ORVAN_OPTION_ENTRY_H
#define ORVAN_OPTION_ENTRY_H

#include <cstddef>
#include <cstdint>

namespace HaldeElec::Orvan {

/** One option; the maintenance protocol sends it as it is in memory. */
struct optEntry_t {
    uint8_t bitStart; /**< its lowest bit in the word */
    uint8_t bitNum;   /**< its width; 0 for a row without an option */
    uint8_t modify;   /**< 1 if it may be changed */
    uint8_t defaults; /**< factory value; CPersistentData::updateOptTable puts the current one here */
    char symbol[4];   /**< its word in the option text; empty for none */
};
static_assert(sizeof(optEntry_t) == 8);

inline constexpr size_t kOptionRows = 16;

} // namespace HaldeElec::Orvan

#endif
