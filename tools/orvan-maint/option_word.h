/**
 * The options of an instrument: the table that it sends, and the word that is sent to it.
 */
#ifndef ORVAN_MAINT_OPTION_WORD_H
#define ORVAN_MAINT_OPTION_WORD_H

#include <string>
#include <vector>

#include "frame.h"

namespace orvan_maint {

/** A row of the table that is an option. */
struct OptionRow {
    int bit_start;      /**< lowest bit in the word */
    int bit_num;        /**< width, 1 or more */
    bool modify;        /**< may be changed */
    int value;          /**< at the instrument's start */
    std::string symbol; /**< printable; empty for the frequency code */
};

/** Throws Failure when the reply has no valid table.
 *  @param length of the datagram */
std::vector<OptionRow> read_options(const HALDE_PACKET& frame, size_t length);

/** The word of these values; bits without a row are zero. */
uint16_t option_word(const std::vector<OptionRow>& rows);

/** The rows with these options set and cleared; throws Failure when one is unknown, cannot be changed, or is
 * in both. */
std::vector<OptionRow> changed_options(std::vector<OptionRow> rows, const std::vector<std::string>& set,
                                       const std::vector<std::string>& clear);

/**
 * The value of a row FLASH_OPTION. The frequency code, bits 0 to 3 of the word, is in the high half of the
 * first byte unchanged; all other bits are sent in reverse order within each byte.
 */
std::string wire_options(uint16_t word);

} // namespace orvan_maint

#endif
