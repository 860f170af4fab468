/**
 * The rows of replies and requests: a letter and a text each.
 */
#ifndef ORVAN_MAINT_ROWS_H
#define ORVAN_MAINT_ROWS_H

#include <map>
#include <string>
#include <vector>

#include "frame.h"

namespace orvan_maint {

struct RowName {
    char letter;
    const char* key;   /**< in JSON */
    const char* title; /**< in a table */
};

/** In the order of an identification reply. */
extern const std::vector<RowName> kRowNames;

/** The title of a row; its letter when it has none. */
std::string title_of(char letter);

/** The texts of a reply by letter, printable. */
using Rows = std::map<char, std::string>;

/** @param length of the datagram; nothing beyond it is read */
Rows read_rows(const HALDE_PACKET& frame, size_t length);

/** The text of a row; empty when there is none. */
std::string text_of(const Rows& rows, char letter);

struct RequestRow {
    char letter;
    std::string value; /**< at most FP_MAX_DATA_LEN bytes of any kind */
};

/** A request contains all rows, so that none of a previous frame is used. */
inline constexpr uint16_t kRequestRowsSize =
    HaldeElec::Orvan::FP_MAX_LINE * HaldeElec::Orvan::FP_MAX_ENTRY_LEN;

/** Writes the rows, at most FP_MAX_LINE, to `data` and sets `size`. */
void put_rows(HALDE_PACKET& frame, const std::vector<RequestRow>& rows);

} // namespace orvan_maint

#endif
