/**
 * What the row handlers have in common: access to the device and the module service, the texts of their
 * failures, and the shapes of set and get handlers. Deviations are given as arguments.
 *
 * `handler` is the handler's name, which its log lines begin with. All of it runs inside SCPI_Input.
 */
#ifndef ORVAN_SDK_HANDLER_SHAPES_H
#define ORVAN_SDK_HANDLER_SHAPES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "orvan_sdk/IOrvanDeviceManager.h"
#include <scpi/types.h>

class Scpi_Orvanx;

namespace HaldeElec::Orvan {

/** Size of a text parameter with its NUL, and of a getter's text. */
inline constexpr size_t kHandlerTextSize = 256;

/** Reads a mandatory text parameter. @return false with the reader's error queued, -223 for one that is too
 * long */
bool read_text(scpi_t* context, char (&text)[kHandlerTextSize]);

/** A getter's text. The extra byte terminates a text that fills it. */
using GetterText = char[kHandlerTextSize + 1];

/** The selected channel's record; null if there is none, also for a channel that is not installed: any may be
 * selected, but the mapping ends after the last installed one. */
uint8_t* selected_record(Scpi_Orvanx& orvanx);

/** The objects that the user record refers to; null if there is none. Constructing it counts as progress of
 * the message, since handlers without a module request or a result do so too. */
struct Target {
    explicit Target(const scpi_t* context);

    /** Channel that forwarded commands go to; 0 without a service. */
    int selected_channel() const;

    /** Writes an element of the selected channel's record; nothing happens if there is none. */
    void mirror(int tag, const char* text) const;

    bool initialized; /**< there is a user record */
    IOrvanDeviceManager* device = nullptr;
    Scpi_Orvanx* orvanx = nullptr;
};

/** Queues an error with a text. @return SCPI_RES_ERR */
scpi_result_t fail_unlogged(scpi_t* context, int code, const char* info);

/** Queues an error with a text, and logs another at LOG_ERR. @return SCPI_RES_ERR */
scpi_result_t fail(scpi_t* context, const char* handler, int code, const char* info, const char* logged);

/** The same with one text for both. */
scpi_result_t fail(scpi_t* context, const char* handler, int code, const char* info);

/**
 * To be called when the reader of a mandatory parameter returned false and has queued the error.
 *
 * @param position of the parameter, 0 for the first
 * @param what     the parameter in the log, "parameter 0" when null
 * @return SCPI_RES_ERR
 */
scpi_result_t missing_parameter(scpi_t* context, const char* handler, int position = 0,
                                const char* what = nullptr);

/** Checks the number of bytes that a result function accepted. @return false, with -223 queued and logged,
 * if there are none */
bool result_taken(scpi_t* context, const char* handler, size_t taken);

/** Replies with a text. @return as result_taken; the empty text never is */
bool reply_text(scpi_t* context, const char* handler, const char* text);

/** @return SCPI_RES_OK or SCPI_RES_ERR */
inline scpi_result_t result_of(bool success)
{
    return success ? SCPI_RES_OK : SCPI_RES_ERR;
}

/** A text as the bytes that the device's operations take. */
inline uint8_t* as_bytes(char* text)
{
    return reinterpret_cast<uint8_t*>(text);
}

/** When a set handler mirrors its value. */
enum class MirrorsSet {
    kAlways,
    kOnceCalled, /**< only with a device to call */
};

/**
 * A set handler once it has its parameter: passes the value to the device and mirrors it. The device's result
 * is ignored: a refused value is mirrored too, and the client can detect it only with a query.
 *
 * @param set called with the device, if there is one
 * @return SCPI_RES_OK
 */
template <typename Setter>
scpi_result_t apply_setting(scpi_t* context, int tag, const char* text, Setter set,
                            MirrorsSet mirrors = MirrorsSet::kAlways)
{
    const Target target(context);
    if (target.device != nullptr) {
        set(*target.device);
    }
    if (target.device != nullptr || mirrors == MirrorsSet::kAlways) {
        target.mirror(tag, text);
    }
    return SCPI_RES_OK;
}

/** A set handler with one text parameter. */
scpi_result_t set_text(scpi_t* context, const char* handler, int (IOrvanDeviceManager::*set)(uint8_t*),
                       int tag);

/** How a get handler treats a failing device, and when it mirrors the text. */
enum class GetShape {
    kUsual,         /**< no reply and no error of its own; mirrors after the reply */
    kMirrorsFirst,  /**< as usual, but mirrors before the reply */
    kRepliesAnyway, /**< replies nevertheless, then fails */
    kNeverRefused,  /**< ignores the failure; without a text the reply fails */
};

/**
 * A get handler: queries the device, replies, mirrors the text.
 *
 * @param get called with the device, if there is one, and a zeroed text; 0 is success
 */
template <typename Getter>
scpi_result_t get_value(scpi_t* context, const char* handler, int tag, Getter get,
                        GetShape shape = GetShape::kUsual)
{
    const Target target(context);
    GetterText text = {};
    bool success = shape == GetShape::kNeverRefused;
    if (target.device != nullptr && get(*target.device, text) == 0) {
        success = true;
    }
    if (success && shape == GetShape::kMirrorsFirst) {
        target.mirror(tag, text);
    }
    if (success || shape == GetShape::kRepliesAnyway) {
        success = reply_text(context, handler, text) && success;
    }
    if (success && shape != GetShape::kMirrorsFirst) {
        target.mirror(tag, text);
    }
    return result_of(success);
}

/** A get handler whose operation fills a text. */
scpi_result_t get_text(scpi_t* context, const char* handler, int (IOrvanDeviceManager::*get)(uint8_t*),
                       int tag, GetShape shape = GetShape::kUsual);

/**
 * Queries a module for a handler (modules/module_request.h).
 *
 * @param reply the module's reply with its success word
 * @return false, with -360 queued and the reply logged, if it contains "-ERR"
 */
bool ask_module(scpi_t* context, const char* handler, Scpi_Orvanx& orvanx, int channel,
                const std::string& command, std::string& reply);

/** Replies with the part of a module's reply before its last ";+OK"; result as of reply_text. */
bool reply_of_module(scpi_t* context, const char* handler, std::string reply);

} // namespace HaldeElec::Orvan

#endif
