/**
 * The options of an instrument: the table that it sends, and the word that it is given.
 */
#ifndef ORVAN_MAINT_OPTION_WORD_H
#define ORVAN_MAINT_OPTION_WORD_H

#include <string>
#include <vector>

#include "frame.h"

namespace orvan_maint {

/** A row of the table with an option behind it. */
struct OptionRow {
    int bit_start;      /**< lowest bit in the word */
    int bit_num;        /**< width, 1 or more */
    bool modify;        /**< may be changed */
    int value;          /**< as the instrument has started with it */
    std::string symbol; /**< printable; empty for the frequency code */
};

/** Throws Failure when the reply holds no table that makes sense.
 *  @param length of the datagram */
std::vector<OptionRow> read_options(const HALDE_PACKET& frame, size_t length);

/** The word of these values; bits that have no row are zero. */
uint16_t option_word(const std::vector<OptionRow>& rows);

/** The rows with these words set and cleared; throws Failure when one is none of the instrument's, cannot be
 *  changed, or is in both. */
std::vector<OptionRow> changed_options(std::vector<OptionRow> rows, const std::vector<std::string>& set,
                                       const std::vector<std::string>& clear);

/**
 * The value of a row FLASH_OPTION. The frequency code, bits 0 to 3 of the word, stands as it is in the high
 * half of the first byte; all the rest of each byte is sent with its bits the other way round.
 */
std::string wire_options(uint16_t word);

} // namespace orvan_maint

#endif
