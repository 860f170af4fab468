#ifndef ORVAN_DB_OUTPUT_H
#define ORVAN_DB_OUTPUT_H

#include "options.h"
#include "records.h"

#include <string>

namespace orvan_db {

/** Calls `use(channel, tag)` for each chosen element, channel by channel, in the order of the tags. */
template <typename Use>
void for_each_element(const Options& options, const Records& records, Use use)
{
    for (int channel = 1; channel <= static_cast<int>(records.size()); ++channel) {
        if (options.channel != 0 && channel != options.channel) {
            continue;
        }
        for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
            if (options.tag < 0 || tag == options.tag) {
                use(channel, tag);
            }
        }
    }
}

/** The chosen elements of the chosen channels as one JSON object, `{"channels":[{"channel":1,"ODT_..":..}]}`.
 */
std::string json_document(const Options& options, const Records& records);

/** One element as a row of the table, or as a JSON object `{"channel":1,"tag":"ODT_..","value":..}`. */
std::string element_line(const Options& options, const Records& records, int channel, int tag);

} // namespace orvan_db

#endif
