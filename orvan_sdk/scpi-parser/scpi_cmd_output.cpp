#include <cstdio>

#include "dataorvan.h"
#include "handler_shapes.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include <scpi/scpi.h>

using namespace HaldeElec::Orvan;

using Device = IOrvanDeviceManager;

namespace {

// Sends to the selected channel's module and mirrors the value if accepted. Without a service nothing is
// sent, which is not a failure.
bool set_in_module(scpi_t* context, const char* handler, const Target& target, const std::string& command,
                   int tag, const char* mirrored)
{
    if (target.orvanx == nullptr) {
        return true;
    }
    std::string reply;
    if (!ask_module(context, handler, *target.orvanx, target.selected_channel(), command + "\r\n", reply)) {
        return false;
    }
    target.mirror(tag, mirrored);
    return true;
}

// Switches the controller's routing like the module. The module is not switched back if that fails.
scpi_result_t route(const Target& target, int (Device::*operation)(Device::OnOff), bool on)
{
    const int channel = target.selected_channel();
    if (target.device == nullptr || channel <= 0) {
        return SCPI_RES_OK;
    }
    target.device->SetSelectChannel(static_cast<uint32_t>(channel));
    return result_of((target.device->*operation)(on ? Device::On : Device::Off) == 0);
}

// Reads a source's name from the handler's list; the module and the mirror get the list's spelling.
bool read_source(scpi_t* context, const char* handler, const scpi_choice_def_t* sources, int32_t& source,
                 const char*& name)
{
    if (SCPI_ParamChoice(context, sources, &source, true) && SCPI_ChoiceToName(sources, source, &name)) {
        return true;
    }
    missing_parameter(context, handler, 0, "clk source parameter");
    return false;
}

constexpr int32_t kExternalModulation = 2;

} // namespace

// ---- RF output

scpi_result_t OrvanX_setOutputOnOff(scpi_t* context)
{
    scpi_bool_t on = false;
    if (!SCPI_ParamBool(context, &on, true)) {
        return missing_parameter(context, __func__);
    }
    const Target target(context);
    if (!set_in_module(context, __func__, target, on ? ":OUTP ON" : ":OUTP OFF", ODT_RF_OUT,
                       on ? "1" : "0")) {
        return SCPI_RES_ERR;
    }
    if (target.orvanx != nullptr) {
        target.orvanx->setRfOnOff(on);
    }
    return route(target, &Device::SetRFOutput, on);
}

scpi_result_t OrvanX_getOutputOnOff(scpi_t* context)
{
    const Target target(context);
    std::string reply;
    if (target.orvanx != nullptr) {
        if (!ask_module(context, __func__, *target.orvanx, target.selected_channel(), ":OUTP?\r\n", reply)) {
            return SCPI_RES_ERR;
        }
        // The whole reply: because of its success word it never reads as on.
        target.mirror(ODT_RF_OUT, reply.c_str());
    }
    const bool on = reply.starts_with('1');
    if (!result_taken(context, __func__, SCPI_ResultBool(context, on))) {
        return SCPI_RES_ERR;
    }
    return route(target, &Device::SetRFOutput, on);
}

// ---- trigger

scpi_result_t OrvanX_setTriggerCoupling(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {
        {"NONE", 0}, {"0", 0}, {"2", 1}, {"3", 2}, {"4", 3}, {"ALL", 4}, {nullptr, -1},
    };
    int32_t coupling = 0;
    if (!SCPI_ParamChoice(context, options0, &coupling, true)) {
        return missing_parameter(context, __func__, 0, "channel parameter");
    }
    const Target target(context);
    if (target.orvanx == nullptr || target.device == nullptr) {
        return SCPI_RES_ERR;
    }
    const auto value = static_cast<uint8_t>(coupling);
    if (target.device->SetTriggerCouple(target.orvanx->getNumberofChannels(), value) != 0) {
        return SCPI_RES_ERR;
    }
    target.orvanx->setTrigSourceCouple(value);
    return SCPI_RES_OK;
}

scpi_result_t OrvanX_getTriggerCoupling(scpi_t* context)
{
    static const char* const kNames[] = {"NONE", "2", "3", "4",
                                         "ALL"}; // by value: digits are the value plus 1
    const Target target(context);
    const size_t value = target.orvanx != nullptr ? target.orvanx->getTrigSourceCouple() : std::size(kNames);
    if (value >= std::size(kNames)) {
        return fail(context, __func__, SCPI_ERROR_PARAMETER, "trigger source coupling not set");
    }
    return result_of(reply_text(context, __func__, kNames[value]));
}

scpi_result_t OrvanX_setTriggerSource(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {
        {"EXTernal", 1}, {"BUS", 2}, {"TIMer", 3}, {"SPI", 4}, {nullptr, -1},
    };
    int32_t source = 0;
    const char* name = nullptr;
    if (!read_source(context, __func__, options0, source, name)) {
        return SCPI_RES_ERR;
    }
    const std::string command = std::string(":TRIGger:SOURce ") + name;
    return result_of(set_in_module(context, __func__, Target(context), command, ODT_TRG_SRC, name));
}

// ---- modulation

namespace {

// The two handlers of a modulation's source differ only in their names.
scpi_result_t set_modulation_source(scpi_t* context, const char* handler, const scpi_choice_def_t* sources,
                                    const char* header, int tag, int (Device::*operation)(Device::OnOff))
{
    int32_t source = 0;
    const char* name = nullptr;
    if (!read_source(context, handler, sources, source, name)) {
        return SCPI_RES_ERR;
    }
    const Target target(context);
    if (!set_in_module(context, handler, target, std::string(header) + name, tag, name)) {
        return SCPI_RES_ERR;
    }
    return route(target, operation, source == kExternalModulation);
}

} // namespace

scpi_result_t OrvanX_setAMTriggerSource(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {
        {"INTernal", 1}, {"EXTernal", kExternalModulation}, {nullptr, -1}};
    return set_modulation_source(context, __func__, options0, ":AM:SOURce ", ODT_AM_SRC,
                                 &Device::SetAMModulationSource);
}

scpi_result_t OrvanX_setFMTriggerSource(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {
        {"INTernal", 1}, {"EXTernal", kExternalModulation}, {nullptr, -1}};
    return set_modulation_source(context, __func__, options0, ":FM:SOURce ", ODT_FM_SRC,
                                 &Device::SetFMModulationSource);
}

scpi_result_t OrvanX_setModulCfg(scpi_t* context)
{
    uint32_t mask = 0;
    if (!SCPI_ParamUInt32(context, &mask, true)) {
        return missing_parameter(context, __func__);
    }
    const Target target(context);
    if (!target.initialized) {
        return fail(context, __func__, SCPI_ERROR_SYSTEM, "Target is not initialized");
    }
    char text[16];
    std::snprintf(text, sizeof text, "%u", mask);
    target.mirror(ODT_MODUL_CFG, text);
    return result_of(target.orvanx != nullptr);
}

// ---- the selected channel's module

scpi_result_t OrvanX_getSlave(scpi_t* context)
{
    const Target target(context);
    if (!target.initialized) {
        return fail(context, __func__, SCPI_ERROR_SYSTEM, "Target is not initialized");
    }
    if (target.orvanx == nullptr) {
        return SCPI_RES_OK;
    }
    std::string reply;
    if (!ask_module(context, __func__, *target.orvanx, target.selected_channel(),
                    ":SYSTem:INFormation:FIRMware?\r\n", reply)) {
        return SCPI_RES_ERR;
    }
    return result_of(reply_of_module(context, __func__, reply));
}
