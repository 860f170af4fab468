/**
 * The names of the record's elements: of their tags, and as used in setup files.
 */
#ifndef ORVAN_ELEMENT_NAMES_H
#define ORVAN_ELEMENT_NAMES_H

#include <dataorvan.h>

namespace orvan_common {

struct ElementName {
    const char* tag;     /**< as `OrvanElement` has it, "ODT_FREQ" */
    const char* section; /**< member of `ORVAN_CONFIG` */
    const char* field;   /**< member of the section */
};

/** Indexed by tag; the elements of a section are contiguous. */
extern const ElementName kElementNames[kOrvanElementCount];

} // namespace orvan_common

#endif
