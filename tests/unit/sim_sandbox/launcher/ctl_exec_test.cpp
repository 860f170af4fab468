#include <csignal>
#include <regex>

#include "launcher_fixture.h"

using namespace launcher_test;
using sandbox_test::eventually;
using sandbox_test::read_file;

class OrvanSimCtl : public LauncherTest {};
class OrvanSimExec : public LauncherTest {};
class OrvanSim : public LauncherTest {};

namespace {

/** From 'ctl status'; empty if the module does not run. */
std::string process_of_module_1(const std::string& status)
{
    std::smatch process;
    std::regex_search(status, process, std::regex("module 1  running, process ([0-9]+)"));
    return process[1];
}

} // namespace

TEST_F(OrvanSimCtl, StatusShowsTheRunningInstrument)
{
    if (!start_ready({"--model", "OVX3652B"})) {
        return;
    }
    EXPECT_TRUE(
        std::regex_match(sim({"ctl", "status"}).output,
                         std::regex("model     OVX3652B, 2 channels\n"
                                    "state     [^\n]+\n"
                                    "SCPI      127\\.0\\.0\\.1:[0-9]+\n"
                                    "HiSLIP    127\\.0\\.0\\.1:[0-9]+\n"
                                    "sandbox   yes\n"
                                    "service   ready, process [0-9]+, well\n"
                                    "web       running, process [0-9]+, http://127\\.0\\.0\\.1:[0-9]+/\n"
                                    "rpcbind   running, process [0-9]+\n"
                                    "module 1  running, process [0-9]+, link up\n"
                                    "module 2  running, process [0-9]+, link up\n")))
        << sim({"ctl", "status"}).output;
}

TEST_F(OrvanSimCtl, CommandsReachTheModuleWordForWord)
{
    if (!start_ready({"--modules", "2"})) {
        return;
    }
    EXPECT_EQ(sim({"ctl", "module", "2", "slow", "250"}).output, "ok slow 250\n");
    EXPECT_EQ(sim({"ctl", "temp", "1", "71.5"}).output, "ok temp 71.5\n");
    EXPECT_EQ(sim({"ctl", "temp", "1", "-5"}).output, "ok temp -5\n");
    EXPECT_EQ(sim({"ctl", "temp", "2", "auto"}).output, "ok temp auto\n");
    EXPECT_EQ(sim({"ctl", "temp", "2"}).output, "ok temp\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "log"}).output, "ok 2\nfirst\nsecond\n");
}

TEST_F(OrvanSimCtl, DropTakesTheLinkDownAndUpRestoresIt)
{
    if (!start_ready({"--modules", "2"})) {
        return;
    }
    const std::vector<std::string> reach = {
        "exec", "--", "timeout", "1", "bash", "-c", "exec 3<>/dev/tcp/192.168.8.1/6002"};
    EXPECT_EQ(sim(reach).status, 0);
    EXPECT_EQ(sim({"ctl", "module", "2", "drop"}).status, 0);
    EXPECT_NE(sim({"ctl", "status"}).output.find("link down\n"), std::string::npos);
    EXPECT_NE(sim(reach).status, 0);
    EXPECT_EQ(sim({"ctl", "module", "2", "drop"}).status, 0);
    EXPECT_EQ(sim({"ctl", "module", "2", "up"}).output, "ok up\n");
    EXPECT_EQ(sim(reach).status, 0);
}

TEST_F(OrvanSimCtl, KilledModuleIsReportedAndRestartedByStart)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    EXPECT_EQ(sim({"ctl", "module", "1", "start"}).output, "orvan-sim: it is running\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "kill"}).status, 0);
    EXPECT_NE(sim({"ctl", "status"}).output.find("module 1  ended\n"), std::string::npos);
    const Outcome silent = sim({"ctl", "module", "1", "hello"});
    EXPECT_EQ(silent.status, 1);
    EXPECT_EQ(silent.output, "orvan-sim: it is not running; 'start' starts it\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "start"}).status, 0);
    EXPECT_EQ(sim({"ctl", "module", "1", "hello"}).output, "ok hello\n");
}

TEST_F(OrvanSimCtl, ModuleThatDiesByItselfIsReportedAndTheInstrumentContinues)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    const std::string process = process_of_module_1(sim({"ctl", "status"}).output);
    ASSERT_NE(process, "");
    ::kill(std::stoi(process), SIGKILL);
    EXPECT_TRUE(eventually([&] {
        return output().find("module 1 ended with signal 9 (Killed); 'orvan-sim ctl module 1 start' brings "
                             "it back\n") != std::string::npos;
    })) << output();
    EXPECT_EQ(ask("fds"), "2\n");
}

TEST_F(OrvanSimCtl, ModulesStopWithoutPowerAndReturnWithIt)
{
    if (!start_ready({"--modules", "2"})) {
        return;
    }
    const std::vector<std::string> reach = {
        "exec", "--", "timeout", "1", "bash", "-c", "exec 3<>/dev/tcp/192.168.8.1/6002"};
    const std::string before = sim({"ctl", "status"}).output;
    ask("run printf 11 >$ORVAN_BOARD_MODULE_POWER"); // the current state
    ask("run printf 0 >$ORVAN_BOARD_MODULE_POWER");
    EXPECT_TRUE(eventually([&] { return output().find("module power off\n") != std::string::npos; }));
    EXPECT_TRUE(sim({"ctl", "status"}).output.ends_with("module 1  no power\nmodule 2  no power\n"));
    EXPECT_EQ(sim(reach).status, 124) << "nothing answers, not even to refuse";
    for (const char* command : {"start", "up", "hello"}) {
        EXPECT_EQ(sim({"ctl", "module", "2", command}).output, "orvan-sim: it has no power\n");
    }
    ask("run printf 1 >$ORVAN_BOARD_MODULE_POWER");
    EXPECT_TRUE(eventually([&] { return sim({"ctl", "module", "2", "hello"}).output == "ok hello\n"; }));
    EXPECT_NE(output().find("module power off\nmodule power on\n"), std::string::npos) << output();
    EXPECT_EQ(sim(reach).status, 0);
    const std::string after = sim({"ctl", "status"}).output;
    EXPECT_NE(process_of_module_1(after), process_of_module_1(before));
    EXPECT_EQ(output().find("ended"), std::string::npos) << output();
}

TEST_F(OrvanSimCtl, AShortPowerCutRestartsAModuleAndLeavesADroppedLinkDown)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    const std::string before = sim({"ctl", "status"}).output;
    EXPECT_EQ(sim({"ctl", "module", "1", "drop"}).status, 0);
    ask("run printf 01 >$ORVAN_BOARD_MODULE_POWER");
    EXPECT_TRUE(eventually([&] { return output().find("module power on\n") != std::string::npos; }));
    const std::string after = sim({"ctl", "status"}).output;
    EXPECT_TRUE(after.ends_with(", link down\n")) << after;
    EXPECT_NE(process_of_module_1(after), process_of_module_1(before));
}

TEST_F(OrvanSimCtl, WithoutABoardItsVerbsAreRefused)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"ctl", "board"}, {"ctl", "i2c", "0x20", "ok"}, {"ctl", "power-button"}}) {
        const Outcome refused = sim(words);
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.output, "orvan-sim: the service's board does not answer\n");
    }
    EXPECT_EQ(ask("env ORVAN_BOARD_CONTROL"), printed("state        ") + "/run/board.sock\n");
}

TEST_F(OrvanSimCtl, WrongRequestsAreRefused)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    EXPECT_EQ(sim({"ctl", "module", "2", "up"}).output, "orvan-sim: there is no module 2\n");
    EXPECT_EQ(sim({"ctl", "module", "1", "silence"}).output, "orvan-sim: it does not answer\n");
    for (const std::vector<std::string>& words : {std::vector<std::string>{"ctl"},
                                                  {"ctl", "module"},
                                                  {"ctl", "module", "1"},
                                                  {"ctl", "module", "5", "up"},
                                                  {"ctl", "temp"},
                                                  {"ctl", "temp", "5", "20"},
                                                  {"ctl", "temp", "1", "20", "30"},
                                                  {"ctl", "board", "now"},
                                                  {"ctl", "other"}}) {
        EXPECT_EQ(sim(words).status, 2);
    }
}

TEST_F(OrvanSimExec, CommandRunsInTheNamedRole)
{
    if (!start_ready({"--modules", "2"})) {
        return;
    }
    const std::string addresses = "PATH=$PATH:/usr/sbin:/sbin; ip -o -4 addr show | awk '{print $2, $4}'";
    EXPECT_EQ(sim({"exec", "--in", "module-2", "--", "sh", "-c", addresses}).output,
              "lo 127.0.0.1/8\nusb0 192.168.8.1/24\n");
    EXPECT_EQ(sim({"exec", "--in", "lan", "--", "sh", "-c", addresses}).output,
              "lo 127.0.0.1/8\neth0 10.0.0.1/24\n");
    EXPECT_EQ(sim({"exec", "--", "sh", "-c", addresses}).output,
              "lo 127.0.0.1/8\neth0 10.0.0.2/24\nusb0 192.168.7.2/24\nusb1 192.168.8.2/24\n");
}

TEST_F(OrvanSimExec, CommandSharesEverythingElseWithTheService)
{
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    EXPECT_EQ(ask("run echo here >/dev/shm/orvanData"), "0\n");
    EXPECT_EQ(sim({"exec", "--", "sh", "-c",
                   "cat /dev/shm/orvanData; cat /proc/1/comm; echo x >/home/orvan/halde/json/x"})
                  .output,
              "here\norvan-sandbox\n");
    EXPECT_EQ(read_file(state() / "halde/json/x"), "x\n");
    const std::string guard =
        "[ \"$ORVAN_SANDBOX\" = \"$(stat -L -c %i /proc/self/ns/net)\" ] && sudo reboot";
    EXPECT_EQ(sim({"exec", "--", "sh", "-c", guard}).status, 0);
    EXPECT_TRUE(eventually([&] { return output().find("reboot requested") != std::string::npos; }));
}

TEST_F(OrvanSimExec, OnTheLanTheCallersFolderIsVisibleAndWritable)
{
    const TemporaryDirectory shown("/var/tmp");
    for (const auto& parent : {m_folder.path() / "elsewhere/project", shown.path() / "project"}) {
        std::filesystem::create_directories(parent / "sub");
    }
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    const std::string write = "pwd && echo of the LAN >sub/written && cat sub/written";
    for (const auto& folder : {m_folder.path() / "elsewhere/project", shown.path() / "project"}) {
        std::filesystem::current_path(folder);
        EXPECT_EQ(sim({"exec", "--in", "lan", "--", "sh", "-c", write}).output,
                  folder.string() + "\nof the LAN\n");
        EXPECT_EQ(read_file(folder / "sub/written"), "of the LAN\n");
        EXPECT_NE(sim({"exec", "--in", "lan", "--", "touch", shown.path() / "beside"}).status, 0);
        for (const char* role : {"controller", "lan"}) {
            EXPECT_EQ(sim({"exec", "--in", role, "--", "touch", "/dev/shm/seen-by-both"}).status, 0);
        }
        EXPECT_NE(sim({"exec", "--in", "controller", "--", "sh", "-c",
                       "cd " + folder.string() + " && touch sub/of-the-controller"})
                      .status,
                  0);
        EXPECT_FALSE(std::filesystem::exists(folder / "sub/of-the-controller"));
    }
    EXPECT_FALSE(std::filesystem::exists(shown.path() / "beside"));
}

TEST_F(OrvanSimExec, OnTheLanTheRootAsCurrentFolderStaysReadOnly)
{
    const TemporaryDirectory shown("/var/tmp");
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    std::filesystem::current_path("/");
    EXPECT_EQ(sim({"exec", "--in", "lan", "--", "pwd"}).output, "/\n");
    EXPECT_NE(sim({"exec", "--in", "lan", "--", "touch", shown.path() / "written"}).status, 0);
}

TEST_F(OrvanSimExec, ProgramsInAHiddenFolderAreVisibleAndReadOnly)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    const std::string programs = (m_folder.path() / "bin").string();
    EXPECT_EQ(sim({"exec", "--", "sh", "-c", "cd " + programs + " && ls && touch orvan-module"}).output,
              "orvan-module\norvan-service\norvan-sim\norvan-web\n"
              "touch: cannot touch 'orvan-module': Read-only file system\n");
}

TEST_F(OrvanSimExec, ExitStatusIsPassedOn)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    EXPECT_EQ(sim({"exec", "--", "sh", "-c", "exit 42"}).status, 42);
    EXPECT_EQ(sim({"exec", "--", "sh", "-c", "kill -KILL $$"}).status, 128 + SIGKILL);
    EXPECT_EQ(sim({"exec", "--", "sh", "-c", "echo \"$1|$2\"", "-", "a b", "--in"}).output, "a b|--in\n");
    const Outcome missing = sim({"exec", "--", "/no/such/program"});
    EXPECT_EQ(missing.status, 127);
    EXPECT_EQ(missing.output, "orvan-sim: running /no/such/program: No such file or directory\n");
}

TEST_F(OrvanSimExec, MissingRolesAreRefused)
{
    if (!start_ready({"--modules", "1"})) {
        return;
    }
    EXPECT_EQ(sim({"exec", "--in", "module-2", "--", "true"}).output,
              "orvan-sim: this instance has no module-2\n");
    EXPECT_EQ(sim({"exec", "--in", "elsewhere", "--", "true"}).status, 2);
    EXPECT_EQ(sim({"exec"}).status, 2);
}

TEST_F(OrvanSim, VerbsNeedARunningInstance)
{
    EXPECT_EQ(sim({"ctl", "status"}).output,
              "orvan-sim: looking for a running instance: there is none (start one with 'orvan-sim run')\n");
    EXPECT_EQ(sim({"exec", "--state", "/nowhere", "--", "true"}).output,
              "orvan-sim: looking for an instance in /nowhere: none is running there\n");
    EXPECT_EQ(left_over(), "");
}

TEST_F(OrvanSim, OneOfSeveralInstancesMustBeNamed)
{
    if (!start_ready({"--modules", "none", "--state", state()})) {
        return;
    }
    const pid_t first = m_launcher;
    const std::filesystem::path other = m_folder.path() / "other";
    const std::string first_answer = ask("env ORVAN_STATE");
    if (!start_ready({"--modules", "1", "--state", other})) {
        return;
    }
    const Outcome unclear = sim({"ctl", "status"});
    EXPECT_EQ(unclear.status, 1);
    EXPECT_NE(unclear.output.find("there are several:"), std::string::npos) << unclear.output;
    EXPECT_NE(unclear.output.find("(choose one with --state)"), std::string::npos) << unclear.output;
    EXPECT_EQ(sim({"exec", "--state", state(), "--", "ls", "/sys/class/net"}).output, "eth0\nlo\n");
    EXPECT_EQ(sim({"exec", "--state", other, "--", "ls", "/sys/class/net"}).output, "eth0\nlo\nusb0\n");
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(sim({"ctl", "status"}).status, 0);
    m_launcher = first;
}

TEST_F(OrvanSim, ExecFindsProgramsOfTheCallersPathAfterTheStandIns)
{
    if (!start_ready({"--modules", "none"})) {
        return;
    }
    const TemporaryDirectory own("/var/tmp");
    for (const char* name : {"callers-own", "sudo"}) {
        std::ofstream(own.path() / name) << "#!/bin/sh\necho the caller\n";
        std::filesystem::permissions(own.path() / name, std::filesystem::perms::owner_all);
    }
    const std::string before = getenv("PATH");
    ::setenv("PATH", (own.path().string() + ":" + before).c_str(), 1);
    EXPECT_EQ(sim({"exec", "--in", "lan", "--", "callers-own"}).output, "the caller\n");
    EXPECT_EQ(sim({"exec", "--", "sh", "-c", "command -v sudo"}).output.find(own.path().string()),
              std::string::npos);
    ::setenv("PATH", before.c_str(), 1);
}

TEST_F(OrvanSim, HelpAndVersionArePrintedAndAnInvalidCommandLineIsStatus2)
{
    EXPECT_TRUE(
        std::regex_match(sim({"--version"}).output, std::regex("orvan-sim [0-9]+\\.[0-9]+\\.[0-9]+\n")));
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"--help"}, {"run", "--help"}, {"ctl", "--help"}, {"exec", "--help"}}) {
        EXPECT_EQ(sim(words).status, 0);
    }
    for (const std::vector<std::string>& words : {std::vector<std::string>{},
                                                  {"walk"},
                                                  {"run", "--modules", "5"},
                                                  {"run", "--scpi-port", "65536"},
                                                  {"run", "--hislip-port", "65536"},
                                                  {"run", "--log-level", "verbose"}}) {
        EXPECT_EQ(sim(words).status, 2);
    }
}
