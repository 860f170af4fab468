#include <cstdio>

#include "dataorvan.h"
#include "handler_shapes.h"
#include "modules/module_request.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include <scpi/scpi.h>

using namespace HaldeElec::Orvan;

using Device = IOrvanDeviceManager;

namespace {

constexpr uint32_t CONFIG_SETUP_NO = 5; // setups of the user, 1 to 5; setup 0 is the factory's

// An operation on a stored setup, and its error texts.
struct SetupOperation {
    uint32_t first; // lowest valid setup; the highest is CONFIG_SETUP_NO
    int (Scpi_Orvanx::*run)(int setup);
    const char* out_of_range; // before the number
    const char* failed;
    const char* missing; // the parameter in the log
};

scpi_result_t on_setup(scpi_t* context, const char* handler, const SetupOperation& operation)
{
    uint32_t setup = 0;
    if (!SCPI_ParamUInt32(context, &setup, true)) {
        return missing_parameter(context, handler, 0, operation.missing);
    }
    if (setup < operation.first || setup > CONFIG_SETUP_NO) {
        char info[64];
        std::snprintf(info, sizeof info, "%s setup %d not allowed", operation.out_of_range,
                      static_cast<int>(setup));
        return fail_unlogged(context, SCPI_ERROR_PARAMETER_NOT_ALLOWED, info);
    }
    const Target target(context);
    if (target.orvanx != nullptr && (target.orvanx->*operation.run)(static_cast<int>(setup)) != 0) {
        return fail_unlogged(context, SCPI_ERROR_EXECUTION, operation.failed);
    }
    return SCPI_RES_OK;
}

// Brings modules, records and routing back to the power-up setup.
void restore_power_up_state(Scpi_Orvanx& orvanx, Device& device)
{
    orvanx.database_recall(orvanx.get_bootDBConfig());
    if (const sDevArch_t* const arch = device.getDeviceArch(); arch != nullptr) {
        orvanx.sync_db_to_orvanx(const_cast<sDevArch_t*>(arch));
    }

    const int selected = orvanx.getSelectedChannel();
    for (int channel = 1; channel <= orvanx.getNumberofChannels(); ++channel) {
        orvanx.setSelectedChannel(channel);
        if (const auto* const record = reinterpret_cast<const ORVAN_CONFIG*>(orvanx.get_channelDB())) {
            device.SetRFOutput(record->ANALOGOUTPUT.RfOutput == On ? Device::On : Device::Off);
        }
    }
    orvanx.setSelectedChannel(selected);
}

// Reads one of two words.
bool read_mode(scpi_t* context, const char* handler, const scpi_choice_def_t* modes, int32_t& mode)
{
    if (SCPI_ParamChoice(context, modes, &mode, true)) {
        return true;
    }
    missing_parameter(context, handler, 0, "channel parameter");
    return false;
}

} // namespace

// ---- stored setups

scpi_result_t OrvanX_DBStore(scpi_t* context)
{
    static const SetupOperation kStore = {1, &Scpi_Orvanx::database_store, "writing",
                                          "Failed to save configuration",
                                          "setup configuration number parameter"};
    return on_setup(context, __func__, kStore);
}

scpi_result_t OrvanX_DBClear(scpi_t* context)
{
    static const SetupOperation kClear = {1, &Scpi_Orvanx::database_clear, "erasing",
                                          "Failed to delete configuration", nullptr};
    return on_setup(context, __func__, kClear);
}

scpi_result_t OrvanX_DBRecall(scpi_t* context)
{
    static const SetupOperation kRecall = {0, &Scpi_Orvanx::database_recall, "recalling",
                                           "Failed to recall configuration", nullptr};
    return on_setup(context, __func__, kRecall);
}

scpi_result_t OrvanX_setPowerupDB(scpi_t* context)
{
    uint32_t setup = 0;
    if (!SCPI_ParamUInt32(context, &setup, true)) {
        return missing_parameter(context, __func__, 0, "power setup parameter");
    }
    const Target target(context);
    if (target.orvanx == nullptr) {
        return SCPI_RES_OK;
    }
    if (target.orvanx->validate_DB_files(static_cast<int>(setup)) != 0) {
        return fail_unlogged(context, SCPI_ERROR_FILE_NAME_NOT_FOUND, "DB files not found");
    }
    target.orvanx->set_bootDBConfig(static_cast<int>(setup), true);
    return SCPI_RES_OK;
}

scpi_result_t OrvanX_getPowerupDB(scpi_t* context)
{
    const Target target(context);
    if (target.orvanx == nullptr) {
        return SCPI_RES_ERR;
    }
    const auto setup = static_cast<uint32_t>(target.orvanx->get_bootDBConfig());
    return result_of(result_taken(context, __func__, SCPI_ResultUInt32Base(context, setup, 10)));
}

// ---- reset

scpi_result_t OrvanX_Reset(scpi_t* context)
{
    const Target target(context);
    if (!target.initialized) {
        return fail(context, __func__, SCPI_ERROR_SYSTEM, "Target is not initialized");
    }
    if (target.orvanx == nullptr || target.device == nullptr) {
        return SCPI_RES_ERR;
    }

    const ModuleRequests requests(*target.orvanx, "*RST\r\n");
    for (auto& [index, pending] : requests) {
        const std::string reply = pending.get();
        if (target.orvanx->checkOrvanReply(reply)) {
            continue;
        }
        char info[64];
        std::snprintf(info, sizeof info, "Module %d communication error", index + 1);
        // Returns only when the remaining modules' requests have ended, too: their futures wait.
        return fail(context, __func__, SCPI_ERROR_COMMUNICATION, info, reply.c_str());
    }
    restore_power_up_state(*target.orvanx, *target.device);
    return SCPI_RES_OK;
}

// ---- power-on restore mode

scpi_result_t OrvanX_setPwrOnResore(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {{"AUTO", 0}, {"MANUAL", 1}, {nullptr, -1}};
    int32_t mode = 0;
    if (!read_mode(context, __func__, options0, mode)) {
        return SCPI_RES_ERR;
    }
    if (const Target target(context); target.orvanx != nullptr) {
        target.orvanx->set_powerOnRestore(mode == 0);
    }
    return SCPI_RES_OK;
}

scpi_result_t OrvanX_getPwrOnResore(scpi_t* context)
{
    const Target target(context);
    if (target.orvanx == nullptr) {
        return SCPI_RES_ERR;
    }
    return result_of(reply_text(context, __func__, target.orvanx->get_powerOnRestore() ? "AUTO" : "MANUAL"));
}

// ---- fans

scpi_result_t OrvanX_setFanMode(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {{"AUTO", 0}, {"FIXED", 1}, {nullptr, -1}};
    int32_t mode = 0;
    if (!read_mode(context, __func__, options0, mode)) {
        return SCPI_RES_ERR;
    }
    const Target target(context);
    if (target.device == nullptr) {
        return SCPI_RES_ERR;
    }
    target.device->SetFanMode(mode);
    return SCPI_RES_OK;
}

scpi_result_t OrvanX_getFanMode(scpi_t* context)
{
    const Target target(context);
    if (target.device == nullptr) {
        return SCPI_RES_ERR;
    }
    return result_of(reply_text(context, __func__, target.device->GetFanMode() == 0 ? "AUTO" : "FIXED"));
}
