#include "http/mhd.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

namespace orvan_web {
namespace {

constexpr std::array<std::pair<const char*, const char*>, 6> kSecurityHeaders{{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; font-src 'self'; "
     "connect-src 'self'; manifest-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    // With no-referrer, browsers would hide the page's own origin in some requests.
    {"Referrer-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
}};

constexpr const char* kCacheControl = "Cache-Control";

std::string small_letters(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

using Visit = std::function<void(std::string name, std::string value)>;

void visit_values(MHD_Connection* connection, MHD_ValueKind kind, const Visit& visit)
{
    MHD_get_connection_values_n(
        connection, kind,
        [](void* closure, MHD_ValueKind, const char* name, size_t name_size, const char* value,
           size_t value_size) {
            (*static_cast<const Visit*>(closure))(std::string(name, name_size),
                                                  value == nullptr ? std::string()
                                                                   : std::string(value, value_size));
            return MHD_YES;
        },
        const_cast<Visit*>(&visit));
}

} // namespace

Request read_head(MHD_Connection* connection, const char* url, const char* method)
{
    Request request;
    request.method = std::string(method) == MHD_HTTP_METHOD_HEAD ? MHD_HTTP_METHOD_GET : method;
    request.path = url;
    visit_values(connection, MHD_GET_ARGUMENT_KIND, [&](std::string name, std::string value) {
        request.query[std::move(name)] = std::move(value);
    });
    visit_values(connection, MHD_HEADER_KIND, [&](std::string name, const std::string& value) {
        std::string& known = request.headers[small_letters(std::move(name))];
        known += (known.empty() ? "" : ", ") + value;
    });
    return request;
}

std::optional<Response> refuse_framing(MHD_Connection* connection)
{
    std::map<std::string, int> counts;
    std::string encoding;
    visit_values(connection, MHD_HEADER_KIND, [&](std::string name, std::string value) {
        name = small_letters(std::move(name));
        ++counts[name];
        if (name == "transfer-encoding") {
            encoding = small_letters(std::move(value));
        }
    });
    if (counts["host"] != 1) {
        return problem(400, "exactly one Host header is needed");
    }
    if (counts["content-length"] + counts["transfer-encoding"] > 1) {
        return problem(400, "the length of the body is ambiguous");
    }
    if (counts["transfer-encoding"] == 1 && encoding != "chunked") {
        return problem(501, "bodies are sent plain or in chunks");
    }
    return std::nullopt;
}

bool announces_body(const Request& request)
{
    return request.headers.contains("transfer-encoding") || announced_length(request) != 0u;
}

std::optional<size_t> announced_length(const Request& request)
{
    const std::string text = request.header("content-length");
    if (text.empty() && !request.headers.contains("transfer-encoding")) {
        return 0;
    }
    size_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    return error == std::errc() ? std::optional(length) : std::nullopt;
}

void add_headers(MHD_Response* to, const Response& response)
{
    bool cached = false;
    for (const auto& [name, value] : response.headers) {
        MHD_add_response_header(to, name.c_str(), value.c_str());
        cached = cached || name == kCacheControl;
    }
    if (!cached) {
        MHD_add_response_header(to, kCacheControl, "no-store");
    }
    if (response.status != MHD_HTTP_NO_CONTENT && response.status != MHD_HTTP_NOT_MODIFIED) {
        MHD_add_response_header(to, MHD_HTTP_HEADER_CONTENT_TYPE, response.type.c_str());
    }
    for (const auto& [name, value] : kSecurityHeaders) {
        MHD_add_response_header(to, name, value);
    }
}

MHD_Result queue_reply(MHD_Connection* connection, const Response& response)
{
    const MhdResponse reply(MHD_create_response_from_buffer(
        response.body.size(), const_cast<char*>(response.body.data()), MHD_RESPMEM_MUST_COPY));
    if (!reply) {
        return MHD_NO;
    }
    add_headers(reply.get(), response);
    return MHD_queue_response(connection, static_cast<unsigned>(response.status), reply.get());
}

} // namespace orvan_web
