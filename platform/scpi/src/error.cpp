#include "scpi/error.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "error_table.h"
#include "scpi/extensions.h"
#include "scpi/ieee488.h"
#include "status.h"

namespace {

struct ErrorClass {
    int first;
    int last;
    scpi_reg_val_t event;
};

constexpr ErrorClass kClasses[] = {
    {1, 32767, ESR_DER},   {-199, -100, ESR_CER},  {-299, -200, ESR_EER},
    {-399, -300, ESR_DER}, {-499, -400, ESR_QERR}, {-599, -500, ESR_PON},
    {-699, -600, ESR_URQ}, {-799, -700, ESR_REQ},  {-899, -800, ESR_OPC},
};

scpi_reg_val_t event_of(int16_t number)
{
    for (const ErrorClass& c : kClasses) {
        if (number >= c.first && number <= c.last) {
            return c.event;
        }
    }
    return 0;
}

/** Null for an empty text or when out of memory. */
char* copy_info(const char* info, size_t info_len)
{
    if (info == nullptr) {
        return nullptr;
    }
    const size_t len = info_len == 0 ? std::strlen(info) : ::strnlen(info, info_len);
    if (len == 0) {
        return nullptr;
    }
    char* const copy = static_cast<char*>(std::malloc(len + 1));
    if (copy != nullptr) {
        std::memcpy(copy, info, len);
        copy[len] = '\0';
    }
    return copy;
}

/** `index` counts from the oldest entry. */
scpi_error_t& entry(scpi_t* context, int index)
{
    return context->error_queue[(context->error_queue_first + index) % context->error_queue_size];
}

scpi_error_t& newest(scpi_t* context)
{
    return entry(context, context->error_queue_count - 1);
}

/** True if the entry was queued; false if the overflow mark took its place. */
bool enqueue(scpi_t* context, int16_t number, const char* info, size_t info_len)
{
    if (context->error_queue == nullptr || context->error_queue_size <= 0) {
        return true;
    }
    if (context->error_queue_count >= context->error_queue_size) {
        SCPI_ErrorFree(&newest(context));
        newest(context).error_code = SCPI_ERROR_QUEUE_OVERFLOW;
        return false;
    }
    ++context->error_queue_count;
    newest(context) = {number, copy_info(info, info_len)};
    return true;
}

} // namespace

void SCPI_ErrorPush(scpi_t* context, int_fast16_t err)
{
    SCPI_ErrorPushEx(context, err, nullptr, 0);
}

void SCPI_ErrorPushEx(scpi_t* context, int_fast16_t err, const char* info, size_t info_len)
{
    const int16_t number = static_cast<int16_t>(err);
    if (number == 0) {
        return;
    }
    scpi_reg_val_t events = event_of(number);
    if (!enqueue(context, number, info, info_len)) {
        events |= ESR_DER;
    }
    context->cmd_error = true;
    context->message_error = true;
    SCPI_RegSetBits(context, SCPI_REG_ESR, events);
    if (context->interface != nullptr && context->interface->error != nullptr) {
        context->interface->error(context, err);
    }
}

void SCPI_ErrorUpdateEx(scpi_t* context, const char* info, size_t info_len)
{
    if (context->error_queue_count <= 0 || newest(context).error_code == SCPI_ERROR_QUEUE_OVERFLOW) {
        return;
    }
    // Copied first: the new text may be part of the old one.
    char* const copy = copy_info(info, info_len);
    SCPI_ErrorFree(&newest(context));
    newest(context).device_dependent_info = copy;
}

scpi_bool_t SCPI_ErrorPop(scpi_t* context, scpi_error_t* error)
{
    *error = {};
    if (context->error_queue_count <= 0) {
        return false;
    }
    std::swap(*error, entry(context, 0));
    context->error_queue_first =
        static_cast<int16_t>((context->error_queue_first + 1) % context->error_queue_size);
    --context->error_queue_count;
    scpi::update_status_byte(context);
    return true;
}

void SCPI_ErrorFree(scpi_error_t* error)
{
    std::free(error->device_dependent_info);
    error->device_dependent_info = nullptr;
}

void SCPI_ErrorClear(scpi_t* context)
{
    for (int i = 0; i < context->error_queue_count; ++i) {
        SCPI_ErrorFree(&entry(context, i));
        entry(context, i) = {};
    }
    context->error_queue_first = 0;
    context->error_queue_count = 0;
    scpi::update_status_byte(context);
}

int32_t SCPI_ErrorCount(const scpi_t* context)
{
    return context->error_queue_count;
}

const char* SCPI_ErrorTranslate(int_fast16_t err)
{
    using scpi::ErrorText;
    const ErrorText* const row =
        std::lower_bound(scpi::error_texts_begin, scpi::error_texts_end, err,
                         [](const ErrorText& text, int_fast16_t number) { return text.number > number; });
    return row != scpi::error_texts_end && row->number == err ? row->text : "Unknown error";
}
