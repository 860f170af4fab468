// The program itself, from outside.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <signal.h>
#include <string_view>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include "local_fixture.h"
#include "service/listener.h"
#include "service/options.h"
#include "service_fixture.h"
#include "service_process.h"
#include "support/loopback.h"

using namespace orvan_service;
using namespace orvan_test;
using orvan_common::UniqueFd;

namespace {

// On a socket that the test passes in, without modules.
class ProgramTest : public ::testing::Test {
protected:
    ServiceProcess::Start start(std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments{"--modules-on-loopback", "--module-wait", "0",
                                           "--foreground",          "--hislip-port", "off"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return {std::move(arguments), {}, listener[0].get()};
    }

    int port() const { return local_port(listener[0].get()); }

    std::vector<UniqueFd> listener = open_listeners("127.0.0.1", 0);
};

/** The service manager. */
struct Manager {
    Manager()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path + 1, name.data() + 1, name.size() - 1);
        EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address),
                         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size())),
                  0);
    }
    /** The next reported state; empty if none arrives. */
    std::string next(std::chrono::milliseconds bound = std::chrono::seconds(20)) const
    {
        pollfd waiting{socket.get(), POLLIN, 0};
        char text[1000];
        if (::poll(&waiting, 1, static_cast<int>(bound.count())) != 1) {
            return {};
        }
        return {text, static_cast<size_t>(std::max<ssize_t>(::recv(socket.get(), text, sizeof text, 0), 0))};
    }

    const std::string name = "@orvan-program-" + std::to_string(::getpid());
    const UniqueFd socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

// More than the 2048 bytes of a text reply, which is never sent: the command runs forever.
std::string endless_reply()
{
    std::string line = "*IDN?";
    for (int i = 1; i < 50; ++i) {
        line += ";*IDN?";
    }
    return line;
}

std::string status_line(pid_t pid, const std::string& name)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(name + ":", 0) == 0) {
            return line.substr(line.find_last_of(" \t") + 1);
        }
    }
    return {};
}

} // namespace

TEST_F(ProgramTest, ServesOnAnInheritedSocketAndEndsOnSigterm)
{
    ServiceProcess service(start());
    TestClient client(port());
    EXPECT_EQ(client.ask(":NO:SUCH:HEADER\n"), "-ERR -113, \"Undefined header\";+OK\r\n");
    service.signal(SIGTERM);
    EXPECT_EQ(service.exit_code(), kExitDone);
    EXPECT_TRUE(client.sees_end());
}

TEST_F(ProgramTest, EndsOnSigintToo)
{
    ServiceProcess service(start());
    service.errors_until("ready");
    service.signal(SIGINT);
    EXPECT_EQ(service.exit_code(), kExitDone);
}

TEST_F(ProgramTest, OpensItsOwnPortWithoutAnInheritedSocketAndNamesIt)
{
    ServiceProcess service({{"--modules-on-loopback", "--module-wait", "0", "--foreground", "--address",
                             "127.0.0.1", "--port", "0", "--hislip-port", "off"}});
    const std::string log = service.errors_until("ready");
    const std::string lead = "listening on 127.0.0.1:";
    ASSERT_NE(log.find(lead), std::string::npos) << log;
    TestClient client(std::atoi(log.c_str() + log.find(lead) + lead.size()));
    EXPECT_EQ(client.ask(":NO:SUCH:HEADER\n"), "-ERR -113, \"Undefined header\";+OK\r\n");
}

TEST_F(ProgramTest, ServesLocalClientsAndRemovesTheSocketAtTheEnd)
{
    const PrivateFolder folder;
    const auto socket = folder.path() / "run/scpi.sock";
    const auto begin = start({"--local-dir", socket.parent_path()});
    {
        ServiceProcess killed(begin);
        killed.errors_until("ready");
        EXPECT_TRUE(std::filesystem::exists(socket));
    }
    EXPECT_TRUE(std::filesystem::exists(socket)) << "nobody has removed it";
    ServiceProcess service(begin);
    service.errors_until("ready");
    LocalClient client(socket);
    client.send(":NO:SUCH:HEADER;:SYST:INF:NONE\n:SYST:ERR:SESS?\n:SYST:ERR:SESS?\n");
    EXPECT_EQ(client.line(), "\n");
    EXPECT_EQ(client.line(), "-113,\"Undefined header\",-113,\"Undefined header\"\n");
    EXPECT_EQ(client.line(), "0,\"No error\"\n");
    service.signal(SIGTERM);
    EXPECT_EQ(service.exit_code(), kExitDone);
    EXPECT_EQ(client.rest(), "");
    EXPECT_FALSE(std::filesystem::exists(socket));
}

TEST_F(ProgramTest, TheCountersShowErrorsOfAllClientsAndTheCommandThatHangs)
{
    const PrivateFolder folder;
    ServiceProcess service(start({"--local-dir", folder.path()}));
    service.errors_until("ready");
    const auto document = [&] { return LocalClient(folder.path() / "counters.sock").rest(); };
    const auto contains = [](const std::string& text, const std::string& part) {
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
    };
    TestClient raw(port());
    LocalClient local(folder.path() / "scpi.sock");
    EXPECT_EQ(raw.ask(":FOO;*IDN?;:BAR\n").substr(0, 9), "-ERR -113");
    EXPECT_EQ(local.ask(":BAZ\n"), "\n");
    raw.send(endless_reply() + "\n");
    std::string found;
    ASSERT_TRUE(eventually([&] {
        found = document();
        return found.find("\"message\":\"*IDN?;") != std::string::npos;
    })) << found;
    const std::string client = "127.0.0.1:" + std::to_string(local_port(raw.fd()));
    contains(found, R"("raw":{"messages":1,"errors":2,"clients":1,"refused":0})");
    contains(found, R"("local":{"messages":1,"errors":1,"clients":1,"refused":0})");
    contains(found, R"(,"protocol":"raw","client":")" + client +
                        R"(","number":-113,"text":"Undefined header","message":":FOO;*IDN?;:BAR"},)");
    contains(found, R"("number":-113,"text":"Undefined header","message":":BAZ"}],"running":{"client":")" +
                        client + R"(","message":"*IDN?;*IDN?)");
}

TEST_F(ProgramTest, APortInUseIsReportedWithExitCodeOne)
{
    ServiceProcess service(
        {{"--modules-on-loopback", "--address", "127.0.0.1", "--port", std::to_string(port())}});
    EXPECT_EQ(service.exit_code(), kExitFailed);
    EXPECT_EQ(service.errors(), "orvan-service: cannot listen on 127.0.0.1 port " + std::to_string(port()) +
                                    ": Address already in use\n");
}

TEST_F(ProgramTest, ListensForHislipOnTheSameAddressAndNamesThePort)
{
    ServiceProcess service({{"--modules-on-loopback", "--module-wait", "0", "--foreground", "--address",
                             "127.0.0.1", "--port", "0", "--hislip-port", "0"}});
    const std::string log = service.errors_until("ready");
    const std::string lead = "HiSLIP: listening on 127.0.0.1:";
    ASSERT_NE(log.find(lead), std::string::npos) << log;
    const TestClient client(std::atoi(log.c_str() + log.find(lead) + lead.size()));
}

TEST_F(ProgramTest, AnInheritedSocketNamedHislipIsServedInsteadOfItsOwn)
{
    ServiceProcess service({{"--modules-on-loopback", "--module-wait", "0", "--foreground", "--address",
                             "127.0.0.1", "--port", "0"},
                            {{"LISTEN_FDNAMES", "hislip"}},
                            listener[0].get()});
    const std::string log = service.errors_until("ready");
    const std::string lead = "HiSLIP: listening on ";
    EXPECT_NE(log.find(lead + "127.0.0.1:" + std::to_string(port()) + "\n"), std::string::npos) << log;
    EXPECT_EQ(log.find(lead), log.rfind(lead)) << log;
}

TEST_F(ProgramTest, AHislipPortInUseEndsItWhenItWasAskedFor)
{
    ServiceProcess service({{"--modules-on-loopback", "--address", "127.0.0.1", "--port", "0",
                             "--hislip-port", std::to_string(port())}});
    EXPECT_EQ(service.exit_code(), kExitFailed);
    EXPECT_EQ(service.errors(), "orvan-service: cannot listen on 127.0.0.1 port " + std::to_string(port()) +
                                    ": Address already in use\n");
}

TEST_F(ProgramTest, TheUsualHislipPortInUseLeavesTheOtherProtocols)
{
    // A private address, as an instrument may use the port on 127.0.0.1.
    const std::string address =
        "127.6." + std::to_string(::getpid() / 250 % 250) + "." + std::to_string(1 + ::getpid() % 250);
    const auto other = open_listeners(address, kHislipPort);
    ServiceProcess service({{"--modules-on-loopback", "--module-wait", "0", "--foreground", "--address",
                             address, "--port", "0"}});
    const std::string log = service.errors_until(": ready");
    EXPECT_NE(log.find("no HiSLIP: cannot listen on " + address + " port 4880: Address already in use\n"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find(": ready"), std::string::npos) << log;
}

TEST_F(ProgramTest, RefusesToStartOutsideASandboxWithRealModuleAddresses)
{
    for (const char* sandbox : {"", "1", "not a number"}) {
        ServiceProcess service({{}, {{"ORVAN_SANDBOX", sandbox}}, listener[0].get()});
        EXPECT_EQ(service.exit_code(), kExitOutsideSandbox);
        EXPECT_EQ(service.errors(), "orvan-service: refusing to start: it would reach for real module "
                                    "addresses (192.168.7.1 and up).\n"
                                    "Run it in a sandbox, or with --modules-on-loopback.\n");
    }
}

TEST_F(ProgramTest, ADeviceThatDoesNotStartIsReportedWithExitCodeFour)
{
    for (const auto& [platform, name] : {std::pair{"factory", "OrvanPortableDevice"},
                                         {"portable", "OrvanPortableDevice"},
                                         {"benchtop", "OrvanBenchtopDevice"}}) {
        ServiceProcess service({.arguments = {"--platform", platform, "--foreground"},
                                .environment = {{"ORVAN_BOARD_AT_POWER_ON", "spi absent"}},
                                .in_own_namespaces = true});
        const int code = service.exit_code();
        if (code == ServiceProcess::kNoNamespace) {
            GTEST_SKIP() << "the kernel refuses user, network and mount namespaces";
        }
        EXPECT_EQ(code, kExitNotInitialized);
        const std::string log = service.errors();
        EXPECT_NE(log.find(std::string("[") + name + "] ConfigChannelSPI failed - SPI not initialized\n"),
                  std::string::npos)
            << log;
        EXPECT_NE(log.find("the device did not start; the messages before this one say why\n"),
                  std::string::npos)
            << log;
    }
}

TEST_F(ProgramTest, EndsAtOnceWhenStoppedDuringTheDevicesStartUp)
{
    ServiceProcess service({.arguments = {"--platform", "benchtop", "--foreground"},
                            .environment = {{"ORVAN_BOARD", "benchtop"}, {"ORVAN_BOARD_CLOCK_RATE", "100"}},
                            .in_own_namespaces = true});
    // From then on it waits a minute for missing modules.
    const std::string log = service.errors_until("Scpi_Orvanx :: getInstance");
    if (log.empty() && service.exit_code() == ServiceProcess::kNoNamespace) {
        GTEST_SKIP() << "the kernel refuses user, network and mount namespaces";
    }
    const std::string backup =
        "/proc/" + std::to_string(service.pid()) + "/root/home/orvan/halde/config/flash.ini";
    EXPECT_EQ(std::filesystem::file_size(backup), 1024u);
    service.signal(SIGTERM);
    // The thread of the built-in tests sleeps for 30 s at a time.
    EXPECT_EQ(service.exit_code(std::chrono::seconds(15)), kExitDone);
}

TEST_F(ProgramTest, ProductionOfAnUnknownModelIsRefused)
{
    ServiceProcess service(
        {.arguments = {"--produce", "OVX3653B", "--serial", "1"}, .in_own_namespaces = true});
    const int code = service.exit_code();
    if (code == ServiceProcess::kNoNamespace) {
        GTEST_SKIP() << "the kernel refuses user, network and mount namespaces";
    }
    EXPECT_EQ(code, kExitBadOptions);
    EXPECT_NE(service.errors().find("no such model: OVX3653B; known are: "), std::string::npos)
        << service.errors();
    EXPECT_NE(service.errors().find(" OVX3654B"), std::string::npos) << service.errors();
}

TEST_F(ProgramTest, ModulesOnLoopbackAreInTheModuleTable)
{
    ServiceProcess service(start({"--channels", "3"}));
    const std::string log = service.errors_until("ready");
    EXPECT_NE(log.find("module 1 at 127.0.7.1:6001 does not answer"), std::string::npos) << log;
    EXPECT_NE(log.find("module 3 at 127.0.9.1:6003 does not answer"), std::string::npos) << log;
    EXPECT_EQ(log.find("module 4"), std::string::npos) << log;
}

TEST_F(ProgramTest, WithModulesOnLoopbackNoRecordsAreKeptInTheMachinesSharedMemory)
{
    ServiceProcess service(start());
    service.errors_until("ready");
    std::ifstream maps("/proc/" + std::to_string(service.pid()) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        EXPECT_EQ(line.find("orvanData"), std::string::npos) << line;
    }
}

TEST_F(ProgramTest, ReportsReadyAndStoppingToTheServiceManager)
{
    const Manager manager;
    auto begin = start();
    begin.environment.emplace_back("NOTIFY_SOCKET", manager.name);
    ServiceProcess service(begin);
    EXPECT_EQ(manager.next(), "READY=1");
    service.signal(SIGTERM);
    EXPECT_EQ(manager.next(), "STOPPING=1");
    EXPECT_EQ(service.exit_code(), kExitDone);
}

TEST_F(ProgramTest, FeedsTheWatchdogUntilACommandHangsAndReportsThat)
{
    const Manager manager;
    auto begin = start({"--hang-limit", "5"});
    begin.environment.emplace_back("NOTIFY_SOCKET", manager.name);
    begin.environment.emplace_back("WATCHDOG_USEC", "200000");
    ServiceProcess service(begin);
    TestClient client(port());
    EXPECT_EQ(client.ask(":NO:SUCH:HEADER\n"), "-ERR -113, \"Undefined header\";+OK\r\n");
    std::string state = manager.next();
    while (state == "READY=1") {
        state = manager.next();
    }
    EXPECT_EQ(state, "WATCHDOG=1");
    client.send(endless_reply() + "\n");
    while (state == "WATCHDOG=1" || state == "READY=1") {
        state = manager.next();
    }
    const std::string text =
        " at 127.0.0.1:" + std::to_string(local_port(client.fd())) +
        " hangs: no progress for 5 s in \"*IDN?;*IDN?;*IDN?;*IDN?;*IDN?;*IDN?;*IDN?;*IDN?;"
        "*IDN?;*IDN?;...\"";
    EXPECT_EQ(state.substr(0, 14), "STATUS=client ");
    EXPECT_EQ(state.substr(std::min(state.find(" at "), state.size())), text);
    service.errors_until(text);
    EXPECT_EQ(manager.next(std::chrono::milliseconds(500)), "") << "not fed any more";
}

TEST_F(ProgramTest, EndsAtOnceWhenStoppedWhileItWaitsForModules)
{
    // The module table is set to the loopback, where nothing listens on the modules' ports except, perhaps,
    // another test: either way the log line that this test waits for comes first.
    auto begin = start({"--log-level", "debug"});
    begin.arguments[2] = "60";
    ServiceProcess service(begin);
    service.errors_until("listening");
    service.signal(SIGTERM);
    EXPECT_EQ(service.exit_code(std::chrono::seconds(10)), kExitDone);
}

TEST_F(ProgramTest, IgnoresBrokenPipesAndCatchesItsStopSignals)
{
    ServiceProcess service(start());
    service.errors_until("ready");
    const auto bit = [](int signal) { return 1ull << (signal - 1); };
    const auto mask = [&](const char* name) {
        return std::stoull(status_line(service.pid(), name), nullptr, 16);
    };
    EXPECT_NE(mask("SigIgn") & bit(SIGPIPE), 0u);
    EXPECT_EQ(mask("SigCgt") & (bit(SIGTERM) | bit(SIGINT)), bit(SIGTERM) | bit(SIGINT));
    EXPECT_EQ(mask("SigBlk") & (bit(SIGTERM) | bit(SIGINT)), 0u);
}

TEST_F(ProgramTest, TheClientLimitIsThatOfTheOption)
{
    ServiceProcess service(start({"--max-clients", "1"}));
    TestClient first(port());
    EXPECT_EQ(first.ask(":NO:SUCH:HEADER\n"), "-ERR -113, \"Undefined header\";+OK\r\n");
    TestClient second(port());
    EXPECT_EQ(second.line(), "-ERR Too many clients;+OK\r\n");
}

TEST_F(ProgramTest, InfoLevelLogsEveryMessageInAndOut)
{
    ServiceProcess service(start({"--log-level", "info"}));
    TestClient client(port());
    client.ask(":NO:SUCH:HEADER\n");
    const std::string log = service.errors_until("Undefined header");
    EXPECT_NE(log.find("sending \":NO:SUCH:HEADER\""), std::string::npos) << log;
}

TEST_F(ProgramTest, NoticeLevelLogsNoMessage)
{
    ServiceProcess service(start());
    TestClient client(port());
    client.ask(":NO:SUCH:HEADER\n");
    service.signal(SIGTERM);
    EXPECT_EQ(service.errors().find("sending"), std::string::npos);
}

TEST_F(ProgramTest, BadOptionsExitWithCodeTwo)
{
    ServiceProcess service({{"--port", "x"}});
    EXPECT_EQ(service.exit_code(), kExitBadOptions);
    EXPECT_NE(service.errors().find("--port"), std::string::npos);
}

TEST_F(ProgramTest, BadInheritedSocketsAreReported)
{
    const UniqueFd no_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ServiceProcess service({{"--modules-on-loopback"}, {}, no_listener.get()});
    EXPECT_EQ(service.exit_code(), kExitFailed);
    EXPECT_EQ(service.errors(), "orvan-service: descriptor 3 of LISTEN_FDS is not a listening socket\n");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they map a lot of memory themselves
TEST_F(ProgramTest, NoThreadTakesTheAddressSpaceOfADefaultStack)
{
    ServiceProcess service(start());
    service.errors_until("ready");
    TestClient client(port());
    client.ask(":NO:SUCH:HEADER\n");
    const std::filesystem::path process = "/proc/" + std::to_string(service.pid());
    EXPECT_GE(std::distance(std::filesystem::directory_iterator(process / "task"), {}), 2);
    std::ifstream maps(process / "maps");
    for (std::string line; std::getline(maps, line);) {
        uintmax_t begin = 0;
        uintmax_t end = 0;
        char access[5] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "%jx-%jx %4s", &begin, &end, access), 3) << line;
        if (std::string_view(access) == "rw-p") {
            EXPECT_LT(end - begin, size_t{4} << 20) << line;
        }
    }
}
#endif

TEST_F(ProgramTest, VanishingClientsLeaveNoDescriptor)
{
    ServiceProcess service(start());
    service.errors_until("ready");
    const auto descriptors = [&] {
        size_t count = 0;
        for ([[maybe_unused]] const auto& entry :
             std::filesystem::directory_iterator("/proc/" + std::to_string(service.pid()) + "/fd")) {
            ++count;
        }
        return count;
    };
    const size_t before = descriptors();
    for (int i = 0; i < 300; ++i) {
        TestClient client(port());
        client.send(i % 3 == 0 ? ":NO:SUCH:HEADER\n" : ":HALF");
        if (i % 2 == 0) {
            client.reset();
        }
    }
    EXPECT_TRUE(eventually([&] { return descriptors() <= before; }));
}

TEST_F(ProgramTest, EndsDuringAnEndlessReplyAfterItsTimeLimit)
{
    ServiceProcess service(start({"--log-level", "info"}));
    TestClient client(port());
    client.send(endless_reply() + "\n");
    service.errors_until("sending \"*IDN?"); // it is executing
    const auto begin = std::chrono::steady_clock::now();
    service.signal(SIGTERM);
    EXPECT_EQ(service.exit_code(std::chrono::seconds(25)), kExitDone);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15)) << "its patience";
    const std::string log = service.errors();
    EXPECT_NE(log.find("ended during a command\n"), std::string::npos) << log;
}
