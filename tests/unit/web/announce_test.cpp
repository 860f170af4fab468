// The announcement as others on a network see it: in a sandbox, with avahi-daemon beside the announcer, and
// another mDNS implementation on the LAN.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "announce/announcer.h"
#include "orvan_sandbox/sandbox.h"
#include "support/eventually.h"
#include "support/files.h"
#include "support/log_capture.h"

using namespace orvan_web;
using orvan_common::UniqueFd;
using orvan_sandbox::Role;
using orvan_test::eventually;

namespace {

constexpr std::chrono::seconds kLong{20};
constexpr const char* kName = "OVX3654B-100001";
constexpr const char* kIsAvahiRunning = "PATH=$PATH:/usr/sbin; avahi-daemon --check";
constexpr const char* kNoDaemon = "mDNS: not announced while avahi-daemon is not running";
constexpr const char* kNoBus = "mDNS: not announced while there is no system bus";

Announcement announcement()
{
    return {"Halde Electronics Ltd.", "OVX3654B", "100001", "1.19.145", "bench-4", 80, 5025, 4880, 111};
}

std::string announced_as(const std::string& name)
{
    return "mDNS: announced as \"" + name + "\"";
}

std::string text_of(const orvan_test::LogCapture& log)
{
    std::string text;
    for (const orvan_test::LogLine& line : log.lines()) {
        text += line.text + "\n";
    }
    return text;
}

/**
 * A temporary folder that is removed by another process once this one has ended: until then the sandbox has
 * it mounted.
 */
std::filesystem::path folder_of_this_process()
{
    std::string name = (std::filesystem::temp_directory_path() / "orvan-test-XXXXXX").string();
    int ends[2];
    if (::mkdtemp(name.data()) == nullptr || ::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "a temporary folder");
    }
    if (::fork() == 0) {
        for (const int fd : {0, 1, 2, ends[1]}) {
            ::close(fd);
        }
        char byte = 0;
        static_cast<void>(::read(ends[0], &byte, 1));
        std::error_code code;
        std::filesystem::remove_all(name, code);
        ::_exit(0);
    }
    ::close(ends[0]); // the other end is closed with the process
    return name;
}

/** The process is the controller of a sandbox that has a LAN and no modules. */
class AnnouncerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_folder = folder_of_this_process();
        auto inside = orvan_sandbox::enter({m_folder, 0});
        if (!inside && inside.error().refused) {
            GTEST_SKIP() << inside.error().text();
        }
        ASSERT_TRUE(inside.ok()) << inside.error().text();
        m_inside.emplace(std::move(*inside));
    }

    void TearDown() override
    {
        for (const pid_t child : m_children) {
            ::kill(child, SIGTERM);
            orvan_sandbox::wait_for(child);
        }
    }

    /** Runs a shell text on one of the machines to completion. */
    int shell(Role role, const std::string& text)
    {
        return orvan_sandbox::wait_for(start(role, {"sh", "-c", text}, m_folder / "shell"));
    }

    void start_bus_and_avahi()
    {
        ASSERT_EQ(shell(Role::controller(), ORVAN_MDNS_DIR "/machine"), 0)
            << orvan_test::read_file(m_folder / "shell");
    }

    /** Starts to look from the LAN, or with "register NAME", to be somebody else there. */
    void browse(const std::vector<std::string>& words = {})
    {
        std::vector<std::string> argv = {ORVAN_MDNS_DIR "/browse", "10.0.0.1"};
        argv.insert(argv.end(), words.begin(), words.end());
        m_children.push_back(start(Role::lan(), argv, m_folder / (words.empty() ? "seen" : "registered")));
    }

    std::string seen() const { return orvan_test::read_file(m_folder / "seen"); }
    bool sees(const std::string& text) const
    {
        return eventually([&] { return seen().find(text) != std::string::npos; });
    }

    std::filesystem::path m_folder;
    std::optional<orvan_sandbox::Inside> m_inside;
    std::vector<pid_t> m_children;

private:
    pid_t start(Role role, const std::vector<std::string>& argv, const std::filesystem::path& output)
    {
        const UniqueFd file(::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
        orvan_sandbox::Command command;
        command.argv = argv;
        command.output = file.get();
        command.error = file.get();
        const orvan_sandbox::RoleScope scope(*m_inside, role);
        const auto pid = orvan_sandbox::spawn(orvan_sandbox::Membership(), command);
        EXPECT_TRUE(pid.ok()) << pid.error().text();
        return pid ? pid.value() : -1;
    }
};

} // namespace

TEST(Announcer, WithoutABusThereIsOneLineInTheLog)
{
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/such/bus", 1);
    const orvan_test::LogCapture log;
    {
        Announcer announcer;
        announcer.announce(announcement());
        EXPECT_TRUE(log.wait_for(LOG_NOTICE, kNoBus, kLong)) << text_of(log);
        Announcement changed = announcement();
        changed.serial = "2";
        announcer.announce(changed);
    }
    EXPECT_EQ(log.lines().size(), 1u) << text_of(log);
}

TEST(Announcer, NothingHappensBeforeTheFirstAnnouncement)
{
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/such/bus", 1);
    const orvan_test::LogCapture log;
    {
        const Announcer idle;
    }
    EXPECT_EQ(log.lines().size(), 0u) << text_of(log);
}

TEST_F(AnnouncerTest, AllServicesAreFoundWithTheirTextsAndGoWithTheAnnouncer)
{
    start_bus_and_avahi();
    browse();
    const orvan_test::LogCapture log;
    auto announcer = std::make_unique<Announcer>();
    announcer->announce(announcement());
    EXPECT_TRUE(log.wait_for(LOG_NOTICE, announced_as(kName), kLong)) << text_of(log);
    for (const AnnouncedService& service : announced_services(announcement())) {
        EXPECT_TRUE(sees("+ " + service.type +
                         " OVX3654B-100001 bench-4.local. 10.0.0.2:" + std::to_string(service.port) +
                         " txtvers=1 Manufacturer=Halde Electronics Ltd. Model=OVX3654B "
                         "SerialNumber=100001 FirmwareVersion=1.19.145\n"))
            << seen();
    }
    EXPECT_EQ(seen().find("- "), std::string::npos);
    announcer.reset();
    for (const char* type : {"_lxi", "_http", "_scpi-raw", "_hislip", "_vxi-11"}) {
        EXPECT_TRUE(sees(std::string("- ") + type + "._tcp OVX3654B-100001\n")) << seen();
    }
    EXPECT_EQ(log.lines().size(), 1u) << text_of(log);
}

TEST_F(AnnouncerTest, ANewIdentityAndNewPortsReplaceTheOldOnes)
{
    start_bus_and_avahi();
    browse();
    const orvan_test::LogCapture log;
    Announcer announcer;
    announcer.announce(announcement());
    ASSERT_TRUE(sees("+ _scpi-raw._tcp OVX3654B-100001 ")) << seen();
    Announcement changed = announcement();
    changed.raw_port = 7000;
    announcer.announce(changed);
    EXPECT_TRUE(sees(" 10.0.0.2:7000 ")) << seen();
    changed.serial = "241107";
    changed.hislip_port = 0;
    announcer.announce(changed);
    EXPECT_TRUE(sees("+ _scpi-raw._tcp OVX3654B-241107 ")) << seen();
    EXPECT_TRUE(sees("- _hislip._tcp OVX3654B-100001\n")) << seen();
    EXPECT_TRUE(log.wait_for(LOG_NOTICE, announced_as("OVX3654B-241107"), kLong)) << text_of(log);
    EXPECT_EQ(seen().find("+ _hislip._tcp OVX3654B-241107 "), std::string::npos) << seen();
}

TEST_F(AnnouncerTest, ANameOfSomebodyElseOnTheNetworkIsChanged)
{
    start_bus_and_avahi();
    browse({"register", kName});
    ASSERT_TRUE(eventually([&] { return !orvan_test::read_file(m_folder / "registered").empty(); }));
    browse();
    const orvan_test::LogCapture log;
    Announcer announcer;
    announcer.announce(announcement());
    EXPECT_TRUE(log.wait_for(LOG_NOTICE, announced_as("OVX3654B-100001 #2"), kLong)) << text_of(log);
    EXPECT_TRUE(sees("+ _vxi-11._tcp OVX3654B-100001 #2 ")) << seen();
    // And kept, while the identity is the same.
    Announcement changed = announcement();
    changed.raw_port = 7000;
    announcer.announce(changed);
    EXPECT_TRUE(sees("+ _scpi-raw._tcp OVX3654B-100001 #2 ")) << seen();
    EXPECT_TRUE(sees(" 10.0.0.2:7000 ")) << seen();
    EXPECT_EQ(seen().find("OVX3654B-100001 #3"), std::string::npos) << seen();
}

TEST_F(AnnouncerTest, TwoOfTheSameIdentityOnOneMachineGetDifferentNames)
{
    start_bus_and_avahi();
    const orvan_test::LogCapture log;
    Announcer first;
    first.announce(announcement());
    ASSERT_TRUE(log.wait_for(LOG_NOTICE, announced_as(kName), kLong)) << text_of(log);
    Announcer second;
    Announcement other_port = announcement();
    other_port.raw_port = 7000;
    second.announce(other_port);
    EXPECT_TRUE(log.wait_for(LOG_NOTICE, announced_as("OVX3654B-100001 #2"), kLong)) << text_of(log);
}

TEST_F(AnnouncerTest, ItIsAnnouncedOnceAvahiRunsAndAgainAfterARestart)
{
    // The bus alone.
    ASSERT_EQ(shell(Role::controller(),
                    "mkdir -p /run/dbus && dbus-daemon --fork --nopidfile --config-file=" //
                    ORVAN_MDNS_DIR "/bus.conf"),
              0);
    const orvan_test::LogCapture log;
    Announcer announcer;
    announcer.announce(announcement());
    ASSERT_TRUE(log.wait_for(LOG_NOTICE, kNoDaemon, kLong)) << text_of(log);
    ASSERT_EQ(shell(Role::controller(), ORVAN_MDNS_DIR "/machine --avahi-only"), 0);
    ASSERT_TRUE(log.wait_for(LOG_NOTICE, announced_as(kName), kLong)) << text_of(log);
    EXPECT_EQ(log.lines().size(), 2u) << text_of(log);

    ASSERT_EQ(shell(Role::controller(), "PATH=$PATH:/usr/sbin; avahi-daemon --kill"), 0);
    ASSERT_TRUE(eventually([&] { return log.count(LOG_NOTICE, kNoDaemon) == 2; })) << text_of(log);
    ASSERT_EQ(shell(Role::controller(), ORVAN_MDNS_DIR "/machine --avahi-only"), 0);
    EXPECT_TRUE(eventually([&] { return log.count(LOG_NOTICE, announced_as(kName)) == 2; })) << text_of(log);
    EXPECT_EQ(log.lines().size(), 4u) << text_of(log);
}

TEST_F(AnnouncerTest, ItIsAnnouncedAgainAfterARestartOfTheBus)
{
    start_bus_and_avahi();
    browse();
    const orvan_test::LogCapture log;
    Announcer announcer;
    announcer.announce(announcement());
    ASSERT_TRUE(log.wait_for(LOG_NOTICE, announced_as(kName), kLong)) << text_of(log);
    // avahi-daemon ends with its bus.
    ASSERT_EQ(shell(Role::controller(), "kill $(cat /run/dbus/pid)"), 0);
    ASSERT_TRUE(eventually([&] { return shell(Role::controller(), kIsAvahiRunning) != 0; }));
    ASSERT_TRUE(log.wait_for(LOG_NOTICE, kNoDaemon, kLong)) << text_of(log);
    start_bus_and_avahi();
    // The first attempt may have come too early; the next is half a minute later.
    EXPECT_TRUE(
        eventually([&] { return log.count(LOG_NOTICE, announced_as(kName)) == 2; }, std::chrono::seconds(45)))
        << text_of(log);
}

TEST_F(AnnouncerTest, AvahiTakesTheHostNameOfTheInstrument)
{
    start_bus_and_avahi();
    browse();
    std::mutex mutex;
    std::vector<std::string> hosts;
    Announcer announcer([&](const std::string& host) {
        const std::lock_guard lock(mutex);
        hosts.push_back(host);
    });
    Announcement named = announcement();
    announcer.announce(named);
    EXPECT_TRUE(sees("+ _lxi._tcp OVX3654B-100001 bench-4.local. 10.0.0.2:80 ")) << seen();
    named.host_name = "bench-5";
    announcer.announce(named);
    EXPECT_TRUE(sees("+ _lxi._tcp OVX3654B-100001 bench-5.local. 10.0.0.2:80 ")) << seen();
    EXPECT_TRUE(eventually([&] {
        const std::lock_guard lock(mutex);
        return !hosts.empty() && hosts.back() == "bench-5.local";
    }));
    const std::lock_guard lock(mutex);
    EXPECT_NE(std::ranges::find(hosts, "bench-4.local"), hosts.end());
}

TEST_F(AnnouncerTest, AnotherAddressOfTheMachineIsFollowed)
{
    start_bus_and_avahi();
    browse();
    Announcer announcer;
    announcer.announce(announcement());
    ASSERT_TRUE(sees(" 10.0.0.2:4880 ")) << seen();
    ASSERT_EQ(shell(Role::controller(), "PATH=$PATH:/usr/sbin:/sbin; ip address del 10.0.0.2/24 dev eth0 && "
                                        "ip address add 10.0.0.9/24 dev eth0"),
              0);
    EXPECT_TRUE(sees(" 10.0.0.9:4880 ")) << seen();
}
