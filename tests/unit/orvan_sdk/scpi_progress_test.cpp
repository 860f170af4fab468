#include <thread>

#include "handler_bench.h"
#include "orvan_sdk/scpi-parser/scpi_progress.h"

using namespace orvan_test;

namespace {

class Progress : public HandlerBench {
protected:
    /** How far a line advances the count. */
    uint32_t of(const std::string& line)
    {
        const uint32_t before = scpi_progress();
        ask(line);
        return scpi_progress() - before;
    }
    /** How far each further unit advances it. */
    uint32_t of_unit(const std::string& unit)
    {
        const uint32_t of_two = of(unit + ";" + unit);
        const uint32_t of_three = of(unit + ";" + unit + ";" + unit);
        return of_three - of_two;
    }
};

TEST_F(Progress, IsCountedForHandlersWithoutReplyOrModule)
{
    EXPECT_EQ(of_unit(":INST 2"), 1u);
    EXPECT_EQ(of_unit(":SYST:COMM:LAN:HOST \"a\""), 1u);
    EXPECT_EQ(of_unit(":SYST:POW:REST AUTO"), 1u);
}

TEST_F(Progress, IsCountedForEachResultAndEachError)
{
    EXPECT_GE(of_unit("*IDN?"), 1u);
    EXPECT_GE(of_unit(":SYST:VERS?"), 1u);
    EXPECT_GE(of_unit(":NO:SUCH"), 1u);
    EXPECT_GE(of_unit(":INST 7"), 1u);
}

TEST_F(Progress, IsCountedForBytesSent)
{
    const uint32_t before = scpi_progress();
    SCPI_Flush(&scpi_context);
    EXPECT_EQ(scpi_progress() - before, 1u);
}

TEST_F(Progress, IsCountedForEachRequestToAModuleWhateverItsOutcome)
{
    const auto request = [&](const std::string& address, int port) {
        const uint32_t before = scpi_progress();
        orvanx->SendSCPIOrvanX("*TST?\r\n", 7, address, port);
        return scpi_progress() - before;
    };
    EXPECT_EQ(request(module.address(), module.port()), 1u);
    module.then(ModuleAnswer::close_mute());
    EXPECT_EQ(request(module.address(), module.port()), 1u);
    const int closed = listen_on_loopback();
    const int port = local_port(closed);
    ::close(closed);
    EXPECT_EQ(request("127.0.0.1", port), 1u);
}

TEST_F(Progress, IsNotCountedForAnIgnoredThread)
{
    const uint32_t before = scpi_progress();
    std::thread([&] {
        scpi_ignore_progress_of_this_thread();
        scpi_note_progress();
    }).join();
    EXPECT_EQ(scpi_progress(), before);
    std::thread([&] { scpi_note_progress(); }).join();
    EXPECT_EQ(scpi_progress(), before + 1);
}

} // namespace
