// The identification rows.
#include <cstring>
#include <string>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include "flash_params_bench.h"

using namespace HaldeElec::Orvan;
using namespace orvan_test;

namespace {

TEST_F(FlashParams, HaveOneLetterEachInThisOrder)
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

TEST_F(FlashParams, OfAnEmptyRecordAreOnlyLetters)
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

TEST_F(FlashParams, LogEndsAtTheEndOfEachField)
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

TEST_F(FlashParams, OverwriteThePreviousContentsCompletely)
{
    std::memset(peer->flash_params(), '#', sizeof peer->flash_params());
    put(settings->serialNum, "1");
    set_flash_params();
    EXPECT_EQ(row(8), row_of('S', "1"));
    EXPECT_EQ(row(16), std::string(32, '\0'));
}

TEST_F(FlashParams, WithoutATableStayUnchangedAndNothingRuns)
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

} // namespace
