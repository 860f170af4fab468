// The commands that a controller forwards unchanged, and those that its own commands send: a module must
// accept all of them.

#include <set>
#include <string>

#include "instrument_fixture.h"
#include "module/command_table.h"
#include "scpi/parser.h"

namespace {

struct ForwardedHeader {
    const char* pattern;
    const char* parameters;       // of the set form; null if there is none
    const char* query_parameters; // of the query; null if there is none
};

// clang-format off
constexpr ForwardedHeader kForwarded[] = {
    {":INITiate:CONTinuous[:STATe]",                    "OFF",                         ""},
    {":INITiate:GATE[:STATe]",                          "ON",                          ""},
    {":TRIGger:SOURce",                                 nullptr,                       ""},
    {":TRIGger:EDGe",                                   "NEG",                         ""},
    {":TRIGger:ADVance",                                "STEP",                        ""},
    {":TRIGger:COUNt",                                  "5",                           ""},
    {":TRIGger:DELay",                                  "1ms",                         ""},
    {":TRIGger:TIMer:TIME",                             "5 ms",                        ""},
    {"[:SOURce]:FREQuency",                             "2.5GHz",                      ""},
    {"[:SOURce]:POWer",                                 "-20dBm",                      ""},
    {"[:SOURce]:PHASe",                                 "90",                          ""},
    {"[:SOURce]:ROSCillator:SOURce",                    nullptr,                       ""},
    {"[:SOURce]:ROSCillator:OUTP:FREQuency",            "100MHz",                      ""},
    {"[:SOURce]:LIST[:STATe]",                          "ON",                          ""},
    {"[:SOURce]:LIST:STARt",                            "3",                           ""},
    {"[:SOURce]:LIST:DATA",                             "1GHz,-10,1ms",                nullptr},
    {"[:SOURce]:LIST:DEFine",                           "\"A\"",                       ""},
    {"[:SOURce]:LIST:DIRection",                        "DOWN",                        ""},
    {"[:SOURce]:LIST:REVerse",                          "",                            nullptr},
    {"[:SOURce]:LIST:DELete[:NAME]",                    "\"A\"",                       nullptr},
    {"[:SOURce]:LIST:DELete:ALL",                       "",                            nullptr},
    {"[:SOURce]:AM[:STATe]",                            "ON",                          ""},
    {"[:SOURce]:AM:SOURce",                             nullptr,                       ""},
    {"[:SOURce]:AM:INTernal:FREQuency",                 "2kHz",                        ""},
    {"[:SOURce]:AM:DEPTh",                              "30",                          ""},
    {"[:SOURce]:FM[:STATe]",                            "ON",                          ""},
    {"[:SOURce]:FM:SOURce",                             nullptr,                       ""},
    {"[:SOURce]:FM:INTernal:FREQuency",                 "2kHz",                        ""},
    {"[:SOURce]:FM:DEViation",                          "50kHz",                       ""},
    {"[:SOURce]:PM[:STATe]",                            "ON",                          ""},
    {"[:SOURce]:PM:INTernal:FREQuency",                 "2kHz",                        ""},
    {"[:SOURce]:PM:DEViation",                          "2",                           ""},
    {"[:SOURce]:PULSe[:STATe]",                         "ON",                          ""},
    {"[:SOURce]:PULSe:SOURce",                          "EXT",                         ""},
    {"[:SOURce]:PULSe:FREQuency",                       "10kHz",                       ""},
    {"[:SOURce]:PULSe:WIDTh",                           "5us",                         ""},
    {"[:SOURce]:PATTern[:STATe]",                       "ON",                          ""},
    {"[:SOURce]:PATTern:DATA",                          "1ms,2ms",                     nullptr},
    {"[:SOURce]:PATTern:DEFine",                        "\"B\"",                       ""},
    {"[:SOURce]:PATTern:DELete[:NAME]",                 "\"B\"",                       nullptr},
    {"[:SOURce]:PATTern:DELete:ALL",                    "",                            nullptr},
    {"[:SOURce]:FRSWeep[:STATe]",                       "ON",                          ""},
    {"[:SOURce]:FRSWeep:STARt",                         "2GHz",                        ""},
    {"[:SOURce]:FRSWeep:STEPs",                         "11",                          ""},
    {"[:SOURce]:FRSWeep:STOP",                          "3GHz",                        ""},
    {"[:SOURce]:FRSWeep:TIME",                          "2ms",                         ""},
    {"[:SOURce]:FRSWeep:DIRection",                     "UPDOWN",                      ""},
    {"[:SOURce]:PRSWeep[:STATe]",                       "ON",                          ""},
    {"[:SOURce]:PRSWeep:STARt",                         "-30",                         ""},
    {"[:SOURce]:PRSWeep:STEPs",                         "11",                          ""},
    {"[:SOURce]:PRSWeep:STOP",                          "5",                           ""},
    {"[:SOURce]:PRSWeep:TIME",                          "2ms",                         ""},
    {"[:SOURce]:PRSWeep:DIRection",                     "UPDOWN",                      ""},
    {"[:SOURce]:CORRection:FLATness[:STATe]",           "ON",                          ""},
    {"[:SOURce]:CORRection:FLATness:PAIR",              "1GHz,0.5",                    ""},
    {"[:SOURce]:CORRection:FLATness:POINts",            "1",                           ""},
    {"[:SOURce]:CORRection:FLATness:DATA",              "1GHz,0.5,2GHz,1",             nullptr},
    {"[:SOURce]:CORRection:FLATness:PRESet",            "",                            nullptr},
    {"[:SOURce]:CORRection:FLATness:MODE",              "STEP",                        nullptr},
    {":SYSTem:CLOCk",                                   "2026,11,20,10,49,43",         nullptr},
    {":SYSTem:SETup:TARGet",                            "2",                           ""},
    {":SYSTem:FILE:CATalog:LIST",                       nullptr,                       ""},
    {":SYSTem:FILE:CATalog:PATTern",                    nullptr,                       ""},
    {":SYSTem:FILE:CATalog:UCORrection",                nullptr,                       ""},
    {":SYSTem:FILE:STORe:LIST",                         "\"F\"",                       nullptr},
    {":SYSTem:FILE:STORe:PATTern",                      "\"F\"",                       nullptr},
    {":SYSTem:FILE:STORe:UCORrection",                  "\"F\"",                       nullptr},
    {":SYSTem:FILE:LOAD:LIST",                          "\"F\"",                       nullptr},
    {":SYSTem:FILE:LOAD:PATTern",                       "\"F\"",                       nullptr},
    {":SYSTem:FILE:LOAD:UCORrection",                   "\"F\"",                       nullptr},
    {":SYSTem:FILE:SIZE",                               nullptr,                       "\"F\""},
    {":SYSTem:FILE:DELete:FILE",                        "\"F\"",                       nullptr},
    {":SYSTem:FILE:DELete:LIST",                        "\"F\"",                       nullptr},
    {":SYSTem:FILE:DELete:PATTern",                     "\"F\"",                       nullptr},
    {":SYSTem:FILE:DELete:UCORrection",                 "\"F\"",                       nullptr},
    {":SYSTem:FILE:DELete:ALL",                         "",                            nullptr},
    {":SYSTem:EMULator:MODel",                          "\"X1\"",                      ""},
    {":SYSTem:TEMPerature",                             nullptr,                       ""},
    {":SYSTem:INFormation:CALibration",                 nullptr,                       ""},
    {":SYSTem:INFormation:SCPIrevision",                nullptr,                       ""},
    {"*CLS",                                            "",                            nullptr},
    {"*ESE",                                            "1",                           ""},
    {"*ESR",                                            nullptr,                       ""},
    {"*OPC",                                            nullptr,                       ""},
    {"*SRE",                                            "2",                           ""},
    {"*STB",                                            nullptr,                       ""},
    {"*WAI",                                            "",                            nullptr},
    {"*TRG",                                            "",                            nullptr},
    {":SYSTem:LOG[:STATe]",                             "ON",                          nullptr},
    {":SYSTem:ERRor[:NEXT]",                            nullptr,                       ""},
    {":SYSTem:ERRor:COUNt",                             nullptr,                       ""},
    {"[:INTernal]:INFormation:RFRevision",              nullptr,                       ""},
    {"[:INTernal]:INFormation:DIGital",                 nullptr,                       ""},
};
// clang-format on

constexpr int kForwardedRows = 142;

std::string with_parameters(std::string header, std::string_view parameters)
{
    return parameters.empty() ? header : header.append(" ").append(parameters);
}

class ForwardedHeaders : public InstrumentTest {
protected:
    /** A state in which every forwarded header is valid. */
    void prepare()
    {
        ask(":TRIG:SOUR BUS;:LIST:DEL:ALL;:PATT:DEL:ALL;:CORR:FLAT:DATA 1GHz,0.5,2GHz,1");
        ask(":LIST:DEF \"A\";:LIST:DATA 1GHz,-10,1ms;:PATT:DEF \"B\";:PATT:DATA 1ms,2ms");
        ask(":SYST:FILE:STOR:LIST \"F\";:SYST:FILE:STOR:PATT \"F\";:SYST:FILE:STOR:UCOR \"F\"");
        ask("*CLS");
    }
};

} // namespace

TEST_F(ForwardedHeaders, AreAllInTheTable)
{
    int rows = 0;
    for (const ForwardedHeader& header : kForwarded) {
        rows += header.parameters != nullptr;
        rows += header.query_parameters != nullptr;
    }
    EXPECT_EQ(rows, kForwardedRows);
}

TEST_F(ForwardedHeaders, EverySetFormIsTakenInBothSpellings)
{
    for (const ForwardedHeader& header : kForwarded) {
        if (header.parameters != nullptr) {
            for (const std::string& text : {short_header(header.pattern), long_header(header.pattern)}) {
                prepare();
                EXPECT_EQ(ask(with_parameters(text, header.parameters)), "+OK") << text;
                EXPECT_EQ(value(":SYST:ERR:COUN?"), "0") << text;
            }
        }
    }
}

TEST_F(ForwardedHeaders, EveryQueryReturnsOneFieldInBothSpellings)
{
    for (const ForwardedHeader& header : kForwarded) {
        if (header.query_parameters != nullptr) {
            for (const std::string& text : {short_header(header.pattern), long_header(header.pattern)}) {
                prepare();
                const std::string reply = value(with_parameters(text + "?", header.query_parameters));
                EXPECT_FALSE(reply.empty()) << text;
                EXPECT_EQ(reply.find(';'), std::string::npos) << text << " gave " << reply;
            }
        }
    }
}

TEST_F(ForwardedHeaders, AHeaderWithOneFormRefusesTheOther)
{
    // Requests of the controller itself have a set form here, although a client's is never forwarded.
    const std::set<std::string> sent_by_handlers = {":TRIGger:SOURce", "[:SOURce]:AM:SOURce",
                                                    "[:SOURce]:FM:SOURce", "*OPC"};
    for (const ForwardedHeader& header : kForwarded) {
        if (header.parameters == nullptr && !sent_by_handlers.contains(header.pattern)) {
            EXPECT_NE(ask(short_header(header.pattern) + " 1").find("-ERR -113"), std::string::npos)
                << header.pattern;
        }
        if (header.query_parameters == nullptr) {
            EXPECT_NE(ask(short_header(header.pattern) + "?").find("-ERR -113"), std::string::npos)
                << header.pattern;
        }
    }
}

TEST_F(ForwardedHeaders, EveryHeaderRefusesAnExtraParameter)
{
    for (const ForwardedHeader& header : kForwarded) {
        prepare();
        if (header.parameters != nullptr &&
            std::string_view(header.pattern).find(":DATA") == std::string::npos) {
            const std::string parameters = header.parameters;
            const std::string more = parameters.empty() ? "1" : parameters + ",1";
            EXPECT_NE(ask(with_parameters(short_header(header.pattern), more)).find("-ERR -108"),
                      std::string::npos)
                << header.pattern;
        }
    }
}

TEST_F(ForwardedHeaders, EverySetFormRefusesMissingParameters)
{
    for (const ForwardedHeader& header : kForwarded) {
        if (header.parameters != nullptr && *header.parameters != '\0') {
            EXPECT_EQ(ask(short_header(header.pattern)), "-ERR -109, \"Missing parameter\";+OK")
                << header.pattern;
        }
    }
}

TEST_F(ForwardedHeaders, TheControllersOwnRequestsAreAnswered)
{
    EXPECT_EQ(ask(":OUTP ON"), "+OK");
    EXPECT_EQ(ask(":OUTP?"), "1;+OK");
    EXPECT_EQ(ask(":OUTP OFF"), "+OK");
    EXPECT_EQ(ask(":OUTP?"), "0;+OK");
    EXPECT_EQ(ask(":TRIGger:SOURce TIMer"), "+OK");
    EXPECT_EQ(ask(":TRIG:SOUR?"), "TIM;+OK");
    EXPECT_EQ(ask(":AM:SOURce EXTernal"), "+OK");
    EXPECT_EQ(ask(":AM:SOUR?"), "EXT;+OK");
    EXPECT_EQ(ask(":FM:SOURce EXTernal"), "+OK");
    EXPECT_EQ(ask(":FM:SOUR?"), "EXT;+OK");
    EXPECT_EQ(ask("*RST"), "+OK");
    EXPECT_EQ(ask("*TST"), "+OK");
    EXPECT_EQ(ask("*TST?"), "0;+OK");
    EXPECT_EQ(ask(":SYST:INF:CAL?"), "271020;+OK");
    EXPECT_EQ(ask(":SYST:INF:FPGA?"), "1.0.7;+OK");
    EXPECT_EQ(ask(":SYST:INF:SCPI?"), "1999.0;+OK");
    EXPECT_EQ(ask(":ROSC:OUTP:FREQ?"), "10000000;+OK");
    EXPECT_EQ(ask(":SYSTem:INFormation:FIRMware?"), "1.2.3;+OK");
}

TEST_F(ForwardedHeaders, ASetupSentByTheControllerIsAccepted)
{
    // As a controller formats its record: 12 digits, ON and OFF, texts without quotes.
    for (const char* command : {":INITiate:CONTinuous ON",
                                ":TRIGger:SOURce EXTernal",
                                ":TRIGger:EDGe POSitive",
                                ":TRIGger:ADVance ONCe",
                                ":TRIGger:COUNt 1",
                                ":TRIGger:DELay 0",
                                ":TRIGger:TIMer:TIME 0.001",
                                ":OUTPut OFF",
                                ":FREQuency 1000000000",
                                ":POWer 5",
                                ":PHASe 0",
                                ":ROSCillator:OUTP:FREQuency 10MHz",
                                ":LIST OFF",
                                ":LIST:DEFine 1",
                                ":PATTern OFF",
                                ":PATTern:DEFine 1",
                                ":AM:SOURce INTernal",
                                ":PULSe:WIDTh 5e-08",
                                ":FRSWeep:STOP 2e+10",
                                ":FRSWeep:DIRection NORMAL",
                                ":PRSWeep:STARt -10",
                                ":PRSWeep:DIRection UPDOWN",
                                ":PRSWeep:TIME 0.0001"}) {
        EXPECT_EQ(ask(command), "+OK") << command;
    }
}

TEST_F(ForwardedHeaders, TheIdentityIsReported)
{
    EXPECT_EQ(value("*IDN?"), "Halde Electronics Ltd.,OVX3654B,230000,1.2.3");
    EXPECT_EQ(value(":SYST:INF:MOD?"), "OVX3654B");
    EXPECT_EQ(value(":SYST:INF:SER?"), "230000");
    EXPECT_EQ(value(":SYST:INF:HARD?"), "D");
    EXPECT_EQ(value(":INF:RFR?"), "C1");
    EXPECT_EQ(value(":INT:INF:DIG?"), "D2");
    EXPECT_EQ(value(":SYST:VERS?"), "1999.0");
}
