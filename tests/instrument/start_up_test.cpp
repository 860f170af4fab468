// Faults that an instrument finds at start-up are logged, and it still serves.
#include <algorithm>
#include <fstream>

#include <gtest/gtest.h>

#include "orvan_db.h"

using namespace orvan_test;
namespace fs = std::filesystem;

namespace {

size_t count(const std::string& text, const std::string& part)
{
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

void expect_served(const Instrument& instrument)
{
    EXPECT_EQ(instrument.client().ask("*IDN?"), "Halde Electronics Ltd.,OVX3654B,100001,1.19.145;+OK\r\n");
    EXPECT_EQ(instrument.client().ask(":FREQ 4e9;:FREQ?"), "4000000000;+OK\r\n");
}

/**
 * Runs a second service on the controller after the shell text `preparation` has set /dev/shm/orvanData up.
 * @return its log, the reply to a query after "reply: ", and orvan-db's frequencies after "db: "
 */
std::string second_service(const Instrument& instrument, const std::string& preparation)
{
    static const std::string kScript = R"(
        rm -f /dev/shm/orvanData 2>/dev/null
        eval "$1"
        : >"$4" # a former service was ready
        export ORVAN_BOARD=benchtop ORVAN_BOARD_CLOCK_RATE=20
        "$2" --foreground --platform benchtop --address 127.0.0.1 --port 5999 >"$4" 2>&1 &
        service=$!
        for attempt in $(seq 1000); do
            grep -q ': ready$' "$4" && break
            kill -0 $service || break
            sleep 0.02
        done
        cat "$4"
        exec 5<>/dev/tcp/127.0.0.1/5999
        printf ':FREQ 3000000000;:FREQ?\n' >&5
        read -r -t 10 line <&5
        echo "reply: ${line%?}"
        "$3" --tag freq 2>&1 | sed 's/^/db: /'
        kill $service
        wait $service
        echo "end: $?"
    )";
    return instrument
        .exec("controller", {"bash", "-c", kScript, "second", preparation, program("orvan-service"),
                             program("orvan-db"), (instrument.state() / "log/second").string()})
        .output;
}

void expect_records(const std::string& report)
{
    EXPECT_NE(report.find("reply: 3000000000;+OK\n"), std::string::npos) << report;
    EXPECT_NE(report.find("db: 1  ODT_FREQ                ANALOGOUTPUT.Frequency            3000000000\n"
                          "db: 2  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000\n"
                          "db: 3  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000\n"
                          "db: 4  ODT_FREQ                ANALOGOUTPUT.Frequency            1000000000\n"
                          "end: 0\n"),
              std::string::npos)
        << report;
}

void expect_no_records(const std::string& report, const std::string& reason)
{
    EXPECT_NE(report.find("Failed to open shared memory: " + reason + "\n"), std::string::npos) << report;
    EXPECT_NE(report.find("db: orvan-db: no instrument"), std::string::npos) << report;
    EXPECT_NE(report.find("reply: 3000000000;+OK\n"), std::string::npos) << report;
    EXPECT_NE(report.find("end: 0\n"), std::string::npos) << report;
}

} // namespace

TEST(StartUp, AnInvalidFactorySetupIsLoggedAndTheRecordsAreEmpty)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    const fs::path setup = instrument.state() / "halde/json/ch0.json";
    using namespace std::string_literals;
    const std::string broken[] = {
        "",
        "{",
        "[]",
        "null",
        "no JSON",
        R"({"ANALOGOUTPUT": {"Frequency": 77}} and more)",
        R"({"ANALOGOUTPUT": 77})",
        R"({"ANALOGOUTPUT": {"Frequency": 77, "Power": "5"}})",
        R"({"RUNMODE": {"TriggerCount": 0.5}})",
        R"({"RUNMODE": {"TriggerSrc": "0123456789abcdef0123456789abcdef"}})",
        "{\"SYSTEM\": {\"Model\": \"\xFF\"}}",
        "{}\0{}"s,
        std::string(100'000, '['),
        std::string(2'000'000, ' ') + "{}",
    };
    size_t failures = 0;
    const auto expect_refused = [&](const std::string& what) {
        ASSERT_TRUE(instrument.reboot()) << what;
        ++failures;
        EXPECT_EQ(count(instrument.service_log(), "Failed to load default database on boot"), failures)
            << what;
        EXPECT_EQ(count(orvan_db(instrument, {}).output, "\n"), 4U * 144U) << what;
        EXPECT_EQ(element(instrument, 1, "freq"), "0") << what;
        EXPECT_EQ(element(instrument, 4, "fpga"), "\"1.0.7\"") << what; // of the module, as always
    };
    for (const std::string& contents : broken) {
        std::ofstream(setup) << contents;
        expect_refused(contents.substr(0, 60));
    }
    fs::remove(setup);
    expect_refused("no file");
    fs::create_directory(setup);
    expect_refused("a folder");
    expect_served(instrument);

    fs::remove(setup);
    std::ofstream(setup) << R"({"ANALOGOUTPUT": {"Frequency": 77}})";
    ASSERT_TRUE(instrument.reboot());
    EXPECT_EQ(element(instrument, 1, "freq"), "77");
}

TEST(StartUp, SharedMemoryOfAnotherSizeIsReusedAndResized)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    expect_records(second_service(instrument, "head -c 100000 /dev/urandom >/dev/shm/orvanData"));
    expect_records(second_service(instrument, "printf xyz >/dev/shm/orvanData"));
    expect_records(second_service(instrument, ": >/dev/shm/orvanData"));
    expect_served(instrument);
}

TEST(StartUp, SharedMemoryThatDoesNotOpenIsLoggedAndTheServiceRunsWithoutRecords)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    expect_no_records(second_service(instrument, "mkdir /dev/shm/orvanData"),
                      "Invalid argument (errno=22)"); // as libc reports it for a folder
    expect_no_records(second_service(instrument, "rmdir /dev/shm/orvanData; ln -s none /dev/shm/orvanData"),
                      "Too many levels of symbolic links (errno=40)");
    expect_served(instrument);
}

TEST(StartUp, WithAnExpanderMissingItIsLoggedAndTheInstrumentServes)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument({"--board", "i2c 0x20 absent", "--board", "i2c 0x24 absent"});
    EXPECT_NE(instrument.service_log().find("InitHW: external modulations reset failed\n"),
              std::string::npos);
    EXPECT_NE(instrument.service_log().find("HW initialization failure\n"), std::string::npos);
    expect_served(instrument);
}

TEST(StartUp, WithoutItsSpiPortTheInstrumentDoesNotStartAndLogsWhy)
{
    ORVAN_NEEDS_SANDBOX();
    std::string folder = (fs::temp_directory_path() / "orvan-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const fs::path log = fs::path(folder) / "log/service.log";
    const Outcome outcome = run_program({program("orvan-sim"), "run", "--state", folder, "--clock-rate", "20",
                                         "--scpi-port", "0", "--hislip-port", "0", "--maint-port", "0",
                                         "--http-port", "none", "--board", "spi absent"});
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.output, "orvan-sim: the service ended with status 4; see " + log.string() + "\n");
    std::ifstream file(log);
    const std::string logged(std::istreambuf_iterator<char>(file), {});
    EXPECT_NE(logged.find("the device did not start; the messages before this one say why\n"),
              std::string::npos)
        << logged;
    EXPECT_TRUE(fs::exists(fs::path(folder) / "board/model")) << "it has still been produced";
    fs::remove_all(folder);
}

TEST(StartUp, WithoutAPlaceForTheBackupNoNewInstrumentIsProduced)
{
    ORVAN_NEEDS_SANDBOX();
    try {
        const Instrument instrument({}, [](const fs::path& state) {
            fs::create_directories(state / "halde/config");
            fs::create_symlink("/no/such/folder/file", state / "halde/config/flash.ini");
        });
        ADD_FAILURE() << "it started";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("orvan-service --produce ended with status 1"),
                  std::string::npos)
            << error.what();
    }
}
