#ifndef ORVAN_DB_SETUP_FILE_H
#define ORVAN_DB_SETUP_FILE_H

#include <bitset>
#include <optional>
#include <string>

#include <dataorvan.h>

namespace orvan_db {

/** One channel's stored setup. */
struct Setup {
    ORVAN_CONFIG record{};
    std::bitset<kOrvanElementCount> present; /**< elements that the file has, by tag */
    std::string passed_over;                 /**< entries that no record has: "SYSTEM.Foo, EXTRA"; or empty */
};

/**
 * Reads a setup as a recall reads it: what this accepts, a recall accepts.
 *
 * @param complaint gets the reason of a refusal, "RUNMODE.TriggerCount does not fit: 0.5"
 * @return empty when a recall would refuse the file
 */
std::optional<Setup> read_setup(const std::string& path, std::string& complaint);

/**
 * Whether the element is still the file's after a recall: State tells whether the module is live, and the
 * network's elements show the present network.
 */
bool is_recalled(int tag);

} // namespace orvan_db

#endif
