#include "orvan_sdk/scpi-parser/scpi-def.h"

#include "dataorvan.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"
#include "orvan_sdk/scpi-parser/scpi_reply.h"
#include <scpi/scpi.h>

// The order matters: a look-up by tag takes the first row with the tag.
// clang-format off
const scpi_command_t scpi_commands[] = {
    // Channel selector
    {":INSTrument[:SELect]",                         OrvanX_setChannel,              ODT_NO_TAG},
    {":INSTrument[:SELect]?",                        OrvanX_getChannel,              ODT_NO_TAG},

    // Initiate
    {":INITiate:CONTinuous[:STATe]",                 OrvanX_cmdBypass,               ODT_INIT_RUN},
    {":INITiate:CONTinuous[:STATe]?",                OrvanX_cmdBypass,               ODT_INIT_RUN},
    {":INITiate:GATE[:STATe]",                       OrvanX_cmdBypass,               ODT_NO_TAG},
    {":INITiate:GATE[:STATe]?",                      OrvanX_cmdBypass,               ODT_NO_TAG},

    // Trigger
    {":TRIGger:SOURce",                              OrvanX_setTriggerSource,        ODT_TRG_SRC},
    {":TRIGger:SOURce?",                             OrvanX_cmdBypass,               ODT_TRG_SRC},
    {":TRIGger:COUPle",                              OrvanX_setTriggerCoupling,      ODT_NO_TAG},
    {":TRIGger:COUPle?",                             OrvanX_getTriggerCoupling,      ODT_NO_TAG},
    {":TRIGger:EDGe",                                OrvanX_cmdBypass,               ODT_TRG_EDGE},
    {":TRIGger:EDGe?",                               OrvanX_cmdBypass,               ODT_TRG_EDGE},
    {":TRIGger:ADVance",                             OrvanX_cmdBypass,               ODT_TRG_ADV},
    {":TRIGger:ADVance?",                            OrvanX_cmdBypass,               ODT_TRG_ADV},
    {":TRIGger:COUNt",                               OrvanX_cmdBypass,               ODT_TRG_COUNT},
    {":TRIGger:COUNt?",                              OrvanX_cmdBypass,               ODT_TRG_COUNT},
    {":TRIGger:DELay",                               OrvanX_cmdBypass,               ODT_TRG_DELAY},
    {":TRIGger:DELay?",                              OrvanX_cmdBypass,               ODT_TRG_DELAY},
    {":TRIGger:TIMer:TIME",                          OrvanX_cmdBypass,               ODT_TRG_TIMER_TIME},
    {":TRIGger:TIMer:TIME?",                         OrvanX_cmdBypass,               ODT_TRG_TIMER_TIME},

    // Output
    {":OUTPut[:STATe]",                              OrvanX_setOutputOnOff,          ODT_RF_OUT},
    {":OUTPut[:STATe]?",                             OrvanX_getOutputOnOff,          ODT_RF_OUT},

    // Frequency, power, phase
    {"[:SOURce]:FREQuency",                          OrvanX_cmdBypass,               ODT_FREQ},
    {"[:SOURce]:FREQuency?",                         OrvanX_cmdBypass,               ODT_FREQ},
    {"[:SOURce]:POWer",                              OrvanX_cmdBypass,               ODT_PWR},
    {"[:SOURce]:POWer?",                             OrvanX_cmdBypass,               ODT_PWR},
    {"[:SOURce]:PHASe",                              OrvanX_cmdBypass,               ODT_PHASE},
    {"[:SOURce]:PHASe?",                             OrvanX_cmdBypass,               ODT_PHASE},

    // Reference oscillator
    {"[:SOURce]:ROSCillator:SOURce?",                OrvanX_cmdBypass,               ODT_REF_OSC_MODE},
    {"[:SOURce]:ROSCillator:OUTP:FREQuency",         OrvanX_cmdBypass,               ODT_REF_OSC_FREQ},
    {"[:SOURce]:ROSCillator:OUTP:FREQuency?",        OrvanX_cmdBypass,               ODT_REF_OSC_FREQ},

    // List
    {"[:SOURce]:LIST[:STATe]",                       OrvanX_cmdBypass,               ODT_LIST_STAT},
    {"[:SOURce]:LIST[:STATe]?",                      OrvanX_cmdBypass,               ODT_LIST_STAT},
    {"[:SOURce]:LIST:STARt",                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:LIST:STARt?",                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:LIST:DATA",                          OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:LIST:DEFine",                        OrvanX_cmdBypass,               ODT_LIST_DEF},
    {"[:SOURce]:LIST:DEFine?",                       OrvanX_cmdBypass,               ODT_LIST_DEF},
    {"[:SOURce]:LIST:DIRection",                     OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:LIST:DIRection?",                    OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:LIST:REVerse",                       OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:LIST:DELete[:NAME]",                 OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:LIST:DELete:ALL",                    OrvanX_cmdBypass,               ODT_NO_TAG},

    // Amplitude modulation
    {"[:SOURce]:AM[:STATe]",                         OrvanX_cmdBypass,               ODT_AM_STAT},
    {"[:SOURce]:AM[:STATe]?",                        OrvanX_cmdBypass,               ODT_AM_STAT},
    {"[:SOURce]:AM:SOURce",                          OrvanX_setAMTriggerSource,      ODT_AM_SRC},
    {"[:SOURce]:AM:SOURce?",                         OrvanX_cmdBypass,               ODT_AM_SRC},
    {"[:SOURce]:AM:INTernal:FREQuency",              OrvanX_cmdBypass,               ODT_AM_FREQ},
    {"[:SOURce]:AM:INTernal:FREQuency?",             OrvanX_cmdBypass,               ODT_AM_FREQ},
    {"[:SOURce]:AM:DEPTh",                           OrvanX_cmdBypass,               ODT_AM_DEPT},
    {"[:SOURce]:AM:DEPTh?",                          OrvanX_cmdBypass,               ODT_AM_DEPT},

    // Frequency modulation
    {"[:SOURce]:FM[:STATe]",                         OrvanX_cmdBypass,               ODT_FM_STAT},
    {"[:SOURce]:FM[:STATe]?",                        OrvanX_cmdBypass,               ODT_FM_STAT},
    {"[:SOURce]:FM:SOURce",                          OrvanX_setFMTriggerSource,      ODT_FM_SRC},
    {"[:SOURce]:FM:SOURce?",                         OrvanX_cmdBypass,               ODT_FM_SRC},
    {"[:SOURce]:FM:INTernal:FREQuency",              OrvanX_cmdBypass,               ODT_FM_FREQ},
    {"[:SOURce]:FM:INTernal:FREQuency?",             OrvanX_cmdBypass,               ODT_FM_FREQ},
    {"[:SOURce]:FM:DEViation",                       OrvanX_cmdBypass,               ODT_FM_DEV},
    {"[:SOURce]:FM:DEViation?",                      OrvanX_cmdBypass,               ODT_FM_DEV},

    // Phase modulation
    {"[:SOURce]:PM[:STATe]",                         OrvanX_cmdBypass,               ODT_PM_STAT},
    {"[:SOURce]:PM[:STATe]?",                        OrvanX_cmdBypass,               ODT_PM_STAT},
    {"[:SOURce]:PM:INTernal:FREQuency",              OrvanX_cmdBypass,               ODT_PM_FREQ},
    {"[:SOURce]:PM:INTernal:FREQuency?",             OrvanX_cmdBypass,               ODT_PM_FREQ},
    {"[:SOURce]:PM:DEViation",                       OrvanX_cmdBypass,               ODT_PM_DEV},
    {"[:SOURce]:PM:DEViation?",                      OrvanX_cmdBypass,               ODT_PM_DEV},

    // Pulse modulation
    {"[:SOURce]:PULSe[:STATe]",                      OrvanX_cmdBypass,               ODT_PULS_STAT},
    {"[:SOURce]:PULSe[:STATe]?",                     OrvanX_cmdBypass,               ODT_PULS_STAT},
    {"[:SOURce]:PULSe:SOURce",                       OrvanX_cmdBypass,               ODT_PULS_SRC},
    {"[:SOURce]:PULSe:SOURce?",                      OrvanX_cmdBypass,               ODT_PULS_SRC},
    {"[:SOURce]:PULSe:FREQuency",                    OrvanX_cmdBypass,               ODT_PULS_FREQ},
    {"[:SOURce]:PULSe:FREQuency?",                   OrvanX_cmdBypass,               ODT_PULS_FREQ},
    {"[:SOURce]:PULSe:WIDTh",                        OrvanX_cmdBypass,               ODT_PULS_WIDTH},
    {"[:SOURce]:PULSe:WIDTh?",                       OrvanX_cmdBypass,               ODT_PULS_WIDTH},

    // Pattern
    {"[:SOURce]:PATTern[:STATe]",                    OrvanX_cmdBypass,               ODT_PATT_STAT},
    {"[:SOURce]:PATTern[:STATe]?",                   OrvanX_cmdBypass,               ODT_PATT_STAT},
    {"[:SOURce]:PATTern:DATA",                       OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:PATTern:DEFine",                     OrvanX_cmdBypass,               ODT_PATT_DEF},
    {"[:SOURce]:PATTern:DEFine?",                    OrvanX_cmdBypass,               ODT_PATT_DEF},
    {"[:SOURce]:PATTern:DELete[:NAME]",              OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:PATTern:DELete:ALL",                 OrvanX_cmdBypass,               ODT_NO_TAG},

    // Frequency sweep
    {"[:SOURce]:FRSWeep[:STATe]",                    OrvanX_cmdBypass,               ODT_FRS_STAT},
    {"[:SOURce]:FRSWeep[:STATe]?",                   OrvanX_cmdBypass,               ODT_FRS_STAT},
    {"[:SOURce]:FRSWeep:STARt",                      OrvanX_cmdBypass,               ODT_FRS_START},
    {"[:SOURce]:FRSWeep:STARt?",                     OrvanX_cmdBypass,               ODT_FRS_START},
    {"[:SOURce]:FRSWeep:STEPs",                      OrvanX_cmdBypass,               ODT_FRS_STEPS},
    {"[:SOURce]:FRSWeep:STEPs?",                     OrvanX_cmdBypass,               ODT_FRS_STEPS},
    {"[:SOURce]:FRSWeep:STOP",                       OrvanX_cmdBypass,               ODT_FRS_STOP},
    {"[:SOURce]:FRSWeep:STOP?",                      OrvanX_cmdBypass,               ODT_FRS_STOP},
    {"[:SOURce]:FRSWeep:TIME",                       OrvanX_cmdBypass,               ODT_FRS_STEP_TIME},
    {"[:SOURce]:FRSWeep:TIME?",                      OrvanX_cmdBypass,               ODT_FRS_STEP_TIME},
    {"[:SOURce]:FRSWeep:DIRection",                  OrvanX_cmdBypass,               ODT_FRS_DIR},
    {"[:SOURce]:FRSWeep:DIRection?",                 OrvanX_cmdBypass,               ODT_FRS_DIR},

    // Power sweep
    {"[:SOURce]:PRSWeep[:STATe]",                    OrvanX_cmdBypass,               ODT_PRS_STAT},
    {"[:SOURce]:PRSWeep[:STATe]?",                   OrvanX_cmdBypass,               ODT_PRS_STAT},
    {"[:SOURce]:PRSWeep:STARt",                      OrvanX_cmdBypass,               ODT_PRS_START},
    {"[:SOURce]:PRSWeep:STARt?",                     OrvanX_cmdBypass,               ODT_PRS_START},
    {"[:SOURce]:PRSWeep:STEPs",                      OrvanX_cmdBypass,               ODT_PRS_STEPS},
    {"[:SOURce]:PRSWeep:STEPs?",                     OrvanX_cmdBypass,               ODT_PRS_STEPS},
    {"[:SOURce]:PRSWeep:STOP",                       OrvanX_cmdBypass,               ODT_PRS_STOP},
    {"[:SOURce]:PRSWeep:STOP?",                      OrvanX_cmdBypass,               ODT_PRS_STOP},
    {"[:SOURce]:PRSWeep:TIME",                       OrvanX_cmdBypass,               ODT_PRS_STEP_TIME},
    {"[:SOURce]:PRSWeep:TIME?",                      OrvanX_cmdBypass,               ODT_PRS_STEP_TIME},
    {"[:SOURce]:PRSWeep:DIRection",                  OrvanX_cmdBypass,               ODT_PRS_DIR},
    {"[:SOURce]:PRSWeep:DIRection?",                 OrvanX_cmdBypass,               ODT_PRS_DIR},

    // Flatness correction
    {"[:SOURce]:CORRection:FLATness[:STATe]",        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness[:STATe]?",       OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:PAIR",           OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:PAIR?",          OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:POINts",         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:POINts?",        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:DATA",           OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:PRESet",         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:SOURce]:CORRection:FLATness:MODE",           OrvanX_cmdBypass,               ODT_NO_TAG},

    // System: update
    {":SYSTem:UPDate:SOFTware",                      OrvanX_softwareUpdate,          ODT_NO_TAG},
    {":SYSTem:UPDate:FPGA",                          OrvanX_fpgaUpdate,              ODT_NO_TAG},

    // System: clock
    {":SYSTem:CLOCk",                                OrvanX_cmdBypass,               ODT_NO_TAG},

    // System: setups
    {":SYSTem:SETup:TARGet",                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:SETup:TARGet?",                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:SETup:STORe",                          OrvanX_DBStore,                 ODT_NO_TAG},
    {":SYSTem:SETup:CLEar",                          OrvanX_DBClear,                 ODT_NO_TAG},
    {":SYSTem:SETup:RECall",                         OrvanX_DBRecall,                ODT_NO_TAG},

    // System: files
    {":SYSTem:FILE:CATalog:LIST?",                   OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:CATalog:PATTern?",                OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:CATalog:UCORrection?",            OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:STORe:LIST",                      OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:STORe:PATTern",                   OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:STORe:UCORrection",               OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:LOAD:LIST",                       OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:LOAD:PATTern",                    OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:LOAD:UCORrection",                OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:SIZE?",                           OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:DELete:FILE",                     OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:DELete:LIST",                     OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:DELete:PATTern",                  OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:DELete:UCORrection",              OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:FILE:DELete:ALL",                      OrvanX_cmdBypass,               ODT_NO_TAG},

    // System: power-up setup
    {":SYSTem:POWerup:SETup",                        OrvanX_setPowerupDB,            ODT_NO_TAG},
    {":SYSTem:POWerup:SETup?",                       OrvanX_getPowerupDB,            ODT_NO_TAG},

    // System: emulator, temperature, information
    {":SYSTem:EMULator:MODel",                       OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:EMULator:MODel?",                      OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:TEMPerature?",                         OrvanX_cmdBypass,               ODT_TEMP},
    {":SYSTem:INFormation:CALibration?",             OrvanX_cmdBypass,               ODT_CALIB_DATE},
    {":SYSTem:INFormation:MODel?",                   OrvanX_getModel,                ODT_INF_MODEL},
    {":SYSTem:INFormation:SERial?",                  OrvanX_getSerial,               ODT_INF_SERIAL},
    {":SYSTem:INFormation:HARDware?",                OrvanX_getHardwareVersion,      ODT_HARD},
    {":SYSTem:INFormation:FPGA?",                    OrvanX_getFPGAVersion,          ODT_FPGA},
    {":SYSTem:INFormation:FIRMware?",                OrvanX_getFirmware,             ODT_FIRM},
    {":SYSTem:INFormation:SCPIrevision?",            OrvanX_cmdBypass,               ODT_SCPI},

    // System: LAN
    {":SYSTem:COMMunicate:LAN:DHCP",                 OrvanX_setDHCP,                 ODT_IF_DHCP},
    {":SYSTem:COMMunicate:LAN:DHCP?",                OrvanX_getDHCP,                 ODT_IF_DHCP},
    {":SYSTem:COMMunicate:LAN:IPADdress",            OrvanX_setIpAddress,            ODT_IF_ADDR},
    {":SYSTem:COMMunicate:LAN:IPADdress?",           OrvanX_getIpAddress,            ODT_IF_ADDR},
    {":SYSTem:COMMunicate:LAN:MASK",                 OrvanX_setNetworkMask,          ODT_IF_MASK},
    {":SYSTem:COMMunicate:LAN:MASK?",                OrvanX_getNetworkMask,          ODT_IF_MASK},
    {":SYSTem:COMMunicate:LAN:GATeway",              Orvan_setDefaultGateway,        ODT_IF_GATE},
    {":SYSTem:COMMunicate:LAN:GATeway?",             Orvan_getDefaultGateway,        ODT_IF_GATE},
    {":SYSTem:COMMunicate:LAN:HOSTname",             OrvanX_setHostname,             ODT_HOST},
    {":SYSTem:COMMunicate:LAN:HOSTname?",            OrvanX_getHostname,             ODT_HOST},
    {":SYSTem:COMMunicate:LAN:DNS",                  OrvanX_setNetworkDNS,           ODT_NO_TAG},
    {":SYSTem:COMMunicate:LAN:DNS?",                 OrvanX_getNetworkDNS,           ODT_NO_TAG},
    {":SYSTem:COMMunicate:LAN:PORT",                 OrvanX_setPortNumber,           ODT_IF_PORT},
    {":SYSTem:COMMunicate:LAN:PORT?",                OrvanX_getPortNumber,           ODT_IF_PORT},

    // System: battery, fans
    {":SYSTem:BATtery?",                             OrvanX_getBatteryChargeLevel,   ODT_BATT},
    {":SYSTem:FAN:MODE",                             OrvanX_setFanMode,              ODT_NO_TAG},
    {":SYSTem:FAN:MODE?",                            OrvanX_getFanMode,              ODT_NO_TAG},

    // IEEE 488.2 common commands
    {"*CLS",                                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*ESE",                                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*ESE?",                                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*ESR?",                                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*IDN?",                                        SCPI_CoreIdnQ,                  ODT_NO_TAG},
    {"*OPC?",                                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*SRE",                                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*SRE?",                                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*STB?",                                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*WAI",                                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*TRG",                                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*RST",                                         OrvanX_Reset,                   ODT_NO_TAG},
    {"*OPT?",                                        OrvanX_getOptions,              ODT_OPT},

    // Log, tests, errors, version
    {":SYSTem:LOG[:STATe]",                          OrvanX_cmdBypass,               ODT_NO_TAG},
    {"*TST?",                                        OrvanX_bitRPResults,            ODT_NO_TAG},
    {"*TST",                                         OrvanX_runRPIbit,               ODT_NO_TAG},
    {":SYSTem:ERRor[:NEXT]?",                        OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:ERRor:COUNt?",                         OrvanX_cmdBypass,               ODT_NO_TAG},
    {":SYSTem:VERSion?",                             SCPI_SystemVersionQ,            ODT_NO_TAG},
    {":SYSTem:MODule:TEST?",                         OrvanX_getModuleBitResult,      ODT_NO_TAG},

    // The instrument's own software
    {"[:INTernal]:INFormation:DEVice:ARCHitecture?", OrvanX_getDeviceArch,           ODT_NO_TAG},
    {"[:INTernal]:INFormation:DEVice:OPTions?",      OrvanX_getDeviceOptTable,       ODT_NO_TAG},
    {"[:INTernal]:MODulation:ENABle:MASK",           OrvanX_setModulCfg,             ODT_MODUL_CFG},
    {"[:INTernal]:OUTPut:RESTore:MODE",              OrvanX_setPwrOnResore,          ODT_NO_TAG},
    {"[:INTernal]:OUTPut:RESTore:MODE?",             OrvanX_getPwrOnResore,          ODT_NO_TAG},
    {"[:INTernal]:INFormation:SLAVe?",               OrvanX_getSlave,                ODT_NO_TAG},
    {"[:INTernal]:INFormation:RFRevision?",          OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:INTernal]:INFormation:DIGital?",             OrvanX_cmdBypass,               ODT_NO_TAG},
    {"[:INTernal]:GUI:UPDate:SOFTware",              OrvanX_internalSWUpdate,        ODT_NO_TAG},

    // Status registers of the controller (SCPI-99 20)
    {":STATus:QUEStionable[:EVENt]?",                SCPI_StatusQuestionableEventQ,  ODT_NO_TAG},
    {":STATus:QUEStionable:ENABle",                  SCPI_StatusQuestionableEnable,  ODT_NO_TAG},
    {":STATus:QUEStionable:ENABle?",                 SCPI_StatusQuestionableEnableQ, ODT_NO_TAG},
    {":STATus:OPERation[:EVENt]?",                   SCPI_StatusOperationEventQ,     ODT_NO_TAG},
    {":STATus:OPERation:CONDition?",                 SCPI_StatusOperationConditionQ, ODT_NO_TAG},
    {":STATus:OPERation:ENABle",                     SCPI_StatusOperationEnable,     ODT_NO_TAG},
    {":STATus:OPERation:ENABle?",                    SCPI_StatusOperationEnableQ,    ODT_NO_TAG},
    {":STATus:PRESet",                               SCPI_StatusPreset,              ODT_NO_TAG},

    {nullptr, nullptr, 0},
};

const scpi_choice_def_t trigger_source[] = {
    {"BUS",       5},
    {"IMMediate", 6},
    {"EXTernal",  7},
    {nullptr,    -1},
};

scpi_interface_t scpi_interface = {
    .error   = SCPI_Error,
    .write   = SCPI_Write,
    .control = SCPI_Control,
    .flush   = SCPI_Flush,
    .reset   = SCPI_Reset,
};
// clang-format on
