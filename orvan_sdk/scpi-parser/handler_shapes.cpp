#include "handler_shapes.h"

#include <cstdio>
#include <cstring>

#include <syslog.h>

#include "modules/module_request.h"
#include "orvan_sdk/scpi-parser/scpi-bypass.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_progress.h"
#include "parser_library.h"

namespace HaldeElec::Orvan {

uint8_t* selected_record(Scpi_Orvanx& orvanx)
{
    return orvanx.getSelectedChannel() <= orvanx.getNumberofChannels() ? orvanx.get_channelDB() : nullptr;
}

Target::Target(const scpi_t* context)
{
    scpi_note_progress();
    const auto* const u = static_cast<const userContext_t*>(context->user_context);
    initialized = u != nullptr;
    if (!initialized) {
        return;
    }
    device = static_cast<IOrvanDeviceManager*>(u->ptrDevice);
    orvanx = static_cast<Scpi_Orvanx*>(u->ptrParser);
}

int Target::selected_channel() const
{
    return orvanx != nullptr ? orvanx->getSelectedChannel() : 0;
}

void Target::mirror(int tag, const char* text) const
{
    if (orvanx != nullptr) {
        update_orvan_DB(selected_record(*orvanx), orvanx->get_ElemByTag(tag), text);
    }
}

scpi_result_t fail_unlogged(scpi_t* context, int code, const char* info)
{
    queue_error(context, code, info);
    return SCPI_RES_ERR;
}

scpi_result_t fail(scpi_t* context, const char* handler, int code, const char* info, const char* logged)
{
    const scpi_result_t result = fail_unlogged(context, code, info);
    ::syslog(LOG_ERR, "%s: %s\n", handler, logged);
    return result;
}

scpi_result_t fail(scpi_t* context, const char* handler, int code, const char* info)
{
    return fail(context, handler, code, info, info);
}

scpi_result_t missing_parameter(scpi_t* context, const char* handler, int position, const char* what)
{
    char info[32];
    std::snprintf(info, sizeof info, "Param %d", position);
    explain_error(context, info);
    if (what != nullptr) {
        ::syslog(LOG_ERR, "%s: Failed to retrieve a mandatory %s\n", handler, what);
    } else {
        ::syslog(LOG_ERR, "%s: Failed to retrieve a mandatory parameter %d\n", handler, position);
    }
    return SCPI_RES_ERR;
}

bool result_taken(scpi_t* context, const char* handler, size_t taken)
{
    if (taken != 0) {
        return true;
    }
    fail(context, handler, SCPI_ERROR_TOO_MUCH_DATA, "copy data out failed", "Failed to copy output data");
    return false;
}

bool reply_text(scpi_t* context, const char* handler, const char* text)
{
    return result_taken(context, handler, SCPI_ResultCharacters(context, text, std::strlen(text)));
}

bool read_text(scpi_t* context, char (&text)[kHandlerTextSize])
{
    size_t size = 0; // not every parser library accepts null
    return SCPI_ParamCopyText(context, text, sizeof text, &size, true);
}

scpi_result_t set_text(scpi_t* context, const char* handler, int (IOrvanDeviceManager::*set)(uint8_t*),
                       int tag)
{
    char text[kHandlerTextSize] = {};
    if (!read_text(context, text)) {
        return missing_parameter(context, handler);
    }
    return apply_setting(context, tag, text,
                         [&](IOrvanDeviceManager& device) { (device.*set)(as_bytes(text)); });
}

scpi_result_t get_text(scpi_t* context, const char* handler, int (IOrvanDeviceManager::*get)(uint8_t*),
                       int tag, GetShape shape)
{
    const auto ask = [get](IOrvanDeviceManager& device, char* text) { return (device.*get)(as_bytes(text)); };
    return get_value(context, handler, tag, ask, shape);
}

bool ask_module(scpi_t* context, const char* handler, Scpi_Orvanx& orvanx, int channel,
                const std::string& command, std::string& reply)
{
    reply = request_module(orvanx, channel, command);
    if (orvanx.checkOrvanReply(reply)) {
        return true;
    }
    fail(context, handler, SCPI_ERROR_COMMUNICATION, "Module communication error", reply.c_str());
    return false;
}

bool reply_of_module(scpi_t* context, const char* handler, std::string reply)
{
    if (const size_t ok = reply.rfind(";+OK"); ok != std::string::npos) {
        reply.erase(ok);
    }
    return reply_text(context, handler, reply.c_str());
}

} // namespace HaldeElec::Orvan
