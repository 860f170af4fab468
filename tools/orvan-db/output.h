#ifndef ORVAN_DB_OUTPUT_H
#define ORVAN_DB_OUTPUT_H

#include <string>
#include <vector>

#include "channel_records/records.h"
#include "channel_records/setup_file.h"
#include "options.h"

namespace orvan_db {

/** One element to print. */
struct Item {
    int channel; /**< 0 for a file without a channel */
    int tag;
    const ORVAN_CONFIG* record;
    const ORVAN_CONFIG* setup = nullptr; /**< for a difference: the value after a recall */
};

/** Sorted by channel, then by tag. */
using Items = std::vector<Item>;

/** The chosen elements of the chosen channels. They refer to `records`. */
Items live_items(const Options& options, const orvan_records::Records& records);

/** The chosen elements that a setup has, under the chosen channel. They refer to `setup`. */
Items setup_items(const Options& options, const orvan_records::Setup& setup);

/** The live items that a recall of the setup would change. They refer to both. */
Items differing_items(const Options& options, const orvan_records::Records& records,
                      const orvan_records::Setup& setup);

/**
 * The items as one JSON object, `{"channels":[{"channel":1,"ODT_..":..}]}`. The channel of a file is null; a
 * difference is `{"live":..,"setup":..}`.
 */
std::string json_document(const Items& items);

/** One item as a row of the table, or as a JSON object `{"channel":1,"tag":"ODT_..","value":..}`. */
std::string item_line(const Options& options, const Item& item);

} // namespace orvan_db

#endif
