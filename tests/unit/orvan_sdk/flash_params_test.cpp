#include <algorithm>
#include <csignal>
#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "flash_params.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/stand_ins.h"

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

constexpr const char* kScript = "sudo /usr/local/bin/he_set_hostname.sh ";

class Handler : public IDeviceConnectionHandler {
public:
    void enableMUX() override {}
    void disableMUX() override {}
};

class FlashParams : public testing::Test {
protected:
    FlashParams()
    {
        OutputCapture out(STDOUT_FILENO);
        peer.emplace(handler, g_portableModelsTable);
        settings = (*peer)->getSettings();
        net = (*peer)->getNetIfConfig();
    }

    template <size_t size>
    static void put(char (&field)[size], const std::string& text)
    {
        std::memset(field, 0, size);
        std::copy_n(text.begin(), std::min(text.size(), size), field);
    }
    /** Settings with a text in every field. */
    void fill()
    {
        put(net->addr, "10.0.0.7");
        put(net->mask, "255.255.0.0");
        put(net->mac, "b8:27:eb:01:02:03");
        put(net->gw, "10.0.0.1");
        put(net->nic, "eth0");
        settings->dhcpEnabled = 1;
        put(settings->hostName, "OVX3651P-230042");
        put(settings->description, "Halde Electronics Ltd.");
        put(settings->modelName, "OVX3651P");
        put(settings->serialNum, "230042");
        put(settings->fwVersion, "1.19.140");
        settings->options = 0x081e; // code 14, MOD, BAT
        put(settings->calibrationDate, "271020");
        put(settings->scpiPort, "5025");
        settings->hardwareVersion = 'D';
        put(settings->fpgaVersion, "7.1");
        put(settings->pldVersion, "A-1");
    }
    std::string set_flash_params()
    {
        OutputCapture out(STDOUT_FILENO);
        (*peer)->setFlashParams(table.data(), table.size());
        return out.text();
    }
    std::string row(size_t line) { return {peer->flash_params()[line], FP_MAX_ENTRY_LEN}; }
    static std::string row_of(char letter, const std::string& text)
    {
        std::string bytes = letter + text;
        bytes.resize(FP_MAX_ENTRY_LEN);
        return bytes;
    }
    std::string option_text(uint16_t options)
    {
        return (*peer)->optToString(table.data(), table.size(), options);
    }

    StandIns stand_ins;
    LogCapture logs;
    Handler handler;
    std::optional<PersistentDataTestPeer> peer;
    EEPROM_DEVICE_SETTINGS* settings = nullptr;
    sNetCfg_t* net = nullptr;
    std::vector<optEntry_t> table{std::begin(optPortable_Tbl), std::end(optPortable_Tbl)};
};

TEST_F(FlashParams, HaveALetterEachInThisOrder)
{
    const char letters[] = {FLASH_IPADDR,
                            FLASH_MASK,
                            FLASH_MAC,
                            FLASH_GATEWAY,
                            FLASH_DHCPSTAT,
                            FLASH_HOSTNAME,
                            FLASH_MANUFNAME,
                            FLASH_MODELNAME,
                            FLASH_SERIALNUMBER,
                            FLASH_CSCIVER,
                            FLASH_OPTION,
                            FLASH_CALIBDATE,
                            FLASH_SCPI_PORT,
                            FLASH_HWVERSION,
                            FLASH_FPGAVER,
                            FLASH_PLDVER,
                            '\0'};
    EXPECT_EQ(std::string(letters, sizeof letters), std::string(flash_ids, sizeof flash_ids));
    EXPECT_STREQ(flash_ids, "ANEGBHDISFOCWYVP");
    EXPECT_EQ(std::string({FLASH_MEMORYSIZE, FLASH_SCPIVER, FLASH_REMINTF, FLASH_ACTIV_IF, FLASH_CHAINPOS}),
              "MQRXZ");
    EXPECT_EQ(FP_MAX_LINE, 17u);
    EXPECT_EQ(FP_MAX_ENTRY_LEN, 32u);
    EXPECT_EQ(FP_MAX_DATA_LEN, 31u);
    EXPECT_EQ(FLASH_SUCCESS, 0);
    EXPECT_EQ(FLASH_FAILED, 1);
}

TEST_F(FlashParams, ComeFromTheRecordAndTheNetworkSetUp)
{
    fill();
    set_flash_params();
    const std::string expected[] = {
        row_of('A', "10.0.0.7"),
        row_of('N', "255.255.0.0"),
        row_of('E', "b8:27:eb:01:02:03"),
        row_of('G', "10.0.0.1"),
        row_of('B', "ON"),
        row_of('H', "OVX3651P-230042"),
        row_of('D', "Halde Electronics Ltd."),
        row_of('I', "OVX3651P"),
        row_of('S', "230042"),
        row_of('F', "1.19.140"),
        row_of('O', "20G,MOD,BAT"),
        row_of('C', "271020"),
        row_of('W', "5025"),
        row_of('Y', "D"),
        row_of('V', "7.1"),
        row_of('P', "A-1"),
        std::string(32, '\0'),
    };
    for (size_t line = 0; line < FP_MAX_LINE; ++line) {
        EXPECT_EQ(row(line), expected[line]) << line;
    }
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readData modelname = OVX3651P"},
                                    {LOG_INFO, "[CPersistentData] readData hostname = OVX3651P-230042"}}));
}

TEST_F(FlashParams, ArePrinted)
{
    fill();
    std::string expected = "EEPROM settings:\n"
                           "[A]  [10.0.0.7]\n [N]  [255.255.0.0]\n [E]  [b8:27:eb:01:02:03]\n "
                           "[G]  [10.0.0.1]\n [B]  [ON]\n [H]  [OVX3651P-230042]\n "
                           "[D]  [Halde Electronics Ltd.]\n [I]  [OVX3651P]\n [S]  [230042]\n "
                           "[F]  [1.19.140]\n [O]  [20G,MOD,BAT]\n [C]  [271020]\n [W]  [5025]\n "
                           "[Y]  [D]\n [V]  [7.1]\n [P]  [A-1]\n [";
    expected += '\0';
    expected += "]  []\n ";
    EXPECT_EQ(set_flash_params(), expected);
}

TEST_F(FlashParams, OfAnEmptyRecordAreLettersOnly)
{
    set_flash_params();
    for (size_t line = 0; line < FP_MAX_LINE; ++line) {
        EXPECT_EQ(row(line), row_of(flash_ids[line], line == 4 ? "OFF" : "")) << line;
    }
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "[CPersistentData] readData modelname = "},
                                                  {LOG_INFO, "[CPersistentData] readData hostname = "}}));
}

TEST_F(FlashParams, AnyDhcpValueButZeroIsOn)
{
    for (const unsigned value : {1u, 2u, 255u}) {
        settings->dhcpEnabled = static_cast<uint8_t>(value);
        set_flash_params();
        EXPECT_EQ(row(4), row_of('B', "ON"));
    }
    settings->dhcpEnabled = 0;
    set_flash_params();
    EXPECT_EQ(row(4), row_of('B', "OFF"));
}

TEST_F(FlashParams, AFullTextFillsItsRow)
{
    std::memset(settings, 'x', sizeof *settings);
    std::memset(net, 'y', sizeof *net);
    settings->options = 0;
    set_flash_params();
    for (const size_t line : {0u, 1u, 2u, 3u}) {
        EXPECT_EQ(row(line), row_of(flash_ids[line], std::string(31, 'y'))) << line;
    }
    for (const size_t line : {5u, 6u, 7u, 8u, 9u, 11u, 12u, 14u, 15u}) {
        EXPECT_EQ(row(line), row_of(flash_ids[line], std::string(31, 'x'))) << line;
    }
    EXPECT_EQ(row(13), row_of('Y', "x"));
    EXPECT_EQ(row(16), std::string(32, '\0'));
}

TEST_F(FlashParams, ATextOf31CharactersIsWholeAndOneMoreIsCut)
{
    put(settings->serialNum, std::string(30, 's') + "t");
    put(net->addr, std::string(30, 'a') + "bc");
    set_flash_params();
    EXPECT_EQ(row(8), row_of('S', std::string(30, 's') + "t"));
    EXPECT_EQ(row(0), row_of('A', std::string(30, 'a') + "b"));
}

TEST_F(FlashParams, OfFullLengthArePrintedUpToTheEndOfTheirRow)
{
    std::memset(peer->flash_params(), '#', sizeof peer->flash_params());
    put(settings->serialNum, std::string(31, 's'));
    put(settings->fwVersion, "1.19.140");
    put(settings->pldVersion, std::string(31, 'p'));
    const std::string printed = set_flash_params();
    EXPECT_NE(printed.find("[S]  [" + std::string(31, 's') + "]\n [F]  [1.19.140]\n "), std::string::npos)
        << printed;
    EXPECT_NE(printed.find("[P]  [" + std::string(31, 'p') + "]\n "), std::string::npos) << printed;
}

TEST_F(FlashParams, LogsEndWithTheirField)
{
    put(settings->modelName, std::string(31, 'm'));
    put(settings->serialNum, "next");
    put(settings->hostName, std::string(31, 'h'));
    put(settings->fixIp, "next");
    set_flash_params();
    EXPECT_EQ(logs.count(LOG_INFO, "[CPersistentData] readData modelname = " + std::string(31, 'm')), 1u);
    EXPECT_EQ(logs.count(LOG_INFO, "[CPersistentData] readData hostname = " + std::string(31, 'h')), 1u);
    EXPECT_EQ(stand_ins.calls(), (std::vector{kScript + std::string(31, 'h')}));
}

TEST_F(FlashParams, LeaveNothingOfWhatStoodThereBefore)
{
    std::memset(peer->flash_params(), '#', sizeof peer->flash_params());
    put(settings->serialNum, "1");
    set_flash_params();
    EXPECT_EQ(row(8), row_of('S', "1"));
    EXPECT_EQ(row(16), std::string(32, '\0'));
}

TEST_F(FlashParams, WithoutATableStayAsTheyAreAndNothingRuns)
{
    std::memset(peer->flash_params(), '#', sizeof peer->flash_params());
    OutputCapture out(STDOUT_FILENO);
    (*peer)->setFlashParams(nullptr, kOptionRows);
    (*peer)->setFlashParams(table.data(), 0);
    EXPECT_EQ(row(3), std::string(32, '#'));
    EXPECT_EQ(out.text(), "");
    EXPECT_TRUE(stand_ins.calls().empty());
    const LogLine line{LOG_ERR, "setFlashParams invalid parameters: no defaults"};
    EXPECT_EQ(logs.lines(), (std::vector{line, line}));
}

TEST_F(FlashParams, SetTheHostNameOfTheSystem)
{
    put(settings->hostName, "bench-3");
    set_flash_params();
    EXPECT_EQ(stand_ins.calls(), (std::vector<std::string>{std::string(kScript) + "bench-3"}));
}

TEST_F(FlashParams, AnOptionTextThatIsTooLongIsCut)
{
    table.assign(std::begin(optBenchtop_Tbl), std::end(optBenchtop_Tbl));
    settings->options = 0xfffe;
    set_flash_params();
    EXPECT_EQ(row(10), row_of('O', "20G,MOD,PLS,FS,LP,EMU,PAT,UFS,F"));
    EXPECT_STREQ(option_text(0xfffe).c_str(), "20G,MOD,PLS,FS,LP,EMU,PAT,UFS,FIL,ULN,EPR,ELP");
}

TEST_F(FlashParams, TheOptionTextEndsBeforeItsLengthDoes)
{
    const std::string text = option_text(0x081e);
    EXPECT_EQ(text, std::string("20G,MOD,BAT") + '\0');
    EXPECT_STREQ(text.c_str(), "20G,MOD,BAT");
}

TEST_F(FlashParams, TheOptionTextOfEveryFrequencyCode)
{
    const std::string expected[16] = {"",   "", "", "3G", "",    "",    "6G",  "",
                                      "8G", "", "", "",   "12G", "14G", "20G", "40G"};
    for (uint16_t code = 0; code < 16; ++code) {
        EXPECT_STREQ(option_text(code).c_str(), expected[code].c_str()) << code;
        EXPECT_EQ(option_text(code).size(), expected[code].empty() ? 0 : expected[code].size() + 1) << code;
    }
    EXPECT_STREQ(option_text(14 | 0x10).c_str(), "20G,MOD");
    EXPECT_STREQ(option_text(9 | 0x10).c_str(), "MOD") << "options of an unknown frequency";
}

TEST_F(FlashParams, TheOptionTextOfEachBitOfEachPlatform)
{
    const struct {
        const optEntry_t* table;
        std::vector<std::string> words; // of bits 4 to 15
    } platforms[] = {
        {optPortable_Tbl, {"MOD", "PLS", "", "LP", "EMU", "PAT", "UFS", "BAT", "", "", "", ""}},
        {optBenchtop_Tbl, {"MOD", "PLS", "FS", "LP", "EMU", "PAT", "UFS", "FIL", "ULN", "", "EPR", "ELP"}},
        {optKsr7000_Tbl, {"MOD", "PLS", "FS", "LP", "BAT", "PAT", "UFS", "", "", "", "", ""}},
    };
    for (const auto& platform : platforms) {
        table.assign(platform.table, platform.table + kOptionRows);
        for (unsigned bit = 4; bit < 16; ++bit) {
            EXPECT_STREQ(option_text(static_cast<uint16_t>(1U << bit)).c_str(),
                         platform.words[bit - 4].c_str())
                << bit;
        }
    }
}

TEST_F(FlashParams, RowsOfATableAreFactoryRows)
{
    const struct {
        const optEntry_t* table;
        unsigned used;     // bits with an option
        unsigned defaults; // of them at the factory
    } platforms[] = {{optPortable_Tbl, 0x0fb0, 0x0810},
                     {optBenchtop_Tbl, 0xdff0, 0x0090},
                     {optKsr7000_Tbl, 0x07f0, 0x0110}};
    for (const auto& platform : platforms) {
        const optEntry_t& frequency = platform.table[0];
        EXPECT_EQ(frequency.bitStart, 0);
        EXPECT_EQ(frequency.bitNum, 4);
        EXPECT_EQ(frequency.modify, 1);
        EXPECT_EQ(frequency.defaults, 8);
        EXPECT_STREQ(frequency.symbol, "");
        for (unsigned i = 1; i < kOptionRows; ++i) {
            const optEntry_t& entry = platform.table[i];
            const unsigned bit = i <= 12 ? i + 3 : 0;
            const bool used = (platform.used & ~0xfU) >> bit & 1U && i <= 12;
            EXPECT_EQ(entry.bitStart, bit) << i;
            EXPECT_EQ(entry.bitNum, used ? 1 : 0) << i;
            EXPECT_EQ(entry.modify, used ? 1 : 0) << i;
            EXPECT_EQ(entry.defaults, i <= 12 ? platform.defaults >> bit & 1U : 0) << i;
            EXPECT_EQ(entry.symbol[0] != '\0', used) << i;
        }
    }
    EXPECT_EQ(sizeof optPortable_Tbl, 128u);
    EXPECT_EQ(sizeof optBenchtop_Tbl, 128u);
    EXPECT_EQ(sizeof optKsr7000_Tbl, 128u);
}

TEST_F(FlashParams, UpdatingATablePutsThePresentValuesIntoItsDefaults)
{
    std::vector<optEntry_t> odd{
        {0, 4, 1, 9, ""},   {4, 0, 1, 9, "A"},   {4, 1, 1, 9, "B"}, {6, 3, 0, 9, ""},  {8, 8, 0, 9, "C"},
        {0, 16, 1, 9, "D"}, {0, 200, 1, 9, "E"}, {15, 1, 1, 9, ""}, {16, 1, 1, 9, ""}, {255, 255, 1, 9, ""}};
    (*peer)->updateOptTable(odd.data(), odd.size(), 0xa5d6);
    const unsigned expected[] = {6, 0, 1, 7, 0xa5, 0xd6, 0xd6, 1, 0, 0};
    for (size_t i = 0; i < odd.size(); ++i) {
        EXPECT_EQ(odd[i].defaults, expected[i]) << i;
    }
    EXPECT_EQ(odd[3].bitNum, 3);
    EXPECT_EQ(odd[3].modify, 0);
    EXPECT_STREQ(odd[4].symbol, "C");
}

TEST_F(FlashParams, TheOptionTextUpdatesTheTable)
{
    option_text(0x0010);
    EXPECT_EQ(table[0].defaults, 0);
    EXPECT_EQ(table[1].defaults, 1);
    EXPECT_EQ(table[8].defaults, 0);
}

TEST_F(FlashParams, WithoutATableTheOptionTextIsEmpty)
{
    EXPECT_EQ((*peer)->optToString(nullptr, kOptionRows, 0xffff), "");
    EXPECT_EQ((*peer)->optToString(table.data(), 0, 0xffff), "");
    (*peer)->updateOptTable(nullptr, kOptionRows, 0xffff);
    (*peer)->updateOptTable(table.data(), 0, 0);
    EXPECT_EQ(table[0].defaults, 8);
}

TEST_F(FlashParams, AFrequencyCodeBeyondTheTableHasNoText)
{
    table[0].bitNum = 8;
    EXPECT_EQ(option_text(0x00e0), std::string("PLS,LP") + '\0');
}

TEST_F(FlashParams, AWordInTheFrequencyRowIsNoOption)
{
    std::strcpy(table[0].symbol, "FRQ");
    EXPECT_STREQ(option_text(0x001e).c_str(), "20G,MOD");
}

TEST_F(FlashParams, AWordWithoutTerminatorEndsWithItsField)
{
    std::memcpy(table[1].symbol, "WXYZ", 4);
    EXPECT_STREQ(option_text(0x0010).c_str(), "WXYZ");
}

TEST_F(FlashParams, CodesOfFrequencies)
{
    const std::pair<int, uint8_t> rows[] = {{3, 3},   {6, 6}, {8, 8}, {12, 12}, {14, 13}, {20, 14},
                                            {40, 15}, {7, 0}, {0, 0}, {-1, 0},  {41, 0}};
    for (const auto& [freq, code] : rows) {
        EXPECT_EQ((*peer)->Freq2Mask(freq), code) << freq;
    }
}

TEST_F(FlashParams, AModelSetsItsFactsAndLeavesTheRestAlone)
{
    std::memset(settings, 0x5a, sizeof *settings);
    EEPROM_DEVICE_SETTINGS expected;
    std::memset(&expected, 0x5a, sizeof expected);
    expected.options = 0x5a5e;
    expected.numDevices = 4;
    expected.maxCwFreq = 20'000'000'000;
    expected.device_type = 1;
    expected.vendor_id = 0x168c;
    expected.product_id = 0x3604;
    (*peer)->setDeviceArch(&g_benchtopModelsTable[5]);
    EXPECT_EQ(std::memcmp(settings, &expected, sizeof expected), 0);
}

TEST_F(FlashParams, TheFrequencyCodeFollowsEveryModel)
{
    const auto follows = [this](const sDevArch_t* models) {
        for (const sDevArch_t* model = models; model->model != nullptr; ++model) {
            settings->options = 0xfff3;
            (*peer)->setDeviceArch(model);
            const uint64_t ghz = model->maxFrequency / 1'000'000'000;
            EXPECT_EQ(settings->options, 0xfff0 | (ghz == 8    ? 8
                                                   : ghz == 14 ? 13
                                                   : ghz == 20 ? 14
                                                               : 15))
                << model->model;
            EXPECT_EQ(settings->numDevices, model->channelsNo);
        }
    };
    follows(g_portableModelsTable);
    follows(g_benchtopModelsTable);
    follows(g_ksr7000ModelsTable);
}

TEST_F(FlashParams, AModelOfAnUnknownFrequencyHasCode0AndItsNumbersAreCutTo16Bits)
{
    const sDevArch_t odd{"odd", 7'999'999'999, 2, 255, 0x12345678, 0x9abcdef0, 0};
    settings->options = 0xffff;
    (*peer)->setDeviceArch(&odd);
    EXPECT_EQ(settings->options, 0xfff0);
    EXPECT_EQ(settings->maxCwFreq, 7'999'999'999);
    EXPECT_EQ(settings->product_id, 0x5678);
    EXPECT_EQ(settings->vendor_id, 0xdef0);
    EXPECT_EQ(settings->device_type, 255);
}

TEST_F(FlashParams, NoModelAndNoVersionChangeNothing)
{
    std::memset(settings, 0x5a, sizeof *settings);
    (*peer)->setDeviceArch(nullptr);
    (*peer)->setSwVersion(nullptr);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(settings);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof *settings, [](uint8_t byte) { return byte == 0x5a; }));
}

TEST_F(FlashParams, TheSoftwareVersionIsStoredAndZeroFilled)
{
    put(settings->fwVersion, "1.19.1400000");
    put(settings->scpiRevision, "next");
    (*peer)->setSwVersion("1.19.140");
    EXPECT_EQ(std::string(settings->fwVersion, 31), "1.19.140" + std::string(23, '\0'));
    (*peer)->setSwVersion(std::string(40, '9').c_str());
    EXPECT_EQ(std::string(settings->fwVersion, 31), std::string(31, '9'));
    EXPECT_STREQ(settings->scpiRevision, "next");
}

TEST_F(FlashParams, ANullHostNameChangesNothingAndIsLogged)
{
    (*peer)->setHostname(nullptr);
    EXPECT_TRUE(stand_ins.calls().empty());
    EXPECT_EQ(logs.lines(), (std::vector<LogLine>{{LOG_INFO, "invalid host name. aborting change"}}));
}

TEST_F(FlashParams, AFailedHostNameScriptIsLogged)
{
    stand_ins.exit_with(3);
    (*peer)->setHostname("bench-3");
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "setHostname: failed setting host name to bench-3"}}));
    logs.clear();
    stand_ins.exit_with(0);
    (*peer)->setHostname("bench-3");
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_EQ(stand_ins.calls().size(), 2u);
}

TEST_F(FlashParams, AHostNameScriptWhoseEndIsNotToBeLearnedIsLogged)
{
    // With its children reaped by the kernel, system() has no status to return.
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    (*peer)->setHostname("bench-3");
    std::signal(SIGCHLD, before);
    EXPECT_EQ(logs.lines(),
              (std::vector<LogLine>{{LOG_INFO, "setHostname: failed setting host name to bench-3"}}));
}

TEST_F(FlashParams, TheHostNameReachesTheShellUnquoted)
{
    (*peer)->setHostname("two  words; exit 0");
    (*peer)->setHostname("");
    EXPECT_EQ(stand_ins.calls(), (std::vector<std::string>{std::string(kScript) + "two words",
                                                           "sudo /usr/local/bin/he_set_hostname.sh"}));
}

TEST_F(FlashParams, TheHostNameCommandIsCutAt255Characters)
{
    (*peer)->setHostname(std::string(300, 'h').c_str());
    const std::string command = std::string(kScript) + std::string(300, 'h');
    EXPECT_EQ(stand_ins.calls(), (std::vector{command.substr(0, 255)}));
}

TEST_F(FlashParams, ThePortableReadsItsOptionsFromTheLowBitUp)
{
    uOptions_portable_t options{};
    const auto alone = [&](auto set) {
        options.all = 0;
        set();
        return options.all;
    };
    EXPECT_EQ(alone([&] { options.frequencyOption = 0xf; }), 0x000f);
    EXPECT_EQ(alone([&] { options.modulationPackage = 1; }), 0x0010);
    EXPECT_EQ(alone([&] { options.pulseGenerator = 1; }), 0x0020);
    EXPECT_EQ(alone([&] { options.reserved = 1; }), 0x0040);
    EXPECT_EQ(alone([&] { options.lowPower = 1; }), 0x0080);
    EXPECT_EQ(alone([&] { options.emulatorPack = 1; }), 0x0100);
    EXPECT_EQ(alone([&] { options.pattern = 1; }), 0x0200);
    EXPECT_EQ(alone([&] { options.ultraSwitch = 1; }), 0x0400);
    EXPECT_EQ(alone([&] { options.bat = 1; }), 0x0800);
    EXPECT_EQ(alone([&] { options.reserved2 = 0xf; }), 0xf000);
}

TEST_F(FlashParams, TheThirdPlatformReadsItsOptionsFromTheLowBitUp)
{
    uOptions_ksr7000_t options{};
    const auto alone = [&](auto set) {
        options.all = 0;
        set();
        return options.all;
    };
    EXPECT_EQ(alone([&] { options.frequencyOption = 0xf; }), 0x000f);
    EXPECT_EQ(alone([&] { options.modulationPackage = 1; }), 0x0010);
    EXPECT_EQ(alone([&] { options.pulseGenerator = 1; }), 0x0020);
    EXPECT_EQ(alone([&] { options.fastSwitch = 1; }), 0x0040);
    EXPECT_EQ(alone([&] { options.lowPower = 1; }), 0x0080);
    EXPECT_EQ(alone([&] { options.bat = 1; }), 0x0100);
    EXPECT_EQ(alone([&] { options.pattern = 1; }), 0x0200);
    EXPECT_EQ(alone([&] { options.ultraSwitch = 1; }), 0x0400);
    EXPECT_EQ(alone([&] { options.reserved = 0xf; }), 0x7800);
}

} // namespace
