/**
 * The outer structure of a program message: where strings, blocks and expressions begin and end, and so which
 * ';' ends a unit and which LF ends the message (IEEE 488.2 7.3, 7.5).
 *
 * Framing a stream and splitting a message into units both use this scan, so they cannot disagree about
 * what is a block.
 */
#ifndef SCPI_SRC_PROGRAM_TEXT_H
#define SCPI_SRC_PROGRAM_TEXT_H

#include <cstdint>

#include "scpi/types.h"

namespace scpi {

/** `scpi_framer_t::state`. The first one is 0: a zeroed framer is at the start of a unit. */
enum TextState : uint8_t {
    kUnitStart,       /**< white space before a header */
    kHeader,          /**< in a header */
    kElementStart,    /**< a program data element may start here */
    kElement,         /**< in or after an element */
    kString,          /**< between quotes */
    kHash,            /**< after a '#' that may open a block */
    kBlockLength,     /**< in the digits of a block's length */
    kDefiniteBlock,   /**< in the bytes of a definite block */
    kIndefiniteBlock, /**< in the bytes of an indefinite block */
};

enum class TextStop {
    kEnd,        /**< the end of the text */
    kUnitEnd,    /**< at a ';' that ends a unit */
    kMessageEnd, /**< at the LF that ends the message */
    kBlockEnd,   /**< immediately after the last byte of a non-empty definite block; the scan can continue */
};

/** Scans from `p`, which moves to where the scan stops. The caller skips a ';' or a LF and zeroes the
 *  state there; until then `state` shows what was open. */
TextStop scan_program_text(scpi_framer_t& state, const char*& p, const char* end);

/** One program message unit, without surrounding white space. */
struct ProgramUnit {
    const char* begin;
    const char* end;
    const char* next; /**< where the next unit starts, null after the last one */
    int16_t fault;    /**< what was still open at the end of the text: -151, -161 or -171; 0 if nothing */
};

/** Splits the unit that starts at `p` off a message that ends at its LF, or at `end` without one. */
ProgramUnit cut_program_unit(const char* p, const char* end);

} // namespace scpi

#endif
