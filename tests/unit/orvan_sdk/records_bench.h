/**
 * The front end with channel records: the factory setup in a private folder, loaded for
 * four channels.
 */
#ifndef ORVAN_TESTS_RECORDS_BENCH_H
#define ORVAN_TESTS_RECORDS_BENCH_H

#include <cstring>

#include "dataorvan.h"
#include "front_end_bench.h"
#include "support/instrument_files.h"

namespace orvan_test {

/** A base before the bench, so that the records are removed while their names still lead here. */
struct WithInstrumentFiles {
    InstrumentFiles files;
};

class RecordsBench : protected WithInstrumentFiles, public FrontEndBench {
protected:
    explicit RecordsBench(int channels = kMaxChannels)
    {
        files.write_factory_setup(R"({"ANALOGOUTPUT": {"Frequency": 1000000000, "Power": 5}})");
        files.stand_in_for_sudo("exit 1");
        orvanx->setNumberofChannels(channels);
        EXPECT_EQ(orvanx->load_database(0), 0);
        logs.clear();
    }

    ORVAN_CONFIG& record(int channel)
    {
        return *reinterpret_cast<ORVAN_CONFIG*>(orvanx->get_channelDB(channel));
    }

    /** A record's element as the system renders it. */
    std::string text(int channel, int tag)
    {
        char buffer[256] = "?";
        format_element_value(reinterpret_cast<const char*>(orvanx->get_channelDB(channel)),
                             OrvanData::orvanMap[tag], buffer, sizeof buffer);
        return buffer;
    }
};

} // namespace orvan_test

#endif
