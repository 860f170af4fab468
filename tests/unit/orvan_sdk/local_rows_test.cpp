// Every row that the controller answers: its reply, byte for byte, and its calls of modules and device.
#include <mutex>
#include <set>
#include <utility>

#include <unistd.h>

#include <gmock/gmock.h>

#include "handler_bench.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "support/header_forms.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

// What a row reads first; invalid texts and their results are below.
enum class Kind { kNothing, kBoolean, kWord, kCount, kText, kRegister };

struct LocalRow {
    const char* group;
    const char* pattern;
    Kind kind;
    const char* parameters; // valid ones; empty: it takes none
    const char* result;     // without the success word; empty: there is none
    const char* asked = ""; // what modules receive, without the line end; empty: nothing
    const char* answer = "+OK\r\n";
    int modules = 1; // that receive it; one: the selected channel's
};

// clang-format off
const LocalRow kRows[] = {
    {"Instrument", ":INSTrument[:SELect]",            Kind::kWord,     "CH1",             ""},
    {"Instrument", ":INSTrument[:SELect]?",           Kind::kNothing,  "",                "1"},
    {"Trigger",    ":TRIGger:SOURce",                 Kind::kWord,     "tim",             "",   ":TRIGger:SOURce TIMer"},
    {"Trigger",    ":TRIGger:COUPle",                 Kind::kWord,     "0",               ""},
    {"Trigger",    ":TRIGger:COUPle?",                Kind::kNothing,  "",                "NONE"},
    {"Output",     ":OUTPut[:STATe]",                 Kind::kBoolean,  "1",               "",   ":OUTP ON"},
    {"Output",     ":OUTPut[:STATe]?",                Kind::kNothing,  "",                "1",  ":OUTP?",              "1;+OK\r\n"},
    {"Modulation", "[:SOURce]:AM:SOURce",             Kind::kWord,     "INT",             "",   ":AM:SOURce INTernal"},
    {"Modulation", "[:SOURce]:FM:SOURce",             Kind::kWord,     "external",        "",   ":FM:SOURce EXTernal"},
    {"Setup",      ":SYSTem:SETup:STORe",             Kind::kCount,    "1",               ""},
    {"Setup",      ":SYSTem:SETup:CLEar",             Kind::kCount,    "5",               ""},
    {"Setup",      ":SYSTem:SETup:RECall",            Kind::kCount,    "0",               ""},
    {"Setup",      ":SYSTem:POWerup:SETup",           Kind::kCount,    "0",               ""},
    {"Setup",      ":SYSTem:POWerup:SETup?",          Kind::kNothing,  "",                "0"},
    {"Identity",   ":SYSTem:INFormation:MODel?",      Kind::kNothing,  "",                "OVX3654B"},
    {"Identity",   ":SYSTem:INFormation:SERial?",     Kind::kNothing,  "",                "1234"},
    {"Identity",   ":SYSTem:INFormation:HARDware?",   Kind::kNothing,  "",                "D"},
    {"Identity",   ":SYSTem:INFormation:FPGA?",       Kind::kNothing,  "",                "1.0.7"},
    {"Identity",   ":SYSTem:INFormation:FIRMware?",   Kind::kNothing,  "",                "1.19.145"},
    {"Identity",   "*IDN?",                           Kind::kNothing,  "",                "Halde Electronics Ltd.,OVX3651P,230000,01.0.001"},
    {"Identity",   "*OPT?",                           Kind::kNothing,  "",                "20G,MOD,LP"},
    {"Identity",   ":SYSTem:VERSion?",                Kind::kNothing,  "",                "1999.0"},
    {"Lan",        ":SYSTem:COMMunicate:LAN:DHCP",      Kind::kBoolean, "OFF",            ""},
    {"Lan",        ":SYSTem:COMMunicate:LAN:DHCP?",     Kind::kNothing, "",               "ON"},
    {"Lan",        ":SYSTem:COMMunicate:LAN:IPADdress", Kind::kText,    "\"300.1.1.1\"",  ""},
    {"Lan",        ":SYSTem:COMMunicate:LAN:IPADdress?", Kind::kNothing, "",              "10.0.0.2"},
    {"Lan",        ":SYSTem:COMMunicate:LAN:MASK",      Kind::kText,    "255.255.0.0",    ""},
    {"Lan",        ":SYSTem:COMMunicate:LAN:MASK?",     Kind::kNothing, "",               "255.255.255.0"},
    {"Lan",        ":SYSTem:COMMunicate:LAN:GATeway",   Kind::kText,    "'10.0.0.9'",     ""},
    {"Lan",        ":SYSTem:COMMunicate:LAN:GATeway?",  Kind::kNothing, "",               "10.0.0.1"},
    {"Lan",        ":SYSTem:COMMunicate:LAN:HOSTname",  Kind::kText,    "\"bench 7\"",    ""},
    {"Lan",        ":SYSTem:COMMunicate:LAN:HOSTname?", Kind::kNothing, "",               "bench-4"},
    {"Lan",        ":SYSTem:COMMunicate:LAN:DNS",       Kind::kWord,    "1,\"9.9.9.9\"",  ""},
    {"Lan",        ":SYSTem:COMMunicate:LAN:DNS?",      Kind::kWord,    "2",              "1.1.1.1"},
    {"Lan",        ":SYSTem:COMMunicate:LAN:PORT",      Kind::kCount,   "5026",           ""},
    {"Lan",        ":SYSTem:COMMunicate:LAN:PORT?",     Kind::kNothing, "",               "5025"},
    {"Supply",     ":SYSTem:BATtery?",                Kind::kNothing,  "",                "87"},
    {"Supply",     ":SYSTem:FAN:MODE",                Kind::kWord,     "FIXED",           ""},
    {"Supply",     ":SYSTem:FAN:MODE?",               Kind::kNothing,  "",                "AUTO"},
    {"Tests",      "*RST",                            Kind::kNothing,  "",                "",   "*RST", "+OK\r\n", 4},
    {"Tests",      "*TST",                            Kind::kNothing,  "",                "",   "*TST", "+OK\r\n", 4},
    {"Tests",      "*TST?",                           Kind::kNothing,  "",                "0 Failures"},
    {"Tests",      ":SYSTem:MODule:TEST?",            Kind::kCount,    "1",               "2 Failures", "*TST?",       "2 Failures;+OK\r\n"},
    {"Internal",   "[:INTernal]:INFormation:DEVice:ARCHitecture?", Kind::kNothing, "",    "OVX3654B,20000,4,usb,3604,168c,benchtop"},
    {"Internal",   "[:INTernal]:INFormation:DEVice:OPTions?",      Kind::kNothing, "",    "#210;1;2;3;4;5"},
    {"Internal",   "[:INTernal]:MODulation:ENABle:MASK", Kind::kCount, "#H1F",            ""},
    {"Internal",   "[:INTernal]:OUTPut:RESTore:MODE", Kind::kWord,     "MANUAL",          ""},
    {"Internal",   "[:INTernal]:OUTPut:RESTore:MODE?", Kind::kNothing, "",                "MANUAL"},
    {"Internal",   "[:INTernal]:INFormation:SLAVe?",  Kind::kNothing,  "",                "1.2.3", ":SYSTem:INFormation:FIRMware?", "1.2.3;+OK\r\n"},
    {"Status",     ":STATus:QUEStionable[:EVENt]?",   Kind::kNothing,  "",                "0"},
    {"Status",     ":STATus:QUEStionable:ENABle",     Kind::kRegister, "0",               ""},
    {"Status",     ":STATus:QUEStionable:ENABle?",    Kind::kNothing,  "",                "0"},
    {"Status",     ":STATus:OPERation[:EVENt]?",      Kind::kNothing,  "",                "0"},
    {"Status",     ":STATus:OPERation:CONDition?",    Kind::kNothing,  "",                "0"},
    {"Status",     ":STATus:OPERation:ENABle",        Kind::kRegister, "0",               ""},
    {"Status",     ":STATus:OPERation:ENABle?",       Kind::kNothing,  "",                "0"},
    {"Status",     ":STATus:PRESet",                  Kind::kNothing,  "",                ""},
};

struct WrongText {
    Kind kind;
    const char* text;
    const char* error;
};

const WrongText kWrongTexts[] = {
    {Kind::kBoolean,  "MAYBE",      "-224, \"Illegal parameter value\""},
    {Kind::kBoolean,  "\"ON\"",     "-104, \"Data type error\""},
    {Kind::kBoolean,  "1V",         "-104, \"Data type error\""},
    {Kind::kBoolean,  "#11x",       "-104, \"Data type error\""},
    {Kind::kWord,     "NO_SUCH",    "-224, \"Illegal parameter value\""},
    {Kind::kWord,     "99",         "-224, \"Illegal parameter value\""},
    {Kind::kWord,     "\"INT\"",    "-104, \"Data type error\""},
    {Kind::kWord,     "(@1)",       "-104, \"Data type error\""},
    {Kind::kCount,    "one",        "-148, \"Character data not allowed\""},
    {Kind::kCount,    "\"1\"",      "-158, \"String data not allowed\""},
    {Kind::kCount,    "1V",         "-138, \"Suffix not allowed\""},
    {Kind::kCount,    "-1",         "-222, \"Data out of range\""},
    {Kind::kCount,    "4294967296", "-222, \"Data out of range\""},
    {Kind::kCount,    "#11x",       "-168, \"Block data not allowed\""},
    {Kind::kText,     "#11x",       "-168, \"Block data not allowed\""},
    {Kind::kText,     "(@1)",       "-178, \"Expression data not allowed\""},
    {Kind::kText,     "a\"b",       "-151, \"Invalid string data\""},
    {Kind::kRegister, "one",        "-148, \"Character data not allowed\""},
    {Kind::kRegister, "\"1\"",      "-158, \"String data not allowed\""},
    {Kind::kRegister, "1V",         "-138, \"Suffix not allowed\""},
    {Kind::kRegister, "-1",         "-222, \"Data out of range\""},
    {Kind::kRegister, "65536",      "-222, \"Data out of range\""},
};
// clang-format on

// They need an upgrade folder, and are tested in update_rows_test.cpp.
const std::set<std::string> kUpdateRows = {":SYSTem:UPDate:SOFTware", ":SYSTem:UPDate:FPGA",
                                           "[:INTernal]:GUI:UPDate:SOFTware"};

constexpr size_t kLocalRows = 60;

const std::string kUndefined = "-ERR -113, \"Undefined header\";+OK\r\n";
const std::string kNotAllowed = "-ERR -108, \"Parameter not allowed\"";

std::string with(const std::string& header, const std::string& parameters)
{
    return parameters.empty() ? header : header + " " + parameters;
}

std::string reply_of(const std::string& fields)
{
    return fields.empty() ? "+OK\r\n" : fields + ";+OK\r\n";
}

bool is_block(const LocalRow& row)
{
    return row.result[0] == '#';
}

class LocalRows : public HandlerBench, public testing::WithParamInterface<const char*> {
protected:
    LocalRows()
    {
        BITManager::getInstance(0);
        device.texts = {
            {"GetModel", "OVX3654B"},     {"GetSerial", "1234"},           {"GetHardware", "D"},
            {"GetFpga", "1.0.7"},         {"GetFirmware", "1.19.145"},     {"GetOption", "20G,MOD,LP"},
            {"GetIPAddress", "10.0.0.2"}, {"GetNetMask", "255.255.255.0"}, {"GetGateway", "10.0.0.1"},
            {"GetHostname", "bench-4"},   {"GetDNS1", "8.8.8.8"},          {"GetDNS2", "1.1.1.1"}};
        device.numbers = {{"GetDHCP", 1}, {"GetScpiPort", 5025}, {"GetBatteryCharge", 87}, {"GetFanMode", 0}};
        device.option_table = ";1;2;3;4;5";
        device.arch = &kArch;
        module.on_request([this](const std::string& request) {
            const std::lock_guard lock(m_mutex);
            m_requests.push_back(request);
        });
    }

    static std::vector<LocalRow> rows()
    {
        std::vector<LocalRow> of_group;
        for (const LocalRow& row : kRows) {
            if (std::string_view(row.group) == GetParam()) {
                of_group.push_back(row);
            }
        }
        return of_group;
    }

    /** What modules received, up to the row's own; what a reset sends after it is not tested here. */
    std::vector<std::string> take_asked(const LocalRow& row)
    {
        const std::lock_guard lock(m_mutex);
        std::vector<std::string> all = std::exchange(m_requests, {});
        if (std::string_view(row.pattern) == "*RST" && all.size() > 4) {
            all.resize(4);
        }
        return all;
    }

    static std::vector<std::string> asked_of(const LocalRow& row)
    {
        return std::string_view(row.asked).empty()
                   ? std::vector<std::string>{}
                   : std::vector<std::string>(static_cast<size_t>(row.modules),
                                              std::string(row.asked) + "\r\n");
    }

    void expect_nothing_done(const LocalRow& row, const std::string& line)
    {
        EXPECT_THAT(take_asked(row), IsEmpty()) << line;
        EXPECT_THAT(device.take_calls(), IsEmpty()) << line;
    }

private:
    static constexpr HaldeElec::Orvan::sDevArch_t kArch = {
        "OVX3654B", 20000000000, 4, 1, 0x3604, 0x168c, HaldeElec::Orvan::BenchtopDevice};
    std::mutex m_mutex;
    std::vector<std::string> m_requests;
};

TEST(LocalRowsOfTheTable, AreExactlyThese)
{
    std::set<std::string> expected = kUpdateRows;
    for (const LocalRow& row : kRows) {
        expected.insert(row.pattern);
    }
    EXPECT_EQ(expected.size(), kLocalRows);
    std::set<std::string> local;
    for (const scpi_command_t* row = scpi_commands; row->pattern != nullptr; ++row) {
        if (row->callback != OrvanX_cmdBypass) {
            local.insert(row->pattern);
        }
    }
    EXPECT_EQ(local, expected);
}

TEST_P(LocalRows, AnswerInEveryForm)
{
    for (const LocalRow& row : rows()) {
        module.always(ModuleAnswer::reply(row.answer));
        for (const std::string& form : header_forms(row.pattern)) {
            const std::string line = with(form, row.parameters);
            EXPECT_EQ(ask(line), reply_of(row.result)) << line;
            EXPECT_EQ(take_asked(row), asked_of(row)) << line;
        }
    }
}

TEST_P(LocalRows, RefuseAnExtraParameterAfterExecuting)
{
    for (const LocalRow& row : rows()) {
        module.always(ModuleAnswer::reply(row.answer));
        const std::string parameters = row.parameters;
        const std::string line =
            with(short_header(row.pattern), parameters.empty() ? "1" : parameters + ",1");
        const std::string result = row.result;
        // Nothing separates what follows a block: it ends by its length.
        const std::string separator = result.empty() || is_block(row) ? "" : ";";
        EXPECT_EQ(ask(line), reply_of(result + separator + kNotAllowed)) << line;
        EXPECT_EQ(take_asked(row), asked_of(row)) << line;
    }
}

TEST_P(LocalRows, RefuseAMissingParameterAndDoNothing)
{
    for (const LocalRow& row : rows()) {
        if (row.kind == Kind::kNothing) {
            continue;
        }
        std::string parameters = row.parameters;
        for (size_t last; !parameters.empty();) {
            last = parameters.find_last_of(',');
            parameters.resize(last == std::string::npos ? 0 : last);
            const std::string line = with(short_header(row.pattern), parameters);
            EXPECT_EQ(ask(line), kMissingParameter) << line;
            expect_nothing_done(row, line);
        }
    }
}

TEST_P(LocalRows, RefuseAParameterOfAnotherKindAndDoNothing)
{
    for (const LocalRow& row : rows()) {
        for (const WrongText& wrong : kWrongTexts) {
            if (wrong.kind != row.kind) {
                continue;
            }
            const std::string line = with(short_header(row.pattern), wrong.text);
            EXPECT_EQ(ask(line), reply_of(std::string("-ERR ") + wrong.error)) << line;
            expect_nothing_done(row, line);
        }
    }
}

TEST_P(LocalRows, FormsWithoutARowAreUndefined)
{
    std::set<std::string> patterns;
    for (const scpi_command_t* row = scpi_commands; row->pattern != nullptr; ++row) {
        patterns.insert(row->pattern);
    }
    for (const LocalRow& row : rows()) {
        std::string other = row.pattern;
        other.ends_with('?') ? other.pop_back() : other.push_back('?');
        if (patterns.contains(other)) {
            continue;
        }
        for (const std::string& form : header_forms(other)) {
            EXPECT_EQ(ask(form), kUndefined);
            expect_nothing_done(row, form);
        }
    }
}

TEST_P(LocalRows, AnswerForAMissingModule)
{
    const int closed = listen_on_loopback();
    for (uint32_t& port : orvanx->m_OrvanXport) {
        port = static_cast<uint32_t>(local_port(closed));
    }
    ::close(closed);
    for (const LocalRow& row : rows()) {
        const std::string line = with(short_header(row.pattern), row.parameters);
        const bool fails = !std::string_view(row.asked).empty() && std::string_view(row.pattern) != "*TST";
        EXPECT_EQ(ask(line), fails ? kCommunicationError : reply_of(row.result)) << line;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryRow, LocalRows,
                         testing::Values("Instrument", "Trigger", "Output", "Modulation", "Setup", "Identity",
                                         "Lan", "Supply", "Tests", "Internal", "Status"),
                         [](const auto& group) { return std::string(group.param); });

} // namespace
