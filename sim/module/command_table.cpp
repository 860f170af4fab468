#include "command_table.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "data_tables.h"
#include "firmware.h"
#include "handlers.h"
#include "scpi/scpi.h"
#include "settings_table.h"

namespace sim_module {

namespace {

constexpr int32_t kList = static_cast<int32_t>(TableKind::kList);
constexpr int32_t kPattern = static_cast<int32_t>(TableKind::kPattern);
constexpr int32_t kUserCorrection = static_cast<int32_t>(TableKind::kUserCorrection);
constexpr int32_t kSoftware = static_cast<int32_t>(ImageKind::kSoftware);
constexpr int32_t kFpga = static_cast<int32_t>(ImageKind::kFpga);

// clang-format off
constexpr scpi_command_t kCommands[] = {
    {"[:SOURce]:LIST:DATA",                    set_table_data,          kList},
    {"[:SOURce]:LIST:DEFine",                  define_table,            kList},
    {"[:SOURce]:LIST:DEFine?",                 query_defined_table,     kList},
    {"[:SOURce]:LIST:REVerse",                 reverse_list,            kList},
    {"[:SOURce]:LIST:DELete[:NAME]",           delete_table,            kList},
    {"[:SOURce]:LIST:DELete:ALL",              delete_all_tables,       kList},

    {"[:SOURce]:PATTern:DATA",                 set_table_data,          kPattern},
    {"[:SOURce]:PATTern:DEFine",               define_table,            kPattern},
    {"[:SOURce]:PATTern:DEFine?",              query_defined_table,     kPattern},
    {"[:SOURce]:PATTern:DELete[:NAME]",        delete_table,            kPattern},
    {"[:SOURce]:PATTern:DELete:ALL",           delete_all_tables,       kPattern},

    {"[:SOURce]:CORRection:FLATness:PAIR",     set_flatness_pair,       0},
    {"[:SOURce]:CORRection:FLATness:PAIR?",    query_flatness_pair,     0},
    {"[:SOURce]:CORRection:FLATness:POINts",   set_flatness_points,     0},
    {"[:SOURce]:CORRection:FLATness:POINts?",  query_flatness_points,   0},
    {"[:SOURce]:CORRection:FLATness:DATA",     set_flatness_data,       0},
    {"[:SOURce]:CORRection:FLATness:PRESet",   preset_flatness,         0},

    {":SYSTem:UPDate:SOFTware",                take_image,              kSoftware},
    {":SYSTem:UPDate:FPGA",                    take_image,              kFpga},
    {":SYSTem:RESTart",                        restart,                 0},

    {":SYSTem:CLOCk",                          set_clock,               0},

    {":SYSTem:FILE:CATalog:LIST?",             catalog_files,           kList},
    {":SYSTem:FILE:CATalog:PATTern?",          catalog_files,           kPattern},
    {":SYSTem:FILE:CATalog:UCORrection?",      catalog_files,           kUserCorrection},
    {":SYSTem:FILE:STORe:LIST",                store_file,              kList},
    {":SYSTem:FILE:STORe:PATTern",             store_file,              kPattern},
    {":SYSTem:FILE:STORe:UCORrection",         store_file,              kUserCorrection},
    {":SYSTem:FILE:LOAD:LIST",                 load_file,               kList},
    {":SYSTem:FILE:LOAD:PATTern",              load_file,               kPattern},
    {":SYSTem:FILE:LOAD:UCORrection",          load_file,               kUserCorrection},
    {":SYSTem:FILE:SIZE?",                     query_file_size,         0},
    {":SYSTem:FILE:DELete:FILE",               delete_file_of_any_kind, 0},
    {":SYSTem:FILE:DELete:LIST",               delete_file,             kList},
    {":SYSTem:FILE:DELete:PATTern",            delete_file,             kPattern},
    {":SYSTem:FILE:DELete:UCORrection",        delete_file,             kUserCorrection},
    {":SYSTem:FILE:DELete:ALL",                delete_all_files,        0},

    {":SYSTem:TEMPerature?",                   query_temperature,       0},
    {":SYSTem:INFormation:CALibration?",       query_identity<&Identity::calibration_date>, 0},
    {":SYSTem:INFormation:MODel?",             query_identity<&Identity::model>, 0},
    {":SYSTem:INFormation:SERial?",            query_identity<&Identity::serial>, 0},
    {":SYSTem:INFormation:HARDware?",          query_identity<&Identity::hardware>, 0},
    {":SYSTem:INFormation:FPGA?",              query_identity<&Identity::fpga>, 0},
    {":SYSTem:INFormation:FIRMware?",          query_identity<&Identity::firmware>, 0},
    {":SYSTem:INFormation:SCPIrevision?",      SCPI_SystemVersionQ,     0},
    {"[:INTernal]:INFormation:RFRevision?",    query_identity<&Identity::rf_revision>, 0},
    {"[:INTernal]:INFormation:DIGital?",       query_identity<&Identity::digital_revision>, 0},

    {"*CLS",                                   SCPI_CoreCls,            0},
    {"*ESE",                                   SCPI_CoreEse,            0},
    {"*ESE?",                                  SCPI_CoreEseQ,           0},
    {"*ESR?",                                  SCPI_CoreEsrQ,           0},
    {"*IDN?",                                  SCPI_CoreIdnQ,           0},
    {"*OPC",                                   SCPI_CoreOpc,            0},
    {"*OPC?",                                  SCPI_CoreOpcQ,           0},
    {"*SRE",                                   SCPI_CoreSre,            0},
    {"*SRE?",                                  SCPI_CoreSreQ,           0},
    {"*STB?",                                  SCPI_CoreStbQ,           0},
    {"*WAI",                                   SCPI_CoreWai,            0},
    {"*TRG",                                   trigger,                 0},
    {"*RST",                                   SCPI_CoreRst,            0},
    {"*TST?",                                  SCPI_CoreTstQ,           0},
    {"*TST",                                   self_test,               0},

    {":SYSTem:ERRor[:NEXT]?",                  SCPI_SystemErrorNextQ,   0},
    {":SYSTem:ERRor:COUNt?",                   SCPI_SystemErrorCountQ,  0},
    {":SYSTem:VERSion?",                       SCPI_SystemVersionQ,     0},
};
// clang-format on

struct Table {
    std::deque<std::string> queries; // patterns that are not literally in a table
    std::vector<scpi_command_t> rows;
};

Table build()
{
    Table table;
    int32_t tag = 0;
    for (const Setting& setting : settings_table()) {
        if (setting.rows != SettingRows::kQueryOnly) {
            table.rows.push_back({setting.pattern, set_setting, tag});
        }
        if (setting.rows != SettingRows::kSetOnly) {
            table.queries.push_back(std::string(setting.pattern) + "?");
            table.rows.push_back({table.queries.back().c_str(), query_setting, tag});
        }
        ++tag;
    }
    table.rows.insert(table.rows.end(), std::begin(kCommands), std::end(kCommands));
    table.rows.push_back({nullptr, nullptr, 0});
    return table;
}

} // namespace

const scpi_command_t* command_table()
{
    static const Table table = build();
    return table.rows.data();
}

} // namespace sim_module
