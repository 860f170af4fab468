// What is counted of the requests to the modules.
#include <gtest/gtest.h>

#include "front_end_bench.h"
#include "orvan_sdk/modules/module_counters.h"

using namespace orvan_test;
using namespace HaldeElec::Orvan;

namespace {

class ModuleCountersTest : public FrontEndBench {
protected:
    ModuleCountersTest() { ask(":INST 2"); }
    ~ModuleCountersTest() override { ask(":INST 1"); }

    /** Since the last call, of channel 2. */
    void expect(const ModuleCounters& expected)
    {
        const ModuleCounters now = module_counters(2);
        EXPECT_EQ(now.requests - m_before.requests, expected.requests);
        EXPECT_EQ(now.timeouts - m_before.timeouts, expected.timeouts);
        EXPECT_EQ(now.link_errors - m_before.link_errors, expected.link_errors);
        EXPECT_EQ(now.failed, expected.failed);
        m_before = now;
    }

private:
    ModuleCounters m_before = module_counters(2);
};

TEST_F(ModuleCountersTest, EachRequestIsCountedWithItsModule)
{
    const auto others = module_counters(1).requests;
    module.always(ModuleAnswer::reply("-ERR -222, \"Data out of range\";+OK\r\n"));
    ask(":FREQ 1;:POW 1");
    expect({1, 0, 0, false});
    ask(":FREQ?");
    ask(":FREQ?");
    expect({2, 0, 0, false});
    EXPECT_EQ(module_counters(1).requests, others);
}

TEST_F(ModuleCountersTest, ALinkErrorIsCountedUntilTheModuleAnswersAgain)
{
    module.then(ModuleAnswer::reset());
    ask(":FREQ?");
    expect({1, 0, 1, true});
    expect({0, 0, 0, true});
    const auto port = orvanx->m_OrvanXport[1];
    {
        const TcpPair pair; // its port takes no connections
        orvanx->m_OrvanXport[1] = static_cast<uint32_t>(local_port(pair.client()));
        EXPECT_EQ(ask(":FREQ?").substr(0, 22), "-ERR Unable to connect");
    }
    expect({1, 0, 1, true});
    orvanx->m_OrvanXport[1] = port;
    module.always(ModuleAnswer::reply("+OK\r\n"));
    ask(":FREQ 1");
    expect({1, 0, 0, false});
}

TEST_F(ModuleCountersTest, ASilentModuleIsATimeout)
{
    module.then(ModuleAnswer::silence());
    EXPECT_EQ(ask(":FREQ?").substr(0, 20), "-ERR Receive timeout");
    expect({1, 1, 0, true});
    // The link's other text, which would take five seconds more.
    module.then(ModuleAnswer::reply("-ERR Connection timeout"));
    ask(":FREQ?");
    expect({1, 1, 0, true});
}

TEST_F(ModuleCountersTest, OtherChannelsHaveNone)
{
    for (const int channel : {0, 5, -1}) {
        EXPECT_EQ(module_counters(channel).requests, 0u);
        EXPECT_FALSE(module_counters(channel).failed);
    }
}

} // namespace
