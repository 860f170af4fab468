/**
 * The front end with a separate scripted module for every channel.
 */
#ifndef ORVAN_TESTS_MANY_MODULES_BENCH_H
#define ORVAN_TESTS_MANY_MODULES_BENCH_H

#include <unistd.h>

#include "handler_bench.h"

namespace orvan_test {

class ManyModulesBench : public HandlerBench {
protected:
    explicit ManyModulesBench(int channels = kMaxChannels) : HandlerBench(channels)
    {
        for (int channel = 1; channel <= kMaxChannels; ++channel) {
            connect_module(channel, modules[channel - 1]);
        }
    }

    /** Connections to this channel are refused from now on. */
    void kill_module(int channel)
    {
        const int closed = listen_on_loopback();
        orvanx->m_OrvanXport[channel - 1] = static_cast<uint32_t>(local_port(closed));
        ::close(closed);
    }

    /** Connections to all modules. */
    size_t connections()
    {
        size_t all = 0;
        for (const ScriptedModule& each : modules) {
            all += each.connections();
        }
        return all;
    }

    ScriptedModule modules[kMaxChannels];
};

} // namespace orvan_test

#endif
