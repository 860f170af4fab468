/**
 * Suffixes of numbers (IEEE 488.2 7.7.3).
 */
#ifndef SCPI_UNITS_H
#define SCPI_UNITS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The spellings of every unit of scpi_unit_t; ends with a null name.
 *
 * The multipliers are those of table 7-2: M is milli and MA is mega, except for MHZ and MOHM, which are
 * megahertz and megaohm. Percent and degree are not converted.
 */
extern const scpi_unit_def_t scpi_units_def[];

#ifdef __cplusplus
}
#endif

#endif
