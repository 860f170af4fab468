// What an observer of errors sees.
#include <string>
#include <utility>
#include <vector>

#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi_error_observer.h"

using namespace orvan_test;

namespace {

using Seen = std::vector<std::pair<int, std::string>>;
Seen g_seen;

class ErrorObserver : public FrontEndBench {
protected:
    ErrorObserver()
    {
        g_seen.clear();
        scpi_observe_errors([](int socket, const char* text, size_t len) {
            g_seen.emplace_back(socket, std::string(text, len));
        });
    }
    ~ErrorObserver() override { scpi_observe_errors(nullptr); }

    const std::string undefined = "-ERR -113, \"Undefined header\"";
};

TEST_F(ErrorObserver, SeesEachErrorOnceWithItsClient)
{
    EXPECT_EQ(ask(":FOO;*IDN?;:BAR").substr(0, undefined.size()), undefined);
    EXPECT_EQ(g_seen, (Seen{{client.server(), undefined}, {client.server(), undefined}}));
}

TEST_F(ErrorObserver, SeesWhatAModuleReplies)
{
    module.always(ModuleAnswer::reply("1;-ERR -222, \"Data out of range\";2;+OK\r\n"));
    ask(":FREQ?;:FREQ 1;:POW?");
    EXPECT_EQ(g_seen, (Seen{{client.server(), "1;-ERR -222, \"Data out of range\";2"}}));
}

TEST_F(ErrorObserver, SeesNothingElse)
{
    module.always(ModuleAnswer::reply("1;+OK\r\n"));
    ask("*IDN?;:FREQ?");
    EXPECT_EQ(g_seen, Seen{});
    scpi_observe_errors(nullptr);
    EXPECT_EQ(ask(":FOO"), undefined + ";+OK\r\n");
    EXPECT_EQ(g_seen, Seen{});
}

} // namespace
