#include <cstdio>
#include <exception>

#include <syslog.h>
#include <unistd.h>

#include "handler_shapes.h"
#include "orvan_fs_utils.h"
#include "orvan_sdk/scpi-parser/scpi_cmd_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "parser_library.h"
#include "sys_cmd.h"

using namespace HaldeElec::Orvan;

namespace {

// An image for the modules, and its error text.
struct ModuleImage {
    const char* file; // in the upgrade folder, regardless of the content; the update finds it by its keyword
    bool (Scpi_Orvanx::*send)();
    const char* failed;
    const char* logged;
};

constexpr ModuleImage kSoftware = {"ovx_module_1.2.3.tar.gz", &Scpi_Orvanx::sendSoftwareUpdate,
                                   "Failed to update software", "Failed to update orvanx software"};
constexpr ModuleImage kFpga = {"fpga_image.bin", &Scpi_Orvanx::sendFPGAUpdateSCPICommandtoOrvanX,
                               "Failed to update fpga", "Failed to update orvanx fpga"};

// Sends a stored image. An update that throws has failed: exceptions must not leave a handler.
scpi_result_t send_image(scpi_t* context, const char* handler, Scpi_Orvanx& orvanx, const ModuleImage& image)
{
    bool sent = false;
    try {
        sent = (orvanx.*image.send)();
    } catch (const std::exception&) {
    }
    return sent ? SCPI_RES_OK : fail(context, handler, SCPI_ERROR_TOO_MUCH_DATA, image.failed, image.logged);
}

// Extracts the image from the message, stores and sends it.
scpi_result_t update_modules(scpi_t* context, const char* handler, const ModuleImage& image)
{
    const char* data = nullptr;
    size_t size = 0;
    if (!SCPI_ParamArbitraryBlock(context, &data, &size, true) || data == nullptr || size == 0) {
        explain_error(context, "Parsing failed");
        ::syslog(LOG_ERR, "%s: data %s, data_len = %u. aborting.\n", handler, data == nullptr ? "null" : "ok",
                 static_cast<unsigned>(size));
        return SCPI_RES_ERR;
    }
    char path[256];
    std::snprintf(path, sizeof path, "%s/%s", SW_UPDATE_PATH_ORVANX, image.file);
    if (!OrvanFSUtils::saveBufferToFile(path, data, size)) {
        ::syslog(LOG_ERR, "Failed to save file\n");
        return SCPI_RES_ERR;
    }
    const Target target(context);
    return target.orvanx != nullptr ? send_image(context, handler, *target.orvanx, image) : SCPI_RES_OK;
}

} // namespace

scpi_result_t OrvanX_softwareUpdate(scpi_t* context)
{
    return update_modules(context, __func__, kSoftware);
}

scpi_result_t OrvanX_fpgaUpdate(scpi_t* context)
{
    return update_modules(context, __func__, kFpga);
}

scpi_result_t OrvanX_internalSWUpdate(scpi_t* context)
{
    const Target target(context);
    if (target.orvanx == nullptr) {
        return SCPI_RES_ERR;
    }
    const scpi_result_t result = send_image(context, __func__, *target.orvanx, kSoftware);
    target.orvanx->sendDeviceRestart();
    ::sync();
    char output[256];
    if (read_system_cmd("sudo reboot", output, sizeof output) != 0) {
        ::syslog(LOG_ERR, "Failed rebooting the device\n");
    }
    return result;
}
