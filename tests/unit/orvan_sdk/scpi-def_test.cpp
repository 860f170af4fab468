#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dataorvan.h"
#include "front_end_bench.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include <scpi/scpi.h>

using namespace orvan_test;

namespace {

struct ExpectedRow {
    std::string pattern;
    std::string handler; // "bypass" for the forwarded rows
    int tag;
};

// clang-format off
const ExpectedRow kExpected[] = {
    {":INSTrument[:SELect]",                         "OrvanX_setChannel",              ODT_NO_TAG},
    {":INSTrument[:SELect]?",                        "OrvanX_getChannel",              ODT_NO_TAG},
    {":INITiate:CONTinuous[:STATe]",                 "bypass",                         ODT_INIT_RUN},
    {":INITiate:CONTinuous[:STATe]?",                "bypass",                         ODT_INIT_RUN},
    {":INITiate:GATE[:STATe]",                       "bypass",                         ODT_NO_TAG},
    {":INITiate:GATE[:STATe]?",                      "bypass",                         ODT_NO_TAG},
    {":TRIGger:SOURce",                              "OrvanX_setTriggerSource",        ODT_TRG_SRC},
    {":TRIGger:SOURce?",                             "bypass",                         ODT_TRG_SRC},
    {":TRIGger:COUPle",                              "OrvanX_setTriggerCoupling",      ODT_NO_TAG},
    {":TRIGger:COUPle?",                             "OrvanX_getTriggerCoupling",      ODT_NO_TAG},
    {":TRIGger:EDGe",                                "bypass",                         ODT_TRG_EDGE},
    {":TRIGger:EDGe?",                               "bypass",                         ODT_TRG_EDGE},
    {":TRIGger:ADVance",                             "bypass",                         ODT_TRG_ADV},
    {":TRIGger:ADVance?",                            "bypass",                         ODT_TRG_ADV},
    {":TRIGger:COUNt",                               "bypass",                         ODT_TRG_COUNT},
    {":TRIGger:COUNt?",                              "bypass",                         ODT_TRG_COUNT},
    {":TRIGger:DELay",                               "bypass",                         ODT_TRG_DELAY},
    {":TRIGger:DELay?",                              "bypass",                         ODT_TRG_DELAY},
    {":TRIGger:TIMer:TIME",                          "bypass",                         ODT_TRG_TIMER_TIME},
    {":TRIGger:TIMer:TIME?",                         "bypass",                         ODT_TRG_TIMER_TIME},
    {":OUTPut[:STATe]",                              "OrvanX_setOutputOnOff",          ODT_RF_OUT},
    {":OUTPut[:STATe]?",                             "OrvanX_getOutputOnOff",          ODT_RF_OUT},
    {"[:SOURce]:FREQuency",                          "bypass",                         ODT_FREQ},
    {"[:SOURce]:FREQuency?",                         "bypass",                         ODT_FREQ},
    {"[:SOURce]:POWer",                              "bypass",                         ODT_PWR},
    {"[:SOURce]:POWer?",                             "bypass",                         ODT_PWR},
    {"[:SOURce]:PHASe",                              "bypass",                         ODT_PHASE},
    {"[:SOURce]:PHASe?",                             "bypass",                         ODT_PHASE},
    {"[:SOURce]:ROSCillator:SOURce?",                "bypass",                         ODT_REF_OSC_MODE},
    {"[:SOURce]:ROSCillator:OUTP:FREQuency",         "bypass",                         ODT_REF_OSC_FREQ},
    {"[:SOURce]:ROSCillator:OUTP:FREQuency?",        "bypass",                         ODT_REF_OSC_FREQ},
    {"[:SOURce]:LIST[:STATe]",                       "bypass",                         ODT_LIST_STAT},
    {"[:SOURce]:LIST[:STATe]?",                      "bypass",                         ODT_LIST_STAT},
    {"[:SOURce]:LIST:STARt",                         "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:LIST:STARt?",                        "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:LIST:DATA",                          "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:LIST:DEFine",                        "bypass",                         ODT_LIST_DEF},
    {"[:SOURce]:LIST:DEFine?",                       "bypass",                         ODT_LIST_DEF},
    {"[:SOURce]:LIST:DIRection",                     "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:LIST:DIRection?",                    "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:LIST:REVerse",                       "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:LIST:DELete[:NAME]",                 "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:LIST:DELete:ALL",                    "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:AM[:STATe]",                         "bypass",                         ODT_AM_STAT},
    {"[:SOURce]:AM[:STATe]?",                        "bypass",                         ODT_AM_STAT},
    {"[:SOURce]:AM:SOURce",                          "OrvanX_setAMTriggerSource",      ODT_AM_SRC},
    {"[:SOURce]:AM:SOURce?",                         "bypass",                         ODT_AM_SRC},
    {"[:SOURce]:AM:INTernal:FREQuency",              "bypass",                         ODT_AM_FREQ},
    {"[:SOURce]:AM:INTernal:FREQuency?",             "bypass",                         ODT_AM_FREQ},
    {"[:SOURce]:AM:DEPTh",                           "bypass",                         ODT_AM_DEPT},
    {"[:SOURce]:AM:DEPTh?",                          "bypass",                         ODT_AM_DEPT},
    {"[:SOURce]:FM[:STATe]",                         "bypass",                         ODT_FM_STAT},
    {"[:SOURce]:FM[:STATe]?",                        "bypass",                         ODT_FM_STAT},
    {"[:SOURce]:FM:SOURce",                          "OrvanX_setFMTriggerSource",      ODT_FM_SRC},
    {"[:SOURce]:FM:SOURce?",                         "bypass",                         ODT_FM_SRC},
    {"[:SOURce]:FM:INTernal:FREQuency",              "bypass",                         ODT_FM_FREQ},
    {"[:SOURce]:FM:INTernal:FREQuency?",             "bypass",                         ODT_FM_FREQ},
    {"[:SOURce]:FM:DEViation",                       "bypass",                         ODT_FM_DEV},
    {"[:SOURce]:FM:DEViation?",                      "bypass",                         ODT_FM_DEV},
    {"[:SOURce]:PM[:STATe]",                         "bypass",                         ODT_PM_STAT},
    {"[:SOURce]:PM[:STATe]?",                        "bypass",                         ODT_PM_STAT},
    {"[:SOURce]:PM:INTernal:FREQuency",              "bypass",                         ODT_PM_FREQ},
    {"[:SOURce]:PM:INTernal:FREQuency?",             "bypass",                         ODT_PM_FREQ},
    {"[:SOURce]:PM:DEViation",                       "bypass",                         ODT_PM_DEV},
    {"[:SOURce]:PM:DEViation?",                      "bypass",                         ODT_PM_DEV},
    {"[:SOURce]:PULSe[:STATe]",                      "bypass",                         ODT_PULS_STAT},
    {"[:SOURce]:PULSe[:STATe]?",                     "bypass",                         ODT_PULS_STAT},
    {"[:SOURce]:PULSe:SOURce",                       "bypass",                         ODT_PULS_SRC},
    {"[:SOURce]:PULSe:SOURce?",                      "bypass",                         ODT_PULS_SRC},
    {"[:SOURce]:PULSe:FREQuency",                    "bypass",                         ODT_PULS_FREQ},
    {"[:SOURce]:PULSe:FREQuency?",                   "bypass",                         ODT_PULS_FREQ},
    {"[:SOURce]:PULSe:WIDTh",                        "bypass",                         ODT_PULS_WIDTH},
    {"[:SOURce]:PULSe:WIDTh?",                       "bypass",                         ODT_PULS_WIDTH},
    {"[:SOURce]:PATTern[:STATe]",                    "bypass",                         ODT_PATT_STAT},
    {"[:SOURce]:PATTern[:STATe]?",                   "bypass",                         ODT_PATT_STAT},
    {"[:SOURce]:PATTern:DATA",                       "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:PATTern:DEFine",                     "bypass",                         ODT_PATT_DEF},
    {"[:SOURce]:PATTern:DEFine?",                    "bypass",                         ODT_PATT_DEF},
    {"[:SOURce]:PATTern:DELete[:NAME]",              "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:PATTern:DELete:ALL",                 "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:FRSWeep[:STATe]",                    "bypass",                         ODT_FRS_STAT},
    {"[:SOURce]:FRSWeep[:STATe]?",                   "bypass",                         ODT_FRS_STAT},
    {"[:SOURce]:FRSWeep:STARt",                      "bypass",                         ODT_FRS_START},
    {"[:SOURce]:FRSWeep:STARt?",                     "bypass",                         ODT_FRS_START},
    {"[:SOURce]:FRSWeep:STEPs",                      "bypass",                         ODT_FRS_STEPS},
    {"[:SOURce]:FRSWeep:STEPs?",                     "bypass",                         ODT_FRS_STEPS},
    {"[:SOURce]:FRSWeep:STOP",                       "bypass",                         ODT_FRS_STOP},
    {"[:SOURce]:FRSWeep:STOP?",                      "bypass",                         ODT_FRS_STOP},
    {"[:SOURce]:FRSWeep:TIME",                       "bypass",                         ODT_FRS_STEP_TIME},
    {"[:SOURce]:FRSWeep:TIME?",                      "bypass",                         ODT_FRS_STEP_TIME},
    {"[:SOURce]:FRSWeep:DIRection",                  "bypass",                         ODT_FRS_DIR},
    {"[:SOURce]:FRSWeep:DIRection?",                 "bypass",                         ODT_FRS_DIR},
    {"[:SOURce]:PRSWeep[:STATe]",                    "bypass",                         ODT_PRS_STAT},
    {"[:SOURce]:PRSWeep[:STATe]?",                   "bypass",                         ODT_PRS_STAT},
    {"[:SOURce]:PRSWeep:STARt",                      "bypass",                         ODT_PRS_START},
    {"[:SOURce]:PRSWeep:STARt?",                     "bypass",                         ODT_PRS_START},
    {"[:SOURce]:PRSWeep:STEPs",                      "bypass",                         ODT_PRS_STEPS},
    {"[:SOURce]:PRSWeep:STEPs?",                     "bypass",                         ODT_PRS_STEPS},
    {"[:SOURce]:PRSWeep:STOP",                       "bypass",                         ODT_PRS_STOP},
    {"[:SOURce]:PRSWeep:STOP?",                      "bypass",                         ODT_PRS_STOP},
    {"[:SOURce]:PRSWeep:TIME",                       "bypass",                         ODT_PRS_STEP_TIME},
    {"[:SOURce]:PRSWeep:TIME?",                      "bypass",                         ODT_PRS_STEP_TIME},
    {"[:SOURce]:PRSWeep:DIRection",                  "bypass",                         ODT_PRS_DIR},
    {"[:SOURce]:PRSWeep:DIRection?",                 "bypass",                         ODT_PRS_DIR},
    {"[:SOURce]:CORRection:FLATness[:STATe]",        "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness[:STATe]?",       "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:PAIR",           "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:PAIR?",          "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:POINts",         "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:POINts?",        "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:DATA",           "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:PRESet",         "bypass",                         ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:MODE",           "bypass",                         ODT_NO_TAG},
    {":SYSTem:UPDate:SOFTware",                      "OrvanX_softwareUpdate",          ODT_NO_TAG},
    {":SYSTem:UPDate:FPGA",                          "OrvanX_fpgaUpdate",              ODT_NO_TAG},
    {":SYSTem:CLOCk",                                "bypass",                         ODT_NO_TAG},
    {":SYSTem:SETup:TARGet",                         "bypass",                         ODT_NO_TAG},
    {":SYSTem:SETup:TARGet?",                        "bypass",                         ODT_NO_TAG},
    {":SYSTem:SETup:STORe",                          "OrvanX_DBStore",                 ODT_NO_TAG},
    {":SYSTem:SETup:CLEar",                          "OrvanX_DBClear",                 ODT_NO_TAG},
    {":SYSTem:SETup:RECall",                         "OrvanX_DBRecall",                ODT_NO_TAG},
    {":SYSTem:FILE:CATalog:LIST?",                   "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:CATalog:PATTern?",                "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:CATalog:UCORrection?",            "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:STORe:LIST",                      "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:STORe:PATTern",                   "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:STORe:UCORrection",               "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:LOAD:LIST",                       "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:LOAD:PATTern",                    "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:LOAD:UCORrection",                "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:SIZE?",                           "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:DELete:FILE",                     "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:DELete:LIST",                     "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:DELete:PATTern",                  "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:DELete:UCORrection",              "bypass",                         ODT_NO_TAG},
    {":SYSTem:FILE:DELete:ALL",                      "bypass",                         ODT_NO_TAG},
    {":SYSTem:POWerup:SETup",                        "OrvanX_setPowerupDB",            ODT_NO_TAG},
    {":SYSTem:POWerup:SETup?",                       "OrvanX_getPowerupDB",            ODT_NO_TAG},
    {":SYSTem:EMULator:MODel",                       "bypass",                         ODT_NO_TAG},
    {":SYSTem:EMULator:MODel?",                      "bypass",                         ODT_NO_TAG},
    {":SYSTem:TEMPerature?",                         "bypass",                         ODT_TEMP},
    {":SYSTem:INFormation:CALibration?",             "bypass",                         ODT_CALIB_DATE},
    {":SYSTem:INFormation:MODel?",                   "OrvanX_getModel",                ODT_INF_MODEL},
    {":SYSTem:INFormation:SERial?",                  "OrvanX_getSerial",               ODT_INF_SERIAL},
    {":SYSTem:INFormation:HARDware?",                "OrvanX_getHardwareVersion",      ODT_HARD},
    {":SYSTem:INFormation:FPGA?",                    "OrvanX_getFPGAVersion",          ODT_FPGA},
    {":SYSTem:INFormation:FIRMware?",                "OrvanX_getFirmware",             ODT_FIRM},
    {":SYSTem:INFormation:SCPIrevision?",            "bypass",                         ODT_SCPI},
    {":SYSTem:COMMunicate:LAN:DHCP",                 "OrvanX_setDHCP",                 ODT_IF_DHCP},
    {":SYSTem:COMMunicate:LAN:DHCP?",                "OrvanX_getDHCP",                 ODT_IF_DHCP},
    {":SYSTem:COMMunicate:LAN:IPADdress",            "OrvanX_setIpAddress",            ODT_IF_ADDR},
    {":SYSTem:COMMunicate:LAN:IPADdress?",           "OrvanX_getIpAddress",            ODT_IF_ADDR},
    {":SYSTem:COMMunicate:LAN:MASK",                 "OrvanX_setNetworkMask",          ODT_IF_MASK},
    {":SYSTem:COMMunicate:LAN:MASK?",                "OrvanX_getNetworkMask",          ODT_IF_MASK},
    {":SYSTem:COMMunicate:LAN:GATeway",              "Orvan_setDefaultGateway",        ODT_IF_GATE},
    {":SYSTem:COMMunicate:LAN:GATeway?",             "Orvan_getDefaultGateway",        ODT_IF_GATE},
    {":SYSTem:COMMunicate:LAN:HOSTname",             "OrvanX_setHostname",             ODT_HOST},
    {":SYSTem:COMMunicate:LAN:HOSTname?",            "OrvanX_getHostname",             ODT_HOST},
    {":SYSTem:COMMunicate:LAN:DNS",                  "OrvanX_setNetworkDNS",           ODT_NO_TAG},
    {":SYSTem:COMMunicate:LAN:DNS?",                 "OrvanX_getNetworkDNS",           ODT_NO_TAG},
    {":SYSTem:COMMunicate:LAN:PORT",                 "OrvanX_setPortNumber",           ODT_IF_PORT},
    {":SYSTem:COMMunicate:LAN:PORT?",                "OrvanX_getPortNumber",           ODT_IF_PORT},
    {":SYSTem:BATtery?",                             "OrvanX_getBatteryChargeLevel",   ODT_BATT},
    {":SYSTem:FAN:MODE",                             "OrvanX_setFanMode",              ODT_NO_TAG},
    {":SYSTem:FAN:MODE?",                            "OrvanX_getFanMode",              ODT_NO_TAG},
    {"*CLS",                                         "bypass",                         ODT_NO_TAG},
    {"*ESE",                                         "bypass",                         ODT_NO_TAG},
    {"*ESE?",                                        "bypass",                         ODT_NO_TAG},
    {"*ESR?",                                        "bypass",                         ODT_NO_TAG},
    {"*IDN?",                                        "SCPI_CoreIdnQ",                  ODT_NO_TAG},
    {"*OPC?",                                        "bypass",                         ODT_NO_TAG},
    {"*SRE",                                         "bypass",                         ODT_NO_TAG},
    {"*SRE?",                                        "bypass",                         ODT_NO_TAG},
    {"*STB?",                                        "bypass",                         ODT_NO_TAG},
    {"*WAI",                                         "bypass",                         ODT_NO_TAG},
    {"*TRG",                                         "bypass",                         ODT_NO_TAG},
    {"*RST",                                         "OrvanX_Reset",                   ODT_NO_TAG},
    {"*OPT?",                                        "OrvanX_getOptions",              ODT_OPT},
    {":SYSTem:LOG[:STATe]",                          "bypass",                         ODT_NO_TAG},
    {"*TST?",                                        "OrvanX_bitRPResults",            ODT_NO_TAG},
    {"*TST",                                         "OrvanX_runRPIbit",               ODT_NO_TAG},
    {":SYSTem:ERRor[:NEXT]?",                        "bypass",                         ODT_NO_TAG},
    {":SYSTem:ERRor:COUNt?",                         "bypass",                         ODT_NO_TAG},
    {":SYSTem:VERSion?",                             "SCPI_SystemVersionQ",            ODT_NO_TAG},
    {":SYSTem:MODule:TEST?",                         "OrvanX_getModuleBitResult",      ODT_NO_TAG},
    {"[:INTernal]:INFormation:DEVice:ARCHitecture?", "OrvanX_getDeviceArch",           ODT_NO_TAG},
    {"[:INTernal]:INFormation:DEVice:OPTions?",      "OrvanX_getDeviceOptTable",       ODT_NO_TAG},
    {"[:INTernal]:MODulation:ENABle:MASK",           "OrvanX_setModulCfg",             ODT_MODUL_CFG},
    {"[:INTernal]:OUTPut:RESTore:MODE",              "OrvanX_setPwrOnResore",          ODT_NO_TAG},
    {"[:INTernal]:OUTPut:RESTore:MODE?",             "OrvanX_getPwrOnResore",          ODT_NO_TAG},
    {"[:INTernal]:INFormation:SLAVe?",               "OrvanX_getSlave",                ODT_NO_TAG},
    {"[:INTernal]:INFormation:RFRevision?",          "bypass",                         ODT_NO_TAG},
    {"[:INTernal]:INFormation:DIGital?",             "bypass",                         ODT_NO_TAG},
    {"[:INTernal]:GUI:UPDate:SOFTware",              "OrvanX_internalSWUpdate",        ODT_NO_TAG},
    {":STATus:QUEStionable[:EVENt]?",                "SCPI_StatusQuestionableEventQ",  ODT_NO_TAG},
    {":STATus:QUEStionable:ENABle",                  "SCPI_StatusQuestionableEnable",  ODT_NO_TAG},
    {":STATus:QUEStionable:ENABle?",                 "SCPI_StatusQuestionableEnableQ", ODT_NO_TAG},
    {":STATus:OPERation[:EVENt]?",                   "SCPI_StatusOperationEventQ",     ODT_NO_TAG},
    {":STATus:OPERation:CONDition?",                 "SCPI_StatusOperationConditionQ", ODT_NO_TAG},
    {":STATus:OPERation:ENABle",                     "SCPI_StatusOperationEnable",     ODT_NO_TAG},
    {":STATus:OPERation:ENABle?",                    "SCPI_StatusOperationEnableQ",    ODT_NO_TAG},
    {":STATus:PRESet",                               "SCPI_StatusPreset",              ODT_NO_TAG},
};
// clang-format on

scpi_command_callback_t handler_called(const std::string& name)
{
#define ORVAN_NAMED(handler)                                                                                 \
    {                                                                                                        \
        #handler, handler                                                                                    \
    }
    static const std::map<std::string, scpi_command_callback_t> handlers = {
        {"bypass", OrvanX_cmdBypass},
        ORVAN_NAMED(SCPI_CoreIdnQ),
        ORVAN_NAMED(SCPI_SystemVersionQ),
        ORVAN_NAMED(SCPI_StatusQuestionableEventQ),
        ORVAN_NAMED(SCPI_StatusQuestionableEnable),
        ORVAN_NAMED(SCPI_StatusQuestionableEnableQ),
        ORVAN_NAMED(SCPI_StatusOperationEventQ),
        ORVAN_NAMED(SCPI_StatusOperationConditionQ),
        ORVAN_NAMED(SCPI_StatusOperationEnable),
        ORVAN_NAMED(SCPI_StatusOperationEnableQ),
        ORVAN_NAMED(SCPI_StatusPreset),
        ORVAN_NAMED(OrvanX_softwareUpdate),
        ORVAN_NAMED(OrvanX_fpgaUpdate),
        ORVAN_NAMED(OrvanX_internalSWUpdate),
        ORVAN_NAMED(OrvanX_setChannel),
        ORVAN_NAMED(OrvanX_getChannel),
        ORVAN_NAMED(OrvanX_setDHCP),
        ORVAN_NAMED(OrvanX_getDHCP),
        ORVAN_NAMED(OrvanX_setIpAddress),
        ORVAN_NAMED(OrvanX_getIpAddress),
        ORVAN_NAMED(OrvanX_setNetworkMask),
        ORVAN_NAMED(OrvanX_getNetworkMask),
        ORVAN_NAMED(Orvan_setDefaultGateway),
        ORVAN_NAMED(Orvan_getDefaultGateway),
        ORVAN_NAMED(OrvanX_setHostname),
        ORVAN_NAMED(OrvanX_getHostname),
        ORVAN_NAMED(OrvanX_setPortNumber),
        ORVAN_NAMED(OrvanX_getPortNumber),
        ORVAN_NAMED(OrvanX_setNetworkDNS),
        ORVAN_NAMED(OrvanX_getNetworkDNS),
        ORVAN_NAMED(OrvanX_getModel),
        ORVAN_NAMED(OrvanX_getSerial),
        ORVAN_NAMED(OrvanX_getHardwareVersion),
        ORVAN_NAMED(OrvanX_getFirmware),
        ORVAN_NAMED(OrvanX_getFPGAVersion),
        ORVAN_NAMED(OrvanX_getBatteryChargeLevel),
        ORVAN_NAMED(OrvanX_getOptions),
        ORVAN_NAMED(OrvanX_getDeviceArch),
        ORVAN_NAMED(OrvanX_getDeviceOptTable),
        ORVAN_NAMED(OrvanX_setOutputOnOff),
        ORVAN_NAMED(OrvanX_getOutputOnOff),
        ORVAN_NAMED(OrvanX_setTriggerCoupling),
        ORVAN_NAMED(OrvanX_getTriggerCoupling),
        ORVAN_NAMED(OrvanX_setTriggerSource),
        ORVAN_NAMED(OrvanX_setAMTriggerSource),
        ORVAN_NAMED(OrvanX_setFMTriggerSource),
        ORVAN_NAMED(OrvanX_setModulCfg),
        ORVAN_NAMED(OrvanX_getSlave),
        ORVAN_NAMED(OrvanX_DBStore),
        ORVAN_NAMED(OrvanX_DBClear),
        ORVAN_NAMED(OrvanX_DBRecall),
        ORVAN_NAMED(OrvanX_setPowerupDB),
        ORVAN_NAMED(OrvanX_getPowerupDB),
        ORVAN_NAMED(OrvanX_Reset),
        ORVAN_NAMED(OrvanX_setPwrOnResore),
        ORVAN_NAMED(OrvanX_getPwrOnResore),
        ORVAN_NAMED(OrvanX_setFanMode),
        ORVAN_NAMED(OrvanX_getFanMode),
        ORVAN_NAMED(OrvanX_runRPIbit),
        ORVAN_NAMED(OrvanX_bitRPResults),
        ORVAN_NAMED(OrvanX_getModuleBitResult),
    };
#undef ORVAN_NAMED
    return handlers.at(name);
}

std::vector<const scpi_command_t*> rows()
{
    std::vector<const scpi_command_t*> all;
    for (const scpi_command_t* row = scpi_commands; row->pattern != nullptr; ++row) {
        all.push_back(row);
    }
    return all;
}

size_t rows_with(scpi_command_callback_t callback)
{
    size_t count = 0;
    for (const scpi_command_t* row : rows()) {
        count += row->callback == callback ? 1 : 0;
    }
    return count;
}

const scpi_command_t* row_of(const std::string& header)
{
    for (const scpi_command_t* row : rows()) {
        if (SCPI_Match(row->pattern, header.data(), header.size())) {
            return row;
        }
    }
    return nullptr;
}

TEST(CommandTable, HoldsEveryForwardedRow)
{
    EXPECT_EQ(rows_with(OrvanX_cmdBypass), 142u);
}

TEST(CommandTable, RowsAreInOrderWithTheirHandlersAndTags)
{
    const auto all = rows();
    ASSERT_EQ(all.size(), std::size(kExpected));
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i]->pattern, kExpected[i].pattern) << i;
        EXPECT_EQ(all[i]->callback, handler_called(kExpected[i].handler)) << all[i]->pattern;
        EXPECT_EQ(all[i]->tag, kExpected[i].tag) << all[i]->pattern;
    }
}

TEST(CommandTable, SetRowPrecedesItsQueryRowAndSharesItsTag)
{
    const auto all = rows();
    std::map<std::string, size_t> place;
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_TRUE(place.emplace(all[i]->pattern, i).second) << all[i]->pattern << " is there twice";
    }
    size_t pairs = 0;
    for (const auto& [pattern, index] : place) {
        const auto query = place.find(pattern + "?");
        if (query == place.end()) {
            continue;
        }
        if (pattern == "*TST") {
            EXPECT_EQ(query->second, index - 1); // the one query that comes first
        } else {
            EXPECT_EQ(query->second, index + 1) << pattern;
        }
        EXPECT_EQ(all[query->second]->tag, all[index]->tag) << pattern;
        ++pairs;
    }
    EXPECT_EQ(pairs, 68u);
}

TEST(CommandTable, NoHeaderMatchesTwoRows)
{
    for (const scpi_command_t* row : rows()) {
        std::string header; // the long form, every optional node written
        for (const char* p = row->pattern; *p != '\0'; ++p) {
            if (*p != '[' && *p != ']') {
                header += *p;
            }
        }
        EXPECT_EQ(row_of(header), row) << header;
        size_t matches = 0;
        for (const scpi_command_t* other : rows()) {
            matches += SCPI_Match(other->pattern, header.data(), header.size()) ? 1 : 0;
        }
        EXPECT_EQ(matches, 1u) << header;
    }
}

TEST(CommandTable, OptionalFirstNodeMayBeLeftOut)
{
    EXPECT_EQ(row_of(":FREQ"), row_of(":SOUR:FREQ"));
    EXPECT_EQ(row_of(":FREQ"), row_of(":source:frequency"));
    EXPECT_EQ(row_of(":INT:INF:RFR?"), row_of(":INF:RFR?"));
    EXPECT_EQ(row_of(":INT:INF:SLAV?"), row_of(":INF:SLAV?"));
    EXPECT_NE(row_of(":INF:SLAV?"), nullptr);
    EXPECT_NE(row_of(":FREQ"), nullptr);
    EXPECT_NE(row_of(":INF:RFR?"), nullptr);
}

TEST(CommandTable, ATagSelectsItsSetRowOrElseItsQueryRow)
{
    const auto first_with = [](int tag) {
        for (const scpi_command_t* row : rows()) {
            if (row->tag == tag) {
                return std::string(row->pattern);
            }
        }
        return std::string();
    };
    EXPECT_EQ(first_with(ODT_FREQ), "[:SOURce]:FREQuency");
    EXPECT_EQ(first_with(ODT_RF_OUT), ":OUTPut[:STATe]");
    EXPECT_EQ(first_with(ODT_TRG_SRC), ":TRIGger:SOURce");
    EXPECT_EQ(first_with(ODT_AM_SRC), "[:SOURce]:AM:SOURce");
    EXPECT_EQ(first_with(ODT_INF_MODEL), ":SYSTem:INFormation:MODel?");
}

TEST(CommandTable, EndsWithANullPattern)
{
    const scpi_command_t& end = scpi_commands[rows().size()];
    EXPECT_EQ(end.pattern, nullptr);
    EXPECT_EQ(end.callback, nullptr);
}

TEST(CommandTable, TriggerSourcesOfTheInstrumentsOwnSoftware)
{
    EXPECT_STREQ(trigger_source[0].name, "BUS");
    EXPECT_EQ(trigger_source[0].tag, 5);
    EXPECT_STREQ(trigger_source[1].name, "IMMediate");
    EXPECT_EQ(trigger_source[1].tag, 6);
    EXPECT_STREQ(trigger_source[2].name, "EXTernal");
    EXPECT_EQ(trigger_source[2].tag, 7);
    EXPECT_EQ(trigger_source[3].name, nullptr);
    EXPECT_EQ(trigger_source[3].tag, -1);
}

class Language : public FrontEndBench {};

TEST_F(Language, AQueryWithoutARowIsAnUndefinedHeader)
{
    EXPECT_EQ(ask(":LIST:DATA?"), "-ERR -113, \"Undefined header\";+OK\r\n");
    EXPECT_EQ(ask(":SYST:LOG?"), "-ERR -113, \"Undefined header\";+OK\r\n");
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(Language, StatusRegistersBelongToTheController)
{
    EXPECT_EQ(ask(":STAT:QUES:ENAB 5"), "+OK\r\n");
    EXPECT_EQ(ask(":STAT:OPER:ENAB 6"), "+OK\r\n");
    EXPECT_EQ(ask(":STAT:QUES:ENAB?;:STAT:OPER:ENAB?;:STAT:QUES?;:STAT:OPER?;:STAT:OPER:COND?"),
              "5;6;0;0;0;+OK\r\n");
    EXPECT_EQ(ask(":STAT:PRES"), "+OK\r\n");
    EXPECT_EQ(ask(":STAT:QUES:ENAB?;:STAT:OPER:ENAB?"), "0;0;+OK\r\n");
    EXPECT_EQ(module.connections(), 0u);
}

TEST_F(Language, EventRegistersAndErrorsBelongToTheModules)
{
    for (const char* line : {"*CLS", "*ESE 1", "*ESE?", "*ESR?", "*OPC?", "*SRE 1", "*SRE?", "*STB?", "*WAI",
                             "*TRG", ":SYST:ERR?", ":SYST:ERR:COUN?"}) {
        const size_t before = module.connections();
        ask(line);
        EXPECT_EQ(module.connections(), before + 1) << line;
    }
}

} // namespace
