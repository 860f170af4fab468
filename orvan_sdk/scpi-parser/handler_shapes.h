/**
 * What the row handlers have in common: the way to the device and the module service, the words of their
 * failures, and the shapes of a set and of a get handler. What a handler does otherwise stands at its call.
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

/** Room for a text parameter and its NUL, and for the text of a getter. */
inline constexpr size_t kHandlerTextSize = 256;

/** Reads a mandatory text parameter. @return false with the reader's error queued, -223 for one that is too
 * long */
bool read_text(scpi_t* context, char (&text)[kHandlerTextSize]);

/** A getter's text. The byte behind its room ends a text that fills it. */
using GetterText = char[kHandlerTextSize + 1];

/** The selected channel's record; null where there is none, for a channel that is not installed as well: any
 * may be selected, and the mapping ends behind the last installed one. */
uint8_t* selected_record(Scpi_Orvanx& orvanx);

/** What the user record leads to; both are null when there is none. To ask for it counts as progress of the
 * message, as every handler without a module or a result of its own does. */
struct Target {
    explicit Target(const scpi_t* context);

    /** Channel that forwarded commands go to; 0 without a service. */
    int selected_channel() const;

    /** Writes an element of the selected channel's record; nothing happens where there is none. */
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
 * To be called when the reader of a mandatory parameter gave false, and so has queued the error.
 *
 * @param position of the parameter, 0 for the first
 * @param what     the parameter in the log, "parameter 0" when null
 * @return SCPI_RES_ERR
 */
scpi_result_t missing_parameter(scpi_t* context, const char* handler, int position = 0,
                                const char* what = nullptr);

/** What a handler makes of the bytes that a result function took. @return false, with -223 queued and logged,
 * when there are none */
bool result_taken(scpi_t* context, const char* handler, size_t taken);

/** Replies with a text. @return as result_taken; the empty text never is */
bool reply_text(scpi_t* context, const char* handler, const char* text);

/** @return SCPI_RES_OK or SCPI_RES_ERR */
inline scpi_result_t result_of(bool success)
{
    return success ? SCPI_RES_OK : SCPI_RES_ERR;
}

/** The bytes that the device's operations take a text as. */
inline uint8_t* as_bytes(char* text)
{
    return reinterpret_cast<uint8_t*>(text);
}

/** When a set handler writes the mirror. */
enum class MirrorsSet {
    kAlways,
    kOnceCalled, /**< only with a device to call */
};

/**
 * A set handler once it has its parameter: tells the device and mirrors the value. What the device makes of
 * it is not looked at: a refused value is mirrored too, and the client learns of it by asking.
 *
 * @param set called with the device, when there is one
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

/** How a get handler takes a device that fails, and when it writes the mirror. */
enum class GetShape {
    kUsual,         /**< no reply and no error of its own then; the mirror behind the reply */
    kMirrorsFirst,  /**< as usual, but the mirror ahead of the reply */
    kRepliesAnyway, /**< replies all the same, and fails behind that */
    kNeverRefused,  /**< does not notice; without a text the reply is what fails */
};

/**
 * A get handler: asks the device, replies, mirrors the text.
 *
 * @param get called with the device and a zeroed text, when there is a device; 0 is success
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
 * Asks a module on behalf of a handler (modules/module_request.h).
 *
 * @param reply the module's reply with its success word
 * @return false, with -360 queued and the reply logged, when "-ERR" stands in it
 */
bool ask_module(scpi_t* context, const char* handler, Scpi_Orvanx& orvanx, int channel,
                const std::string& command, std::string& reply);

/** Replies with what a module said ahead of its last ";+OK"; false as reply_text. */
bool reply_of_module(scpi_t* context, const char* handler, std::string reply);

} // namespace HaldeElec::Orvan

#endif
