/**
 * Records to store, recall and send, and what is expected to reach a module.
 */
#ifndef ORVAN_TESTS_SETUP_BENCH_H
#define ORVAN_TESTS_SETUP_BENCH_H

#include <map>
#include <span>
#include <string>
#include <vector>

#include "orvan_sdk/lxi/PersistentData.h"
#include "records_bench.h"
#include "support/sent_setup.h"

namespace orvan_test {

/** The requests of a pass, in order. */
inline std::vector<std::string> requests_of(std::span<const SentElement> pass)
{
    std::vector<std::string> requests;
    for (const SentElement& element : pass) {
        requests.push_back(std::string(element.header) + " " + element.value + "\r\n");
    }
    return requests;
}

/** Those of a whole setup: every value before every state. */
inline std::vector<std::string> requests_of_setup()
{
    std::vector<std::string> requests = requests_of(kSentValues);
    for (std::string& request : requests_of(kSentStates)) {
        requests.push_back(std::move(request));
    }
    return requests;
}

/** The settings in memory: their bus is never accessed. */
inline HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS& settings_in_memory()
{
    static char no_handler;
    return *HaldeElec::Orvan::CPersistentData::Init(
                reinterpret_cast<HaldeElec::Orvan::IDeviceConnectionHandler*>(&no_handler), nullptr)
                ->getSettings();
}

class SetupBench : public RecordsBench {
protected:
    explicit SetupBench(int channels = kMaxChannels) : RecordsBench(channels) {}

    void set(int channel, int tag, std::string value)
    {
        EXPECT_EQ(orvanx->update_db(channel, tag, value.data(), value.size() + 1), 0);
    }

    void set_sent_setup(int channel)
    {
        for (const SentElement& element : kSentValues) {
            set(channel, element.tag, element.value);
        }
        for (const SentElement& element : kSentStates) {
            set(channel, element.tag, element.value);
        }
    }

    using Elements = std::map<int, std::string>;

    /** The elements of a record that differ from `before`, as text by tag. */
    Elements changed(const ORVAN_CONFIG& before, int channel)
    {
        Elements found;
        for (int tag = 0; tag < static_cast<int>(kOrvanElementCount); ++tag) {
            const OrvanElementData& row = OrvanData::orvanMap[tag];
            if (std::memcmp(reinterpret_cast<const char*>(&before) + row.pos,
                            orvanx->get_channelDB(channel) + row.pos, row.size) != 0) {
                found[tag] = text(channel, tag);
            }
        }
        return found;
    }
};

} // namespace orvan_test

#endif
