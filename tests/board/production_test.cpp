#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "board/current_board.h"
#include "board/expect_trace.h"
#include "board/faulty_spi_device.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/production.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/private_home.h"

using namespace HaldeElec::Orvan;
using orvan_test::LogLine;
using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

namespace {

const fs::path kFolder = "/home/orvan/halde/config";
const fs::path kFile = kFolder / "flash.ini";
constexpr const char* kNotStored =
    "the settings are not in both stores; the messages before this one say why";

/** Constructs settings without a bus. */
class IdleHandler : public IDeviceConnectionHandler {
public:
    void enableMUX() override {}
    void disableMUX() override {}
};

/** A controller board as it comes from assembly. */
struct NewController {
    explicit NewController(const sim_board::BoardWiring& wiring) : board(wiring)
    {
        BITManager::getInstance(0); // with no periodic thread
        if (home.refusal().empty()) {
            fs::create_directories(kFolder);
        }
        logs.clear();
    }
    ~NewController() { PersistentDataTestPeer::forget_instance(); }

    ProductionResult produce(const std::string& model, const std::string& serial)
    {
        const orvan_test::OutputCapture out{STDOUT_FILENO}; // the driver prints each page written
        const sim_board::SelfAdvancing self{board->clock()};
        return ProduceInstrument(model, serial);
    }
    LogLine last_line() const { return logs.lines().back(); }

    Bytes in_eeprom()
    {
        Bytes bytes = board->eeprom().contents();
        bytes.resize(TOTAL_BLOB_SIZE);
        return bytes;
    }
    static Bytes in_file()
    {
        std::ifstream stream(kFile, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    EEPROM_DEVICE_SETTINGS settings()
    {
        EEPROM_DEVICE_SETTINGS record;
        std::memcpy(&record, in_eeprom().data(), sizeof record);
        return record;
    }
    /** The trace before the first message to the EEPROM. */
    std::vector<std::string> until_the_eeprom()
    {
        std::vector<std::string> lines = board->trace().take();
        lines.erase(std::find_if(lines.begin(), lines.end(),
                                 [](const std::string& line) { return line.starts_with("spi eeprom"); }),
                    lines.end());
        return lines;
    }

    orvan_test::PrivateHome home;
    sim_board::InstalledBoard board;
    orvan_test::LogCapture logs;
};

struct Platform {
    const sim_board::BoardWiring& wiring;
    const char* model;
    const char* company;
    uint8_t channels;
    uint16_t product;
    uint16_t options; /**< frequency code and the platform's factory options */
    const char* accesses;
};

void PrintTo(const Platform& platform, std::ostream* out)
{
    *out << platform.model;
}

#define SPI_PORT                                                                                             \
    "spi open /dev/spidev0.1\nspi mode = 0\nspi mode -> 0\nspi bits = 8\nspi bits -> 8\n"                    \
    "spi speed = 3000000\nspi speed -> 3000000\n"
#define THROUGH_THE_MULTIPLEXER                                                                              \
    "pins setup\npin 7 output\npin 21 output\npin 6 output\npin 7 = 0\npin 21 = 0\npin 6 = 0\n" SPI_PORT     \
    "pin 11 output\npin 7 output\npin 21 output\npin 6 output\n"                                             \
    "pin 7 = 1\npin 21 = 0\npin 6 = 1\npin 11 = 0\ndelay 10\n"

const Platform kPlatforms[] = {
    {sim_board::kPortableWiring, "OVX2751P", "Halde Electronics Ltd.", 1, 0x2751, 0x081D,
     "pins setup\n" SPI_PORT "pin 11 output\npin 27 output\npin 16 output\n"
     "pin 11 = 1\npin 27 = 1\npin 16 = 0\n"},
    {sim_board::kBenchtopWiring, "OVX3654B", "Halde Electronics Ltd.", 4, 0x3604, 0x009E,
     THROUGH_THE_MULTIPLEXER},
    {sim_board::kKsr7000Wiring, "KSR-7053", "Marrick Signal Corp.", 1, 0x7053, 0x011F,
     THROUGH_THE_MULTIPLEXER},
};

class Production : public testing::TestWithParam<Platform> {
protected:
    void SetUp() override
    {
        if (!controller.home.refusal().empty()) {
            GTEST_SKIP() << controller.home.refusal();
        }
    }

    NewController controller{GetParam().wiring};
};

TEST_P(Production, StoresModelAndSerialNumberOfANewControllerInBothStores)
{
    const Platform& platform = GetParam();
    EXPECT_EQ(controller.produce(platform.model, "240001"), ProductionResult::kMade);
    EXPECT_EQ(controller.last_line(),
              (LogLine{LOG_NOTICE, "made an " + std::string(platform.model) + " with serial number 240001"}));
    EXPECT_TRUE(sim_board::expect_trace(controller.until_the_eeprom(), platform.accesses));

    const EEPROM_DEVICE_SETTINGS settings = controller.settings();
    EXPECT_STREQ(settings.modelName, platform.model);
    EXPECT_STREQ(settings.serialNum, "240001");
    EXPECT_STREQ(settings.description, platform.company);
    EXPECT_EQ(settings.hardwareVersion, 'D');
    EXPECT_EQ(settings.numDevices, platform.channels);
    EXPECT_EQ(settings.product_id, platform.product);
    EXPECT_EQ(settings.options, platform.options);
    EXPECT_EQ(controller.in_eeprom(), controller.in_file());
}

TEST_P(Production, KeepsAllOfTheStoresButTheSerialNumber)
{
    ASSERT_EQ(controller.produce(GetParam().model, "240001"), ProductionResult::kMade);
    EEPROM_DEVICE_SETTINGS expected = controller.settings();
    PersistentDataTestPeer::forget_instance();
    std::strcpy(expected.hostName, "bench-4");
    {
        IdleHandler unused;
        const Blob image = PersistentDataTestPeer(unused, g_benchtopModelsTable)
                               .build(&expected, CURRENT_STRUCT_VERSION, 57);
        controller.board->eeprom().program(0, {image.begin(), image.end()});
    }
    ASSERT_EQ(controller.produce(GetParam().model, "240002"), ProductionResult::kMade);
    std::strcpy(expected.serialNum, "240002");
    const EEPROM_DEVICE_SETTINGS settings = controller.settings();
    EXPECT_EQ(std::memcmp(&settings, &expected, sizeof expected), 0);
    EXPECT_EQ(controller.in_eeprom(), controller.in_file());
}

TEST_P(Production, AnEepromThatStoresNothingIsLoggedAsAFailure)
{
    const auto fault = sim_board::insert_fault(controller.board->spi(), "eeprom");
    fault->absent(true);
    EXPECT_EQ(controller.produce(GetParam().model, "240001"), ProductionResult::kFailed);
    EXPECT_EQ(controller.last_line(), (LogLine{LOG_ERR, kNotStored}));
}

TEST_P(Production, ABackupThatCannotBeWrittenIsLoggedAsAFailure)
{
    fs::create_directory(kFile);
    EXPECT_EQ(controller.produce(GetParam().model, "240001"), ProductionResult::kFailed);
    EXPECT_EQ(controller.last_line(), (LogLine{LOG_ERR, kNotStored}));
}

TEST_P(Production, WithoutTheSpiPortNothingIsWritten)
{
    controller.board->spi().set_node_present("/dev/spidev0.1", false);
    EXPECT_EQ(controller.produce(GetParam().model, "240001"), ProductionResult::kFailed);
    EXPECT_EQ(controller.last_line(),
              (LogLine{LOG_ERR, "the SPI port of the settings EEPROM does not open"}));
    EXPECT_EQ(controller.in_file(), Bytes());
}

INSTANTIATE_TEST_SUITE_P(Platforms, Production, testing::ValuesIn(kPlatforms));

TEST(ProductionOfNoModel, IsRefusedWithAllModelsNamedAndNothingTouched)
{
    NewController controller{sim_board::kBenchtopWiring};
    EXPECT_EQ(controller.produce("OVX3653B", "240001"), ProductionResult::kUnknownModel);
    ASSERT_EQ(controller.logs.lines().size(), 1U);
    const LogLine line = controller.last_line();
    EXPECT_EQ(line.priority, LOG_ERR);
    EXPECT_TRUE(line.text.starts_with("no such model: OVX3653B; known are: OVX2751P OVX3651P ")) << line.text;
    EXPECT_TRUE(line.text.ends_with(" OVX6134R KSR-7061 KSR-7036 KSR-7053 KSR-8036 KSR-8053")) << line.text;
    EXPECT_TRUE(controller.board->trace().take().empty());
}

} // namespace
