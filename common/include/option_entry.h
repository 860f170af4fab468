/**
 * One row of the table of options that an instrument can have.
 */
#ifndef ORVAN_OPTION_ENTRY_H
#define ORVAN_OPTION_ENTRY_H

#include <cstddef>
#include <cstdint>

namespace HaldeElec::Orvan {

/** One option; the maintenance protocol sends it as it stands in memory. */
struct optEntry_t {
    uint8_t bitStart; /**< its lowest bit in the word */
    uint8_t bitNum;   /**< its width; 0 for a row with no option behind it */
    uint8_t modify;   /**< 1 if it may be changed */
    uint8_t defaults; /**< factory value; CPersistentData::updateOptTable puts the present one here */
    char symbol[4];   /**< its word in the option text; empty for none */
};
static_assert(sizeof(optEntry_t) == 8);

inline constexpr size_t kOptionRows = 16;

} // namespace HaldeElec::Orvan

#endif
