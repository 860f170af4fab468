#include <cstring>
#include <fstream>
#include <string>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "module_fixture.h"
#include "support/loopback.h"

namespace {

using Control = ModuleTest;

int connect_to(const std::string& path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strncpy(name.sun_path, path.c_str(), sizeof name.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    return fd;
}

} // namespace

TEST_F(Control, StatusReportsWhatTheModuleIsDoing)
{
    EXPECT_EQ(control("temp 31.25"), "ok");
    ask(":TRIG:SOUR BUS;*TRG;:SYST:CLOC 2026,11,20,10,49,43;:SYST:UPD:FPGA #19123456789\r\n");
    ask(":SYST:EMUL:MOD \"a\"\r\n");
    const std::string port = std::to_string(module().port());
    EXPECT_TRUE(eventually([&] { return control("status").find("\"connections\":0") != std::string::npos; }));
    EXPECT_EQ(control("status"),
              "{\"channel\":1,\"model\":\"OVX3654B\",\"address\":\"127.0.0.1\",\"port\":" + port +
                  ",\"mode\":\"up\",\"delay_ms\":0,\"connections\":0,\"requests\":2,"
                  "\"last_request\":\":SYST:EMUL:MOD \\\"a\\\"\\\\r\\\\n\",\"temperature\":31.25,"
                  "\"temperature_held\":true,\"triggers\":1,\"clock\":\"2026-11-20T10:49:43\",\"restarts\":0,"
                  "\"away\":false,"
                  "\"firmware_port\":" +
                  std::to_string(module().firmware_port()) +
                  ",\"update\":\"up\",\"images\":{"
                  "\"software\":{\"stored\":0,\"size\":0,\"crc32\":\"00000000\"},"
                  "\"fpga\":{\"stored\":1,\"size\":9,\"crc32\":\"CBF43926\"},"
                  "\"program\":{\"stored\":0,\"size\":0,\"crc32\":\"00000000\"}}}");
}

TEST_F(Control, TheLogHasTheExactBytesOfEachRequest)
{
    ask(":FREQ 1GHz;:POW 2;\r\n");
    ask(":FOO\t\"\\\"\n");
    ask("*IDN?\r\n");
    EXPECT_EQ(control("log"), "ok 3\n:FREQ 1GHz;:POW 2;\\r\\n\n:FOO\\t\"\\\\\"\\n\n*IDN?\\r\\n");
    EXPECT_EQ(control("log 1"), "ok 1\n*IDN?\\r\\n");
    EXPECT_EQ(control("log 0"), "ok 0");
    EXPECT_EQ(control("log 99").substr(0, 4), "ok 3");
    EXPECT_EQ(control("requests"), "ok 3");
    EXPECT_EQ(control("clear"), "ok");
    EXPECT_EQ(control("log"), "ok 0");
    EXPECT_EQ(control("requests"), "ok 0");
}

TEST_F(Control, ALogOfAThousandLongRequestsIsWhole)
{
    const std::string request = ":FREQ " + std::string(3000, '1') + "\n";
    {
        const Client client(module());
        for (int i = 0; i < 1001; ++i) {
            client.ask(request);
        }
    }
    EXPECT_EQ(control("log").size(), std::string("ok 1000").size() + 1000 * (request.size() + 2));
}

TEST_F(Control, TheTemperatureIsHeldAndReleased)
{
    EXPECT_TRUE(control("temp").ends_with(" drifting"));
    EXPECT_NE(control("status").find("\"temperature_held\":false"), std::string::npos);
    EXPECT_EQ(control("temp 71.5"), "ok");
    EXPECT_EQ(control("temp"), "ok 71.5 held");
    EXPECT_EQ(ask(":SYST:TEMP?\r\n"), "71.5;+OK\r\n");
    for (const char* wrong : {"temp hot", "temp 1e9", "temp -273.16", "temp 1000.01", "temp nan", "temp inf",
                              "temp 5C", "temp Auto"}) {
        EXPECT_EQ(control(wrong), "error degrees Celsius, -273.15 to 1000, or \"auto\" expected") << wrong;
    }
    EXPECT_EQ(control("temp 5 6"), "error too many arguments");
    EXPECT_EQ(ask(":SYST:TEMP?\r\n"), "71.5;+OK\r\n");
    EXPECT_EQ(control("temp auto"), "ok");
    EXPECT_TRUE(control("temp").ends_with(" drifting"));
    EXPECT_NE(ask(":SYST:TEMP?\r\n"), "71.5;+OK\r\n");
    for (const char* limit : {"-273.15", "1000"}) {
        EXPECT_EQ(control(std::string("temp ") + limit), "ok");
        EXPECT_EQ(ask(":SYST:TEMP?\r\n"), std::string(limit) + ";+OK\r\n");
    }
}

TEST_F(Control, AResetOfTheInstrumentLeavesTheTemperature)
{
    EXPECT_EQ(control("temp 71.5"), "ok");
    ask("*RST\r\n");
    EXPECT_EQ(control("temp"), "ok 71.5 held");
}

TEST_F(Control, UnknownCommandsAreRefusedAndChangeNothing)
{
    EXPECT_EQ(control(""), "error unknown command");
    EXPECT_EQ(control("reboot"), "error unknown command");
    EXPECT_EQ(control("Up"), "error unknown command");
    EXPECT_EQ(control("status now"), "error unknown command or too many arguments");
    EXPECT_EQ(control("slow 1 2"), "error too many arguments");
    EXPECT_EQ(control("up 1"), "error no argument expected");
    EXPECT_EQ(control("slow soon"), "error milliseconds expected, 0 to 600000");
    EXPECT_EQ(control("slow -1"), "error milliseconds expected, 0 to 600000");
    EXPECT_EQ(control("split 600001"), "error milliseconds expected, 0 to 600000");
    EXPECT_EQ(control("log all"), "error number of requests expected");
    EXPECT_NE(control("status").find("\"mode\":\"up\""), std::string::npos);
}

TEST_F(Control, DelaysHaveDefaults)
{
    EXPECT_EQ(control("slow"), "ok");
    EXPECT_NE(control("status").find("\"mode\":\"slow\",\"delay_ms\":1000"), std::string::npos);
    EXPECT_EQ(control(" split\t \r"), "ok");
    EXPECT_NE(control("status").find("\"mode\":\"split\",\"delay_ms\":50"), std::string::npos);
}

TEST_F(Control, TheUpdateFaultIsSetAndReported)
{
    EXPECT_EQ(control("update"), "ok up");
    for (const char* fault :
         {"silent-stream", "silent-stream 65535", "silent-burn", "late", "late 600000", "refuse", "up"}) {
        EXPECT_EQ(control(std::string("update ") + fault), "ok") << fault;
        const std::string name = std::string(fault).substr(0, std::string(fault).find(' '));
        EXPECT_EQ(control("update"), "ok " + name);
        EXPECT_NE(control("status").find("\"update\":\"" + name + "\""), std::string::npos);
    }
}

TEST_F(Control, AnUnknownUpdateFaultChangesNothing)
{
    EXPECT_EQ(control("update refuse"), "ok");
    EXPECT_EQ(control("update never"),
              "error update up, silent-stream, silent-burn, late or refuse expected");
    EXPECT_EQ(control("update Up"), "error update up, silent-stream, silent-burn, late or refuse expected");
    EXPECT_EQ(control("update up 1"), "error no argument expected");
    EXPECT_EQ(control("update silent-burn 1"), "error no argument expected");
    EXPECT_EQ(control("update silent-stream x"), "error number of a block expected, 0 to 65535");
    EXPECT_EQ(control("update silent-stream 65536"), "error number of a block expected, 0 to 65535");
    EXPECT_EQ(control("update late -1"), "error milliseconds expected, 0 to 600000");
    EXPECT_EQ(control("update late 600001"), "error milliseconds expected, 0 to 600000");
    EXPECT_EQ(control("update late 1 2"), "error too many arguments");
    EXPECT_EQ(control("update"), "ok refuse");
}

TEST_F(Control, AServerFaultLeavesTheUpdateFault)
{
    EXPECT_EQ(control("update refuse"), "ok");
    EXPECT_EQ(control("silent"), "ok");
    EXPECT_EQ(control("up"), "ok");
    EXPECT_EQ(control("update"), "ok refuse");
}

TEST_F(Control, SeveralCommandsOfOneConnectionAreAnsweredInOrder)
{
    const int fd = connect_to(control_path());
    EXPECT_EQ(write(fd, "requests\nfoo\nre", 15), 15);
    EXPECT_EQ(orvan_test::read_until(fd, "unknown command\n"), "ok 0\nerror unknown command\n");
    EXPECT_EQ(write(fd, "quests\n", 7), 7);
    EXPECT_EQ(orvan_test::read_until(fd, "\n"), "ok 0\n");
    ::close(fd);
}

TEST_F(Control, ALineWithoutEndEndsTheConnectionAndNotTheModule)
{
    const int fd = connect_to(control_path());
    const std::string endless(sim_control::ControlServer::kMaxLine + 1, 'x');
    EXPECT_EQ(send(fd, endless.data(), endless.size(), MSG_NOSIGNAL), static_cast<ssize_t>(endless.size()));
    EXPECT_EQ(orvan_test::read_until(fd, "\n"), "");
    ::close(fd);
    EXPECT_EQ(control("requests"), "ok 0");
}

TEST_F(Control, APortTakenWhileItWasClosedIsReportedAndTheModuleStaysClosed)
{
    EXPECT_EQ(control("refuse"), "ok");
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(module().port());
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(fd, 1), 0);
    EXPECT_EQ(control("up").substr(0, 16), "error 127.0.0.1:");
    EXPECT_NE(control("status").find("\"mode\":\"refuse\""), std::string::npos);
    ::close(fd);
    EXPECT_EQ(control("up"), "ok");
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
}

TEST_F(Control, APathThatAModuleListensOnIsRefused)
{
    sim_module::Options options;
    options.address = "127.0.0.1";
    options.control_path = control_path();
    EXPECT_THROW(sim_module::Module{options}, std::system_error);
    EXPECT_EQ(control("requests"), "ok 0");
}

TEST_F(Control, APathLeftByADeadModuleIsReused)
{
    const std::string path = control_path() + "-left";
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strncpy(name.sun_path, path.c_str(), sizeof name.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ::close(fd);
    sim_module::Options options;
    options.address = "127.0.0.1";
    options.control_path = path;
    {
        const sim_module::Module second(options);
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(Control, AFileAtThePathIsLeftAlone)
{
    const std::string path = control_path() + "-file";
    std::ofstream(path) << "kept";
    sim_module::Options options;
    options.address = "127.0.0.1";
    options.control_path = path;
    EXPECT_THROW(sim_module::Module{options}, std::system_error);
    std::string text;
    std::ifstream(path) >> text;
    EXPECT_EQ(text, "kept");
}

TEST_F(Control, APathThatIsTooLongIsAnError)
{
    sim_module::Options options;
    options.address = "127.0.0.1";
    options.control_path = "/" + std::string(200, 'x');
    EXPECT_THROW(sim_module::Module{options}, std::system_error);
}
