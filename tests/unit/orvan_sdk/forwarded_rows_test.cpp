// Every row that a module answers: what reaches the module, and its reply, byte for byte.
#include <mutex>
#include <set>
#include <utility>

#include <unistd.h>

#include <gmock/gmock.h>

#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "support/header_forms.h"

using namespace orvan_test;

namespace {

struct ForwardedHeader {
    const char* group;
    const char* pattern;
    const char* parameters; // of the set form; null: there is none
    const char* answer;     // to the query; null: there is none
};

// clang-format off
const ForwardedHeader kHeaders[] = {
    {"Initiate",   ":INITiate:CONTinuous[:STATe]",           "OFF",                 "1"},
    {"Initiate",   ":INITiate:GATE[:STATe]",                 "ON",                  "0"},
    {"Trigger",    ":TRIGger:SOURce",                        nullptr,               "EXT"},
    {"Trigger",    ":TRIGger:EDGe",                          "NEG",                 "POS"},
    {"Trigger",    ":TRIGger:ADVance",                       "STEP",                "ONC"},
    {"Trigger",    ":TRIGger:COUNt",                         "5",                   "1"},
    {"Trigger",    ":TRIGger:DELay",                         "1ms",                 "0.001"},
    {"Trigger",    ":TRIGger:TIMer:TIME",                    "5 ms",                "0.005"},
    {"Source",     "[:SOURce]:FREQuency",                    "2.5GHz",              "2500000000"},
    {"Source",     "[:SOURce]:POWer",                        "-20dBm",              "-20"},
    {"Source",     "[:SOURce]:PHASe",                        "90",                  "90"},
    {"Reference",  "[:SOURce]:ROSCillator:SOURce",           nullptr,               "INT"},
    {"Reference",  "[:SOURce]:ROSCillator:OUTP:FREQuency",   "100MHz",              "100000000"},
    {"List",       "[:SOURce]:LIST[:STATe]",                 "ON",                  "1"},
    {"List",       "[:SOURce]:LIST:STARt",                   "3",                   "3"},
    {"List",       "[:SOURce]:LIST:DATA",                    "1GHz,-10,1ms,2GHz,0,2ms", nullptr},
    {"List",       "[:SOURce]:LIST:DEFine",                  "\"A\"",               "\"A\""},
    {"List",       "[:SOURce]:LIST:DIRection",               "DOWN",                "UP"},
    {"List",       "[:SOURce]:LIST:REVerse",                 "",                    nullptr},
    {"List",       "[:SOURce]:LIST:DELete[:NAME]",           "\"A\"",               nullptr},
    {"List",       "[:SOURce]:LIST:DELete:ALL",              "",                    nullptr},
    {"Am",         "[:SOURce]:AM[:STATe]",                   "ON",                  "1"},
    {"Am",         "[:SOURce]:AM:SOURce",                    nullptr,               "INT"},
    {"Am",         "[:SOURce]:AM:INTernal:FREQuency",        "2kHz",                "2000"},
    {"Am",         "[:SOURce]:AM:DEPTh",                     "30",                  "30"},
    {"Fm",         "[:SOURce]:FM[:STATe]",                   "ON",                  "1"},
    {"Fm",         "[:SOURce]:FM:SOURce",                    nullptr,               "EXT"},
    {"Fm",         "[:SOURce]:FM:INTernal:FREQuency",        "2kHz",                "2000"},
    {"Fm",         "[:SOURce]:FM:DEViation",                 "50kHz",               "50000"},
    {"Pm",         "[:SOURce]:PM[:STATe]",                   "ON",                  "1"},
    {"Pm",         "[:SOURce]:PM:INTernal:FREQuency",        "2kHz",                "2000"},
    {"Pm",         "[:SOURce]:PM:DEViation",                 "2",                   "2"},
    {"Pulse",      "[:SOURce]:PULSe[:STATe]",                "ON",                  "1"},
    {"Pulse",      "[:SOURce]:PULSe:SOURce",                 "EXT",                 "INT"},
    {"Pulse",      "[:SOURce]:PULSe:FREQuency",              "10kHz",               "10000"},
    {"Pulse",      "[:SOURce]:PULSe:WIDTh",                  "5us",                 "5.0E-06"},
    {"Pattern",    "[:SOURce]:PATTern[:STATe]",              "ON",                  "1"},
    {"Pattern",    "[:SOURce]:PATTern:DATA",                 "1ms,2ms",             nullptr},
    {"Pattern",    "[:SOURce]:PATTern:DEFine",               "\"B\"",               "\"B\""},
    {"Pattern",    "[:SOURce]:PATTern:DELete[:NAME]",        "\"B\"",               nullptr},
    {"Pattern",    "[:SOURce]:PATTern:DELete:ALL",           "",                    nullptr},
    {"FrSweep",    "[:SOURce]:FRSWeep[:STATe]",              "ON",                  "1"},
    {"FrSweep",    "[:SOURce]:FRSWeep:STARt",                "2GHz",                "2000000000"},
    {"FrSweep",    "[:SOURce]:FRSWeep:STEPs",                "11",                  "11"},
    {"FrSweep",    "[:SOURce]:FRSWeep:STOP",                 "3GHz",                "3000000000"},
    {"FrSweep",    "[:SOURce]:FRSWeep:TIME",                 "2ms",                 "0.002"},
    {"FrSweep",    "[:SOURce]:FRSWeep:DIRection",            "UPDOWN",              "NORM"},
    {"PrSweep",    "[:SOURce]:PRSWeep[:STATe]",              "ON",                  "1"},
    {"PrSweep",    "[:SOURce]:PRSWeep:STARt",                "-30",                 "-30"},
    {"PrSweep",    "[:SOURce]:PRSWeep:STEPs",                "11",                  "11"},
    {"PrSweep",    "[:SOURce]:PRSWeep:STOP",                 "5",                   "5"},
    {"PrSweep",    "[:SOURce]:PRSWeep:TIME",                 "2ms",                 "0.002"},
    {"PrSweep",    "[:SOURce]:PRSWeep:DIRection",            "UPDOWN",              "NORM"},
    {"Correction", "[:SOURce]:CORRection:FLATness[:STATe]",  "ON",                  "1"},
    {"Correction", "[:SOURce]:CORRection:FLATness:PAIR",     "1GHz,0.5",            "1000000000,0.5"},
    {"Correction", "[:SOURce]:CORRection:FLATness:POINts",   "1",                   "1"},
    {"Correction", "[:SOURce]:CORRection:FLATness:DATA",     "1GHz,0.5,2GHz,1",     nullptr},
    {"Correction", "[:SOURce]:CORRection:FLATness:PRESet",   "",                    nullptr},
    {"Correction", "[:SOURce]:CORRection:FLATness:MODE",     "STEP",                nullptr},
    {"File",       ":SYSTem:FILE:CATalog:LIST",              nullptr,               "\"A\",\"B\""},
    {"File",       ":SYSTem:FILE:CATalog:PATTern",           nullptr,               "\"\""},
    {"File",       ":SYSTem:FILE:CATalog:UCORrection",       nullptr,               "\"\""},
    {"File",       ":SYSTem:FILE:STORe:LIST",                "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:STORe:PATTern",             "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:STORe:UCORrection",         "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:LOAD:LIST",                 "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:LOAD:PATTern",              "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:LOAD:UCORrection",          "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:SIZE",                      nullptr,               "24"},
    {"File",       ":SYSTem:FILE:DELete:FILE",               "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:DELete:LIST",               "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:DELete:PATTern",            "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:DELete:UCORrection",        "\"F\"",               nullptr},
    {"File",       ":SYSTem:FILE:DELete:ALL",                "",                    nullptr},
    {"System",     ":SYSTem:CLOCk",                          "2026,11,20,10,49,43", nullptr},
    {"System",     ":SYSTem:SETup:TARGet",                   "2",                   "2"},
    {"System",     ":SYSTem:EMULator:MODel",                 "\"X1\"",              "\"X1\""},
    {"System",     ":SYSTem:TEMPerature",                    nullptr,               "42.5"},
    {"System",     ":SYSTem:INFormation:CALibration",        nullptr,               "271020"},
    {"System",     ":SYSTem:INFormation:SCPIrevision",       nullptr,               "1999.0"},
    {"System",     ":SYSTem:LOG[:STATe]",                    "ON",                  nullptr},
    {"System",     ":SYSTem:ERRor[:NEXT]",                   nullptr,               "0,\"No error\""},
    {"System",     ":SYSTem:ERRor:COUNt",                    nullptr,               "0"},
    {"System",     "[:INTernal]:INFormation:RFRevision",     nullptr,               "C1"},
    {"System",     "[:INTernal]:INFormation:DIGital",        nullptr,               "D2"},
    {"Common",     "*CLS",                                   "",                    nullptr},
    {"Common",     "*ESE",                                   "1",                   "1"},
    {"Common",     "*ESR",                                   nullptr,               "0"},
    {"Common",     "*OPC",                                   nullptr,               "1"},
    {"Common",     "*SRE",                                   "2",                   "2"},
    {"Common",     "*STB",                                   nullptr,               "0"},
    {"Common",     "*WAI",                                   "",                    nullptr},
    {"Common",     "*TRG",                                   "",                    nullptr},
};
// clang-format on

constexpr size_t kForwardedRows = 142;

// What a client may put after a header: it is still sent to the module, which reports the error.
const char* const kWrongParameters[] = {"",     "1,2,3,4,5,6,7,8,9", "\"text\"", "NO_SUCH_WORD", "#H1F",
                                        "(@1)", "1furlong"};

// Their set form has a row, which is not forwarded.
const std::set<std::string> kSetByTheController = {":TRIGger:SOURce", "[:SOURce]:AM:SOURce",
                                                   "[:SOURce]:FM:SOURce"};

const std::string kUndefined = "-ERR -113, \"Undefined header\";+OK\r\n";
const std::string kRefusal = "-ERR -222, \"Data out of range\";+OK\r\n";
const std::string kUnreachable = "-ERR Unable to connect;+OK\r\n";

std::string with(const std::string& header, const std::string& parameters)
{
    return parameters.empty() ? header : header + " " + parameters;
}

class ForwardedRows : public FrontEndBench, public testing::WithParamInterface<const char*> {
protected:
    ForwardedRows()
    {
        module.on_request([this](const std::string& request) {
            const std::lock_guard lock(m_mutex);
            m_requests.push_back(request);
        });
    }

    static std::vector<ForwardedHeader> headers()
    {
        std::vector<ForwardedHeader> of_group;
        for (const ForwardedHeader& header : kHeaders) {
            if (std::string_view(header.group) == GetParam()) {
                of_group.push_back(header);
            }
        }
        return of_group;
    }

    /** One line, one request of these words, one reply. */
    void expect_passed_on(const std::string& line, const std::string& answer, const std::string& reply)
    {
        module.always(ModuleAnswer::reply(answer));
        EXPECT_EQ(ask(line), reply) << line;
        EXPECT_EQ(take_requests(), std::vector<std::string>{line + ";\r\n"}) << line;
    }

    std::vector<std::string> take_requests()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_requests, {});
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_requests;
};

TEST(ForwardedRowsOfTheTable, AreExactlyThese)
{
    std::set<std::string> expected;
    for (const ForwardedHeader& header : kHeaders) {
        if (header.parameters != nullptr) {
            expected.insert(header.pattern);
        }
        if (header.answer != nullptr) {
            expected.insert(std::string(header.pattern) + "?");
        }
    }
    EXPECT_EQ(expected.size(), kForwardedRows);
    std::set<std::string> forwarded;
    for (const scpi_command_t* row = scpi_commands; row->pattern != nullptr; ++row) {
        if (row->callback == OrvanX_cmdBypass) {
            forwarded.insert(row->pattern);
        }
    }
    EXPECT_EQ(forwarded, expected);
}

TEST_P(ForwardedRows, ReachTheModuleInEveryForm)
{
    for (const ForwardedHeader& header : headers()) {
        if (header.parameters != nullptr) {
            for (const std::string& form : header_forms(header.pattern)) {
                expect_passed_on(with(form, header.parameters), "+OK\r\n", "+OK\r\n");
            }
        }
        if (header.answer != nullptr) {
            for (const std::string& form : header_forms(header.pattern)) {
                expect_passed_on(form + "?", std::string(header.answer) + ";+OK\r\n",
                                 std::string(header.answer) + ";+OK\r\n");
            }
        }
    }
}

TEST_P(ForwardedRows, LeaveTheirParametersToTheModule)
{
    for (const ForwardedHeader& header : headers()) {
        for (const std::string parameters : kWrongParameters) {
            if (header.parameters != nullptr) {
                expect_passed_on(with(short_header(header.pattern), parameters), kRefusal, kRefusal);
            }
            if (header.answer != nullptr) {
                expect_passed_on(with(short_header(header.pattern) + "?", parameters), kRefusal, kRefusal);
            }
        }
    }
}

TEST_P(ForwardedRows, FormsWithoutARowReachNoModule)
{
    for (const ForwardedHeader& header : headers()) {
        for (const std::string& form : header_forms(header.pattern)) {
            if (header.parameters == nullptr && !kSetByTheController.contains(header.pattern)) {
                EXPECT_EQ(ask(with(form, "1")), kUndefined) << form;
            }
            if (header.answer == nullptr) {
                EXPECT_EQ(ask(form + "?"), kUndefined) << form;
            }
        }
    }
    EXPECT_EQ(module.connections(), 0u);
}

TEST_P(ForwardedRows, AnswerForAMissingModule)
{
    const int closed = listen_on_loopback();
    orvanx->m_OrvanXport[0] = static_cast<uint32_t>(local_port(closed));
    ::close(closed);
    for (const ForwardedHeader& header : headers()) {
        if (header.parameters != nullptr) {
            EXPECT_EQ(ask(with(short_header(header.pattern), header.parameters)), kUnreachable)
                << header.pattern;
        }
        if (header.answer != nullptr) {
            EXPECT_EQ(ask(short_header(header.pattern) + "?"), kUnreachable) << header.pattern;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryRow, ForwardedRows,
                         testing::Values("Initiate", "Trigger", "Source", "Reference", "List", "Am", "Fm",
                                         "Pm", "Pulse", "Pattern", "FrSweep", "PrSweep", "Correction", "File",
                                         "System", "Common"),
                         [](const auto& group) { return std::string(group.param); });

} // namespace
