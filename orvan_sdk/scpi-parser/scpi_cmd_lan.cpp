#include <cstdio>

#include "dataorvan.h"
#include "handler_shapes.h"
#include "orvan_sdk/scpi-parser/scpi-bypass.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "records/channel_selection.h"
#include <scpi/scpi.h>

using namespace HaldeElec::Orvan;

using Device = IOrvanDeviceManager;

namespace {

template <size_t kSize, typename Number>
int print_number(char (&text)[kSize], Number number)
{
    return std::snprintf(text, kSize, "%d", static_cast<int>(number));
}

} // namespace

// ---- channel selector

scpi_result_t OrvanX_setChannel(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {
        {"CH1", 1},    {"CH2", 2}, {"CH3", 3}, {"CH4", 4}, // names
        {"1", 1},      {"2", 2},   {"3", 3},   {"4", 4},   // numbers
        {nullptr, -1},
    };
    int32_t choice = 0;
    if (!SCPI_ParamChoice(context, options0, &choice, true)) {
        return missing_parameter(context, __func__, 0, "channel parameter");
    }
    const Target target(context);
    if (target.orvanx != nullptr) {
        target.orvanx->setSelectedChannel(choice);
        mirror_selection(*target.orvanx);
    }
    return SCPI_RES_OK;
}

scpi_result_t OrvanX_getChannel(scpi_t* context)
{
    const Target target(context);
    if (target.orvanx == nullptr) {
        return SCPI_RES_ERR;
    }
    char text[16];
    print_number(text, target.orvanx->getSelectedChannel());
    if (!reply_text(context, __func__, text)) {
        return SCPI_RES_ERR;
    }
    mirror_selection(*target.orvanx);
    return SCPI_RES_OK;
}

// ---- LAN

scpi_result_t OrvanX_setDHCP(scpi_t* context)
{
    scpi_bool_t on = false;
    if (!SCPI_ParamBool(context, &on, true)) {
        return missing_parameter(context, __func__);
    }
    return apply_setting(context, ODT_IF_DHCP, on ? "1" : "0",
                         [on](Device& device) { device.SetDHCP(on ? 1 : 0); });
}

scpi_result_t OrvanX_getDHCP(scpi_t* context)
{
    return get_value(context, __func__, ODT_IF_DHCP, [](Device& device, GetterText& text) {
        uint8_t on = 0;
        const int result = device.GetDHCP(on);
        std::snprintf(text, sizeof text, "%s", on != 0 ? "ON" : "OFF"); // the mirror takes them as 1 and 0
        return result;
    });
}

scpi_result_t OrvanX_setIpAddress(scpi_t* context)
{
    return set_text(context, __func__, &Device::SetIPAddress, ODT_IF_ADDR);
}

scpi_result_t OrvanX_getIpAddress(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetIPAddress, ODT_IF_ADDR);
}

scpi_result_t OrvanX_setNetworkMask(scpi_t* context)
{
    return set_text(context, __func__, &Device::SetNetMask, ODT_IF_MASK);
}

scpi_result_t OrvanX_getNetworkMask(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetNetMask, ODT_IF_MASK, GetShape::kRepliesAnyway);
}

scpi_result_t Orvan_setDefaultGateway(scpi_t* context)
{
    return set_text(context, __func__, &Device::SetGateway, ODT_IF_GATE);
}

scpi_result_t Orvan_getDefaultGateway(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetGateway, ODT_IF_GATE);
}

scpi_result_t OrvanX_setHostname(scpi_t* context)
{
    return set_text(context, __func__, &Device::SetHostname, ODT_HOST);
}

scpi_result_t OrvanX_getHostname(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetHostname, ODT_HOST);
}

scpi_result_t OrvanX_setPortNumber(scpi_t* context)
{
    uint32_t port = 0;
    if (!SCPI_ParamUInt32(context, &port, true)) {
        return missing_parameter(context, __func__);
    }
    char text[16];
    print_number(text, port);
    return apply_setting(
        context, ODT_IF_PORT, text,
        [port](Device& device) { device.SetScpiPort(static_cast<uint16_t>(port)); }, MirrorsSet::kOnceCalled);
}

scpi_result_t OrvanX_getPortNumber(scpi_t* context)
{
    return get_value(context, __func__, ODT_IF_PORT, [](Device& device, GetterText& text) {
        uint16_t port = 0;
        device.GetScpiPort(&port); // only the value shows whether there is one
        print_number(text, port);
        return port != 0 ? 0 : ERR_FAILED;
    });
}

scpi_result_t OrvanX_setNetworkDNS(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {{"1", 1}, {"2", 2}, {nullptr, -1}};
    int32_t server = 0;
    if (!SCPI_ParamChoice(context, options0, &server, true)) {
        return missing_parameter(context, __func__, 0);
    }
    char text[kHandlerTextSize] = {};
    if (!read_text(context, text)) {
        return missing_parameter(context, __func__, 1);
    }
    return apply_setting(context, ODT_NO_TAG, text, [server, &text](Device& device) {
        server == 1 ? device.SetDNS1(as_bytes(text)) : device.SetDNS2(as_bytes(text));
    });
}

scpi_result_t OrvanX_getNetworkDNS(scpi_t* context)
{
    static const scpi_choice_def_t options0[] = {{"1", 1}, {"2", 2}, {nullptr, -1}};
    int32_t server = 0;
    if (!SCPI_ParamChoice(context, options0, &server, true)) {
        return missing_parameter(context, __func__);
    }
    return server == 1 ? get_text(context, __func__, &Device::GetDNS1, ODT_IF_DNS1)
                       : get_text(context, __func__, &Device::GetDNS2, ODT_IF_DNS2);
}

// ---- identity

scpi_result_t OrvanX_getModel(scpi_t* context)
{
    return get_value(context, __func__, ODT_INF_MODEL, [](Device& device, GetterText& text) {
        return device.GetModel(as_bytes(text), kHandlerTextSize);
    });
}

scpi_result_t OrvanX_getSerial(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetSerial, ODT_INF_SERIAL);
}

scpi_result_t OrvanX_getHardwareVersion(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetHardware, ODT_HARD); // one character
}

scpi_result_t OrvanX_getFirmware(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetFirmware, ODT_FIRM, GetShape::kNeverRefused);
}

scpi_result_t OrvanX_getFPGAVersion(scpi_t* context)
{
    return get_text(context, __func__, &Device::GetFpga, ODT_FPGA, GetShape::kMirrorsFirst);
}

scpi_result_t OrvanX_getBatteryChargeLevel(scpi_t* context)
{
    const Target target(context);
    uint16_t percent = 0;
    if (target.device == nullptr || target.device->GetBatteryCharge(percent) != 0) {
        return SCPI_RES_ERR;
    }
    char text[16];
    print_number(text, percent);
    target.mirror(ODT_BATT, text);
    return result_of(result_taken(context, __func__, SCPI_ResultUInt32Base(context, percent, 10)));
}

scpi_result_t OrvanX_getOptions(scpi_t* context)
{
    const auto get = [](Device& device, GetterText& text) {
        return device.GetOption(as_bytes(text), kHandlerTextSize);
    };
    return get_value(context, __func__, ODT_OPT, get, GetShape::kNeverRefused);
}

scpi_result_t OrvanX_getDeviceArch(scpi_t* context)
{
    static const char* const kPlatforms[] = {"portable", "benchtop", "ksr7000"}; // by DeviceProductType

    const Target target(context);
    const sDevArch_t* const arch = target.device != nullptr ? target.device->getDeviceArch() : nullptr;
    if (arch == nullptr) {
        return SCPI_RES_ERR;
    }
    char text[kHandlerTextSize];
    std::snprintf(text, sizeof text, "%s,%u,%d,%s,%x,%x,%s", arch->model,
                  static_cast<unsigned>(arch->maxFrequency / 1000000), arch->channelsNo,
                  arch->protocol == 1 ? "usb" : "spi", arch->product, arch->vendor,
                  kPlatforms[arch->devProdType]);
    return result_of(reply_text(context, __func__, text));
}

scpi_result_t OrvanX_getDeviceOptTable(scpi_t* context)
{
    const Target target(context);
    void* table = nullptr;
    size_t size = 0;
    if (target.device != nullptr && target.device->GetOptionsTable(&table, &size) != 0) {
        return fail(context, __func__, SCPI_ERROR_DATA_CORRUPT_OR_STALE, "Failed retrieving options table");
    }
    if (SCPI_ResultArbitraryBlock(context, table, size) == 0) {
        return fail(context, __func__, SCPI_ERROR_TOO_MUCH_DATA, "copy binay data out failed");
    }
    return SCPI_RES_OK;
}
