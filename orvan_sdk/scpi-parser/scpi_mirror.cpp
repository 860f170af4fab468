#include "orvan_sdk/scpi-parser/scpi-bypass.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <scpi/types.h>

#include "dataorvan.h"
#include "handler_shapes.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace {

template <typename T>
void store(uint8_t* dst, T value, size_t size)
{
    std::memcpy(dst, &value, std::min(sizeof value, size));
}

// The factor is cut to the integer type. Unsigned arithmetic: what is past the type's range wraps.
template <typename Integer, typename Number>
Integer scaled(Number number, double factor)
{
    return static_cast<Integer>(static_cast<uint64_t>(number) *
                                static_cast<uint64_t>(static_cast<Integer>(factor)));
}

void store_text(uint8_t* dst, const char* str, size_t size)
{
    if (size == 0)
        return;
    // A damaged text of the settings may have no end.
    const size_t len = strnlen(str, size - 1);
    std::memcpy(dst, str, len);
    dst[len] = '\0';
}

bool is_on(std::string_view word)
{
    return word == "ON" || word == "On" || word == "1";
}

} // namespace

void update_orvan_DB(uint8_t* base, const OrvanElementData* e, const char* str)
{
    if (base == nullptr || e == nullptr || str == nullptr)
        return;
    uint8_t* const dst = base + e->pos;
    switch (e->type) {
    case TYPE_BOOL:
        store<int>(dst, is_on(str) ? 1 : 0, e->size);
        break;
    case TYPE_INT32:
        store(dst, scaled<int32_t>(std::strtol(str, nullptr, 10), e->factor), e->size);
        break;
    case TYPE_UINT32:
        store(dst, scaled<uint32_t>(std::strtoul(str, nullptr, 10), e->factor), e->size);
        break;
    case TYPE_INT64:
        store(dst, scaled<int64_t>(std::strtoll(str, nullptr, 10), e->factor), e->size);
        break;
    case TYPE_UINT64:
        store(dst, scaled<uint64_t>(std::strtoull(str, nullptr, 10), e->factor), e->size);
        break;
    case TYPE_FLOAT:
        store(dst, static_cast<float>(std::strtod(str, nullptr)) * static_cast<float>(e->factor), e->size);
        break;
    case TYPE_DOUBLE:
        store(dst, std::strtod(str, nullptr) * e->factor, e->size);
        break;
    case TYPE_STRING:
        store_text(dst, str, e->size);
        break;
    }
}

void bypass_apply_db_updates(scpi_t* ctx, Scpi_Orvanx* parser, const std::string& reply)
{
    auto* u = static_cast<userContext_t*>(ctx->user_context);
    if (u == nullptr || parser == nullptr)
        return;
    uint8_t* const base = HaldeElec::Orvan::selected_record(*parser);
    if (base == nullptr)
        return;

    size_t roff = 0;
    for (int i = 0; i < u->bypass_item_count; ++i) {
        const bypassItem_t& item = u->bypass_items[i];
        const OrvanElementData* const e = parser->get_ElemByTag(item.tag);
        const size_t next = std::min(reply.find(';', roff), reply.size());
        const std::string seg = reply.substr(roff, next - roff);
        const size_t behind_seg = std::min(next + 1, reply.size());

        const bool used_up = seg.empty() && roff >= reply.size();
        if (!used_up && is_seg_error(seg)) {
            u->had_error_line = 1;
            roff = behind_seg;
        } else if (!used_up && item.is_query != 0) {
            update_orvan_DB(base, e, seg.c_str());
            roff = behind_seg;
        } else if (item.is_query == 0 && item.param_len > 0) {
            // A set has no segment of its own in the reply.
            update_orvan_DB(base, e, item.param);
        }
    }
}
