#ifndef ORVAN_CHANNEL_RECORDS_SETUP_FILE_H
#define ORVAN_CHANNEL_RECORDS_SETUP_FILE_H

#include <bitset>
#include <optional>
#include <string>

#include <dataorvan.h>

namespace orvan_records {

/** One channel's stored setup. */
struct Setup {
    ORVAN_CONFIG record{};
    std::bitset<kOrvanElementCount> present; /**< elements that the file has, by tag */
    std::string passed_over;                 /**< unknown entries: "SYSTEM.Foo, EXTRA"; or empty */
};

/**
 * Reads a setup in the same way as a recall, which accepts the same files.
 *
 * @param complaint set to the reason of a refusal, "RUNMODE.TriggerCount does not fit: 0.5"
 * @return empty when a recall would refuse the file
 */
std::optional<Setup> read_setup(const std::string& path, std::string& complaint);

/**
 * Whether a recall keeps the file's element. It does not for State, which says whether the module is live,
 * and the network's elements, which show the present network.
 */
bool is_recalled(int tag);

} // namespace orvan_records

#endif
