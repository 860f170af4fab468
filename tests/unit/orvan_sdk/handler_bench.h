/**
 * The front end with channel records and a recording device, as used by the row handlers.
 */
#ifndef ORVAN_TESTS_HANDLER_BENCH_H
#define ORVAN_TESTS_HANDLER_BENCH_H

#include <string>
#include <vector>

#include "records_bench.h"
#include "support/recording_device.h"

namespace orvan_test {

class HandlerBench : public RecordsBench {
protected:
    explicit HandlerBench(int channels = kMaxChannels) : RecordsBench(channels) { put_device(&device); }

    void put_device(HaldeElec::Orvan::IOrvanDeviceManager* put) { user().ptrDevice = put; }

    /** Every byte of a record. */
    std::string bytes(int channel)
    {
        return {reinterpret_cast<const char*>(orvanx->get_channelDB(channel)), sizeof(ORVAN_CONFIG)};
    }

    /** Every byte of the records of all channels. */
    std::string all_bytes()
    {
        std::string all;
        for (int channel = 1; channel <= orvanx->getNumberofChannels(); ++channel) {
            all += bytes(channel);
        }
        return all;
    }

    RecordingDevice device;
};

using Lines = std::vector<std::string>;

/** The lines that a handler logs. */
inline std::string missing(const std::string& handler, const std::string& what)
{
    return handler + ": Failed to retrieve a mandatory " + what + "\n";
}

inline std::string not_copied(const std::string& handler)
{
    return handler + ": Failed to copy output data\n";
}

} // namespace orvan_test

#endif
