#include "start_bench.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include <unistd.h>

#include "end_module_service.h"
#include "maintenance_frame.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/OrvanDebug.h"
#include "support/maintenance_client.h"

namespace board_test {
namespace {

namespace fs = std::filesystem;
using HaldeElec::OrvanDebug;
using HaldeElec::Orvan::Blob;
using HaldeElec::Orvan::CPersistentData;

const std::string kBackup = "/home/orvan/halde/config/flash.ini";

// Shell built-ins only.
constexpr const char* kSudo = R"(
printf '%s\n' "sudo $*" >>/home/orvan/halde/sudo_calls
case "$1" in
*/he_get_net_config.sh) echo Static eth0 10.0.0.2 255.255.255.0 10.0.0.1 02:00:00:00:00:02 ;;
esac)";

/** Constructs settings without a bus. */
class NoBus : public HaldeElec::Orvan::IDeviceConnectionHandler {
public:
    void enableMUX() override {}
    void disableMUX() override {}
};

bool is_step(const std::string& line)
{
    for (const char* prefix : {"log ", "debug ", "module ", "pins setup", "spi open", "delay 20000",
                               "delay 1000000", "spi eeprom: 0", "spi fan", "i2c 0x24 open"}) {
        if (line.starts_with(prefix)) {
            return true;
        }
    }
    return false;
}

// Removes what differs between runs or repeats from a step's line.
std::string step_of(const std::string& line)
{
    if (line.starts_with("spi eeprom: 03")) {
        return "eeprom read";
    }
    if (line.starts_with("spi eeprom: 02")) {
        return "eeprom write";
    }
    if (line.starts_with("spi eeprom: 0") || line.starts_with("log 6 command ") ||
        line.starts_with("log 6 ThreadRun")) { // logged by a thread, at any time
        return "";
    }
    if (line.starts_with("debug ")) {
        return "debug " + line.substr(line.find(']') + 1);
    }
    if (line.starts_with("module ")) {
        for (const char* question : {"*TST?", ":SYST:INF:", ":ROSC:OUTP:FREQ?"}) {
            if (line.find(question) != std::string::npos) {
                return line;
            }
        }
        return line.substr(0, line.find(':')) + ": setup";
    }
    return line;
}

Blob blob_of(const std::vector<uint8_t>& bytes)
{
    Blob blob = {};
    std::copy_n(bytes.begin(), std::min(bytes.size(), blob.size()), blob.begin());
    return blob;
}

} // namespace

StartBench::StartBench(const sim_board::BoardWiring& wiring) : board(wiring)
{
    if (!refusal().empty()) {
        return;
    }
    // So that a path is always resolved to the same place.
    fs::create_directories("/home/orvan");
    fs::create_directory_symlink(files.halde(), "/home/orvan/halde");
    fs::create_directory(files.halde() / "config");
    files.write_factory_setup(R"({"ANALOGOUTPUT": {"Frequency": 1000000000, "Power": 5}})");
    files.stand_in_for_sudo(kSudo);

    OrvanDebug::SetLogMode(kLogToCallback);
    OrvanDebug::RegisterCallback(
        [](const char* line) { sim_board::current_board()->trace().add("debug %s", line); });
    logs.on_line([this](const orvan_test::LogLine& line) {
        board->trace().add("log %d %s", line.priority, line.text.c_str());
    });

    BITManager::getInstance(0); // with no periodic thread
    for (int channel = 1; channel <= kMaxChannels; ++channel) {
        const auto index = static_cast<size_t>(channel - 1);
        modules[index] = std::make_unique<ScriptedModule>("127.0." + std::to_string(6 + channel) + ".1");
        modules[index]->always(ModuleAnswer::reply("1.0;+OK\r\n"));
        modules[index]->on_request([this, channel](const std::string& request) {
            board->trace().add("module %d: %s", channel, request.substr(0, request.find('\r')).c_str());
        });
    }
    connect_modules();
    logs.clear();
    board->trace().clear();
}

void StartBench::connect_modules()
{
    Scpi_Orvanx* const service = Scpi_Orvanx::getInstance();
    for (size_t index = 0; index < modules.size(); ++index) {
        service->m_orvanXIp[index] = modules[index]->address();
        service->m_OrvanXport[index] = static_cast<uint32_t>(modules[index]->port());
    }
}

void StartBench::SetUp()
{
    if (!refusal().empty()) {
        GTEST_SKIP() << refusal();
    }
}

void StartBench::TearDown()
{
    if (refusal().empty()) {
        end();
    }
    logs.on_line({});
    const std::string output = HasFailure() ? out->text() + err->text() : "";
    out.reset();
    err.reset();
    std::fwrite(output.data(), 1, output.size(), stdout); // the last identification row prints a NUL
}

EEPROM_DEVICE_SETTINGS StartBench::settings_of_modules()
{
    EEPROM_DEVICE_SETTINGS record;
    std::memset(&record, 0, sizeof record);
    for (char* text : {record.calibrationDate, record.fpgaVersion, record.scpiRevision}) {
        std::strcpy(text, "1.0");
    }
    return record;
}

Blob StartBench::signed_image(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation)
{
    NoBus unused;
    return HaldeElec::Orvan::PersistentDataTestPeer(unused, HaldeElec::Orvan::g_benchtopModelsTable)
        .build(&settings, HaldeElec::Orvan::CURRENT_STRUCT_VERSION, generation);
}

void StartBench::store_in_eeprom(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation)
{
    board->eeprom().program(0, signed_image(settings, generation));
    board->trace().clear();
}

void StartBench::store_in_file(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation)
{
    const Blob image = signed_image(settings, generation);
    std::ofstream(kBackup, std::ios::binary).write(reinterpret_cast<const char*>(image.data()), image.size());
    board->trace().clear();
}

void StartBench::store(const EEPROM_DEVICE_SETTINGS& settings, uint32_t generation)
{
    store_in_eeprom(settings, generation);
    store_in_file(settings, generation);
}

Blob StartBench::eeprom_image()
{
    return blob_of(board->eeprom().contents());
}

Blob StartBench::file_image()
{
    std::ifstream stream(kBackup, std::ios::binary);
    return blob_of({std::istreambuf_iterator<char>(stream), {}});
}

void StartBench::start()
{
    const sim_board::SelfAdvancing self{board->clock()};
    device = make_device();
}

void StartBench::start_and_settle()
{
    start();
    pass(kSettlingUs);
}

void StartBench::end_without_frames_before_the_bus_ends()
{
    end([this] { return !board->trace().lines_with({"spi close"}).empty(); });
}

void StartBench::wait_for_maintenance_server()
{
    const orvan_test::MaintenanceClient client;
    client.send(orvan_test::FrameHeader{"HEID"}.bytes(), HaldeElec::Orvan::PORTUDP);
    EXPECT_FALSE(client.receive().empty());
}

void StartBench::end(const std::function<bool()>& frames_are_due)
{
    std::atomic<bool> done = false;
    std::thread worker([&] {
        orvan_test::end_with_frames([this] { device.reset(); }, HaldeElec::Orvan::PORTUDP, frames_are_due);
        end_module_service();
        done = true;
    });
    while (!done) {
        board->clock().advance(1'000'000);
    }
    worker.join();
    HaldeElec::Orvan::PersistentDataTestPeer::forget_instance();
}

EEPROM_DEVICE_SETTINGS& StartBench::settings()
{
    return *CPersistentData::GetInstance()->getSettings();
}

TestResult StartBench::test_result(eBitType type, const std::string& name)
{
    bitReport_t report = {};
    for (int row = 0; BITManager::getInstance(0)->getTestResult(type, row, report); ++row) {
        if (report.testName == name) {
            return {report.result, report.errorCode};
        }
    }
    return {-1, -1};
}

const ORVAN_CONFIG& StartBench::record(int channel)
{
    return *reinterpret_cast<const ORVAN_CONFIG*>(Scpi_Orvanx::getInstance()->get_channelDB(channel));
}

uint32_t StartBench::selected()
{
    uint32_t channel = 0;
    device->GetSelectChannel(channel);
    return channel;
}

size_t StartBench::count(const std::string& line) const
{
    const std::vector<std::string> lines = board->trace().lines();
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

std::string StartBench::sudo_calls() const
{
    std::ifstream stream(files.halde() / "sudo_calls");
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> StartBench::steps() const
{
    std::vector<std::string> found;
    for (const std::string& line : board->trace().lines()) {
        std::string step = is_step(line) ? step_of(line) : "";
        if (step.ends_with('\n')) {
            step.pop_back();
        }
        if (!step.empty() && (found.empty() || found.back() != step)) {
            found.push_back(step);
        }
    }
    // The modules are polled at once.
    const auto is_question = [](const std::string& step) { return step.ends_with(": *TST?"); };
    const auto first = std::find_if(found.begin(), found.end(), is_question);
    std::sort(first, std::find_if_not(first, found.end(), is_question));
    return found;
}

} // namespace board_test
