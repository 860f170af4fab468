/**
 * The outer shape of a program message: where strings, blocks and expressions begin and end, and so which
 * ';' ends a unit and which LF ends the message (IEEE 488.2 7.3, 7.5).
 *
 * Framing a stream and cutting a whole message into units both run on this one scan, so they cannot
 * disagree about what is a block.
 */
#ifndef SCPI_SRC_PROGRAM_TEXT_H
#define SCPI_SRC_PROGRAM_TEXT_H

#include <cstdint>

#include "scpi/types.h"

namespace scpi {

/** `scpi_framer_t::state`. The first one is 0: a zeroed framer stands at the start of a unit. */
enum TextState : uint8_t {
    kUnitStart,       /**< white space ahead of a header */
    kHeader,          /**< in a header */
    kElementStart,    /**< a program data element may start here */
    kElement,         /**< in or behind an element */
    kString,          /**< between quotes */
    kHash,            /**< behind a '#' that may open a block */
    kBlockLength,     /**< in the digits of a block's length */
    kDefiniteBlock,   /**< in the bytes of a definite block */
    kIndefiniteBlock, /**< in the bytes of an indefinite block */
};

enum class TextStop {
    kEnd,        /**< the text is used up */
    kUnitEnd,    /**< at a ';' that ends a unit */
    kMessageEnd, /**< at the LF that ends the message */
    kBlockEnd,   /**< just behind the last byte of a definite block that has any; the scan can go on */
};

/** Scans from `p`, which moves to where the scan stops. The caller steps over a ';' or a LF and zeroes the
 *  state there; until then `state` tells what was open. */
TextStop scan_program_text(scpi_framer_t& state, const char*& p, const char* end);

/** One program message unit, white space around it left out. */
struct ProgramUnit {
    const char* begin;
    const char* end;
    const char* next; /**< where the next unit starts, null behind the last one */
    int16_t fault;    /**< what was still open where the text ended: -151, -161 or -171; 0 when nothing was */
};

/** Cuts the unit that starts at `p` off a message that ends at its LF, or at `end` without one. */
ProgramUnit cut_program_unit(const char* p, const char* end);

} // namespace scpi

#endif
