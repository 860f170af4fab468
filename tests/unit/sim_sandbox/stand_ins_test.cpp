#include <regex>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sandbox_fixture.h"

using namespace orvan_sandbox;
using namespace sandbox_test;

namespace {

/** The calls recorded so far, without their times. */
std::string calls(const TemporaryDirectory& state)
{
    const std::regex time("(^|\n)[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} ");
    return std::regex_replace(read_file(state.path() / "log/calls.log"), time, "$1");
}

} // namespace

TEST(StandIns, ComeFirstInPath)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    for (const char* name : {"sudo", "reboot", "systemctl", "he_get_net_config.sh",
                             "he_orvan_network_config.sh", "he_set_hostname.sh"}) {
        const std::string path = shell(sandbox, Role::controller(), std::string("command -v ") + name);
        EXPECT_NE(path.find("/share/orvan/stand-ins/" + std::string(name) + "\n"), std::string::npos) << path;
    }
}

TEST(StandIns, EachCallIsOneLineOfTimeAndWords)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    "systemctl stop orvan-upgrade.service && he_set_hostname.sh bench-3 &&"
                    "he_orvan_network_config.sh static -a 10.0.0.9 -n 255.255.255.0 -g 10.0.0.1 && reboot &&"
                    "systemctl 'two words' 'two\nlines'"),
              "");
    EXPECT_EQ(calls(state), "systemctl stop orvan-upgrade.service\n"
                            "he_set_hostname.sh bench-3\n"
                            "he_orvan_network_config.sh static -a 10.0.0.9 -n 255.255.255.0 -g 10.0.0.1\n"
                            "reboot\n"
                            "systemctl two words two lines\n");
}

TEST(StandIns, SudoRunsTheStandInOfTheSameBaseName)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(
        shell(sandbox, Role::controller(),
              "sudo reboot && sudo /sbin/reboot now && sudo -n -u root /usr/local/bin/he_set_hostname.sh x"),
        "");
    EXPECT_EQ(calls(state), "sudo reboot\nreboot\n"
                            "sudo /sbin/reboot now\nreboot now\n"
                            "sudo -n -u root /usr/local/bin/he_set_hostname.sh x\nhe_set_hostname.sh x\n");
}

TEST(StandIns, SudoRefusesCommandsWithoutAStandIn)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    for (const char* command : {"touch /home/orvan/halde/made", "/bin/touch /home/orvan/halde/made",
                                "sudo reboot", "../stand-ins/lib", ""}) {
        EXPECT_EQ(shell(sandbox, Role::controller(),
                        "sudo " + std::string(command) +
                            " 2>/dev/null; echo $?; ls /home/orvan/halde/made 2>&1 |"
                            "grep -c '^/home'"),
                  "1\n0\n")
            << command;
    }
    EXPECT_EQ(calls(state).find("\nreboot"), std::string::npos);
}

TEST(StandIns, NetworkScriptPrintsSixWordsOfEth0)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 1}));
    const std::string mac =
        shell(sandbox, Role::controller(),
              "PATH=$PATH:/usr/sbin:/sbin; ip -o link show eth0 | sed 's/.*ether //; s/ .*//'");
    EXPECT_EQ(shell(sandbox, Role::controller(), "sudo /usr/local/bin/he_get_net_config.sh"),
              "Static eth0 10.0.0.2 255.255.255.0 10.0.0.1 " + mac);
    EXPECT_TRUE(std::regex_match(mac, std::regex("([0-9a-f]{2}:){5}[0-9a-f]{2}\n"))) << mac;
}

TEST(StandIns, NetworkScriptReportsALeasedAddressAndOtherMasks)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const std::string ip = "PATH=$PATH:/usr/sbin:/sbin; ip addr flush dev eth0; ip addr add ";
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    ip + "10.1.2.3/20 dev eth0 valid_lft 100 preferred_lft 100; he_get_net_config.sh")
                  .substr(0, 44),
              "Dynamic eth0 10.1.2.3 255.255.240.0 0.0.0.0 ");
    EXPECT_EQ(
        shell(sandbox, Role::controller(), ip + "10.1.2.3/32 dev eth0; he_get_net_config.sh").substr(0, 44),
        "Static eth0 10.1.2.3 255.255.255.255 0.0.0.0");
    EXPECT_EQ(
        shell(sandbox, Role::controller(), ip + "10.1.2.3/8 dev eth0; he_get_net_config.sh").substr(0, 40),
        "Static eth0 10.1.2.3 255.0.0.0 0.0.0.0 0");
}

TEST(StandIns, NetworkScriptReportsALostLinkInSixWordsToo)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::lan(), "PATH=$PATH:/usr/sbin:/sbin; ip link set eth0 down"), "");
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    "he_get_net_config.sh | cut -d' ' -f1-4; he_get_net_config.sh | wc -w"),
              "NoLink eth0 10.0.0.2 255.255.255.0\n6\n");
}

TEST(StandIns, RebootWritesToThePipe)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const std::filesystem::path pipe = state.path() / "run/reboot";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const orvan_common::UniqueFd reading(::open(pipe.c_str(), O_RDWR | O_NONBLOCK));
    EXPECT_EQ(shell(sandbox, Role::controller(), "sudo reboot; echo $?"), "0\n");
    char text[16] = {};
    EXPECT_EQ(read(reading.get(), text, sizeof text), 7);
    EXPECT_STREQ(text, "reboot\n");
}

TEST(StandIns, RebootDoesNotWaitForAReader)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    ASSERT_EQ(mkfifo((state.path() / "run/reboot").c_str(), 0600), 0);
    EXPECT_EQ(shell(sandbox, Role::controller(), "timeout 5 reboot; echo $?"), "0\n");
}

TEST(StandIns, TheUpdateUnitInstallsLeavesAMarkerAndRestarts)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    "cd /home/orvan/halde/upgrade && mkdir -p 'host_sw/a b/patch/lib' &&"
                    "echo program >'host_sw/a b/patch/lib/orvan-service' &&"
                    "echo '/home/orvan/halde/upgrade/host_sw/a b/patch' >upgrade_init_done.txt &&"
                    "systemctl start orvan-upgrade.service; echo $?"),
              "0\n");
    EXPECT_EQ(read_file(state.path() / "installed/lib/orvan-service"), "program\n");
    EXPECT_EQ(read_file(state.path() / "halde/upgrade/upgrade_delete_ver_ready.txt"), "done\n");
    EXPECT_EQ(calls(state), "systemctl start orvan-upgrade.service\norvan-upgrade.service\nreboot\n");
}

TEST(StandIns, TheUpdateUnitReplacesARunningProgram)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    "bin=$ORVAN_STATE/installed/bin; mkdir -p $bin && cp /bin/sleep $bin/program;"
                    "$bin/program 30 & pid=$!;"
                    "until [ $(readlink /proc/$pid/exe) = $bin/program ]; do sleep 0.01; done;"
                    "cd /home/orvan/halde/upgrade && mkdir -p patch/bin && echo new >patch/bin/program &&"
                    "echo $PWD/patch >upgrade_init_done.txt && systemctl start orvan-upgrade.service 2>&1;"
                    "echo $?; kill $pid"),
              "0\n");
    EXPECT_EQ(read_file(state.path() / "installed/bin/program"), "new\n");
}

TEST(StandIns, TheUpdateUnitFailsWithNothingToInstall)
{
    const TemporaryDirectory state;
    START_SANDBOX(sandbox, (Options{state.path(), 0}));
    const std::string start = "systemctl start orvan-upgrade.service 2>&1; echo $?";
    EXPECT_EQ(shell(sandbox, Role::controller(), start), "orvan-upgrade: no update is announced\n1\n");
    EXPECT_EQ(shell(sandbox, Role::controller(),
                    "echo /home/orvan/none >/home/orvan/halde/upgrade/upgrade_init_done.txt;" + start),
              "orvan-upgrade: there is no folder '/home/orvan/none'\n1\n");
    EXPECT_FALSE(std::filesystem::exists(state.path() / "halde/upgrade/upgrade_delete_ver_ready.txt"));
    EXPECT_EQ(calls(state).find("reboot"), std::string::npos);
}
