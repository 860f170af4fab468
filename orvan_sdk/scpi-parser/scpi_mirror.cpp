#include <algorithm>

#include "handler_shapes.h"
#include "orvan_sdk/scpi-parser/scpi-bypass.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include <scpi/types.h>

void bypass_apply_db_updates(scpi_t* ctx, Scpi_Orvanx* parser, const std::string& reply)
{
    auto* u = static_cast<userContext_t*>(ctx->user_context);
    if (u == nullptr || parser == nullptr) {
        return;
    }
    uint8_t* const base = HaldeElec::Orvan::selected_record(*parser);
    if (base == nullptr) {
        return;
    }

    size_t roff = 0;
    for (int i = 0; i < u->bypass_item_count; ++i) {
        const bypassItem_t& item = u->bypass_items[i];
        const OrvanElementData* const e = parser->get_ElemByTag(item.tag);
        const size_t next = std::min(reply.find(';', roff), reply.size());
        const std::string seg = reply.substr(roff, next - roff);
        const size_t next_segment = std::min(next + 1, reply.size());

        const bool used_up = seg.empty() && roff >= reply.size();
        if (!used_up && is_seg_error(seg)) {
            u->had_error_line = 1;
            roff = next_segment;
        } else if (!used_up && item.is_query != 0) {
            update_orvan_DB(base, e, seg.c_str());
            roff = next_segment;
        } else if (item.is_query == 0 && item.param_len > 0) {
            // A set has no segment in the reply.
            update_orvan_DB(base, e, item.param);
        }
    }
}
