#include "orvan_sdk/scpi-parser/scpi-bypass.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include <syslog.h>

#include "modules/module_request.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "parser_library.h"

namespace {

bool is_letter(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}
bool is_name_char(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

const char* end_of_input(const scpi_t* ctx)
{
    return ctx->buffer.data + ctx->buffer.position;
}

scpi_result_t fail(scpi_t* ctx, int_fast16_t code, const char* function, const char* reason)
{
    SCPI_ErrorPush(ctx, code);
    ::syslog(LOG_ERR, "%s: %s", function, reason);
    return SCPI_RES_ERR;
}

void add_item(scpi_t* ctx, userContext_t* u)
{
    const lex_state_t& params = ctx->param_list.lex_state;
    const scpi_const_buffer_t& header = ctx->param_list.cmd_raw;

    bypassItem_t& item = u->bypass_items[u->bypass_item_count++];
    item.tag = SCPI_CmdTag(ctx);
    item.is_query = header.length > 0 && header.data[header.length - 1] == '?' ? 1 : 0;
    item.param_len = 0;
    item.param[0] = '\0';
    if (item.is_query == 0) {
        const size_t kept = std::min(static_cast<size_t>(params.len), kBypassParamSize - 1);
        if (kept > 0) {
            std::memcpy(item.param, params.buffer, kept);
        }
        item.param[kept] = '\0';
        item.param_len = static_cast<int>(kept);
    }
}

} // namespace

scpi_result_t OrvanX_cmdBypass(scpi_t* context)
{
    auto* u = static_cast<userContext_t*>(context->user_context);
    if (u == nullptr || u->ptrParser == nullptr) {
        return fail(context, SCPI_ERROR_DATA_CORRUPT_OR_STALE, __func__, "bad parser handle");
    }

    lex_state_t& params = context->param_list.lex_state;
    params.pos = params.buffer + params.len;

    if (u->bypass_accum_active == 0 && !start_bypass_run(context, u)) {
        return fail(context, SCPI_ERROR_SYSTEM, __func__, "alloc B-run failed");
    }
    if (!append_current_subcmd(context, u)) {
        fail(context, SCPI_ERROR_TOO_MUCH_DATA, __func__, "B-run buffer overflow");
        end_bypass_run(u);
        return SCPI_RES_ERR;
    }
    if (u->bypass_item_count >= kBypassMaxItems) {
        fail(context, SCPI_ERROR_TOO_MUCH_DATA, __func__, "bypass_items overflow");
        end_bypass_run(u);
        return SCPI_RES_ERR;
    }
    add_item(context, u);

    if (next_is_bypass(context, params.pos, end_of_input(context), OrvanX_cmdBypass)) {
        return SCPI_RES_OK;
    }
    const scpi_result_t result =
        send_bypass_batch(context, u->ptrParser, u->bypass_accum_buf, u->bypass_accum_len);
    end_bypass_run(u);
    return result;
}

bool start_bypass_run(scpi_t* ctx, userContext_t* u)
{
    const auto left = static_cast<size_t>(end_of_input(ctx) - ctx->param_list.cmd_raw.data);
    const size_t cap = std::max<size_t>(left, 1);
    u->bypass_accum_buf = static_cast<char*>(std::malloc(cap));
    const bool open = u->bypass_accum_buf != nullptr;
    u->bypass_accum_active = open ? 1 : 0;
    u->bypass_accum_len = 0;
    u->bypass_accum_cap = open ? cap : 0;
    return open;
}

void end_bypass_run(userContext_t* u)
{
    std::free(u->bypass_accum_buf);
    u->bypass_accum_buf = nullptr;
    u->bypass_accum_len = 0;
    u->bypass_accum_cap = 0;
    u->bypass_accum_active = 0;
    u->bypass_item_count = 0;
    u->had_error_line = 0;
}

bool append_current_subcmd(scpi_t* ctx, userContext_t* u)
{
    const char* const hdr = ctx->param_list.cmd_raw.data;
    const char* const pbuf = ctx->param_list.lex_state.buffer;
    const auto plen = static_cast<size_t>(ctx->param_list.lex_state.len);
    // The byte after the header is the client's separator; further ones are dropped.
    const size_t hlen = ctx->param_list.cmd_raw.length + (plen > 0 ? 1 : 0);
    if (u->bypass_accum_active == 0 || u->bypass_accum_len + hlen + plen + 1 > u->bypass_accum_cap) {
        return false;
    }

    char* out = u->bypass_accum_buf + u->bypass_accum_len;
    out = std::copy_n(hdr, hlen, out);
    if (plen > 0) {
        out = std::copy_n(pbuf, plen, out);
    }
    *out++ = ';';
    u->bypass_accum_len = static_cast<size_t>(out - u->bypass_accum_buf);
    return true;
}

const char* skip_ws_(const char* p, const char* end)
{
    while (p < end && (*p == ' ' || *p == '\t')) {
        ++p;
    }
    return p;
}

const char* scan_next_header(const char* p, const char* end, const char** hdr, size_t* hlen)
{
    p = skip_ws_(p, end);
    if (p < end && *p == ';') {
        p = skip_ws_(p + 1, end);
    }
    const char* const start = p;
    if (p >= end || (*p != ':' && *p != '*')) {
        return nullptr;
    }
    ++p;
    if (p >= end || !is_letter(*p)) {
        return nullptr;
    }
    p = std::find_if_not(p, end, is_name_char);
    while (end - p >= 2 && p[0] == ':' && is_letter(p[1])) {
        p = std::find_if_not(p + 1, end, is_name_char);
    }
    if (p < end && *p == '?') {
        ++p;
    }
    *hdr = start;
    *hlen = static_cast<size_t>(p - start);
    return p;
}

bool next_is_bypass(scpi_t* ctx, const char* after_curr, const char* line_end,
                    scpi_command_callback_t bypass_cb)
{
    const char* hdr = nullptr;
    size_t hlen = 0;
    if (scan_next_header(after_curr, line_end, &hdr, &hlen) == nullptr) {
        return false;
    }
    const scpi_command_t* const row = HaldeElec::Orvan::find_row(ctx, hdr, hlen);
    return row != nullptr && row->callback == bypass_cb;
}

scpi_result_t send_bypass_batch(scpi_t* ctx, void* parser_opaque, const char* buf, size_t len)
{
    if (parser_opaque == nullptr) {
        SCPI_ErrorPush(ctx, SCPI_ERROR_DATA_CORRUPT_OR_STALE);
        return SCPI_RES_ERR;
    }
    auto* parser = static_cast<Scpi_Orvanx*>(parser_opaque);
    std::string cmd;
    cmd.reserve(len + 2);
    cmd.assign(buf, len);
    if (!cmd.ends_with('\n')) {
        cmd += cmd.ends_with('\r') ? "\n" : "\r\n";
    }

    std::string reply = HaldeElec::Orvan::request_module(*parser, parser->getSelectedChannel(), cmd);
    strip_trailing_ok(reply);
    bypass_apply_db_updates(ctx, parser, reply);
    if (!reply.empty() && SCPI_ResultCharacters(ctx, reply.c_str(), std::strlen(reply.c_str())) == 0) {
        return fail(ctx, SCPI_ERROR_TOO_MUCH_DATA, __func__, "emit failed");
    }
    return SCPI_RES_OK;
}

void strip_trailing_ok(std::string& s)
{
    if (const size_t ok = s.rfind("+OK"); ok != std::string::npos) {
        s.erase(ok);
    }
    if (s.ends_with(';')) {
        s.pop_back();
    }
}

bool is_seg_error(const std::string& s)
{
    return s.starts_with("-ERR");
}
