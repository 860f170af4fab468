/**
 * Requests and replies between libmicrohttpd and our types.
 */
#ifndef ORVAN_WEB_MHD_H
#define ORVAN_WEB_MHD_H

#include <memory>
#include <optional>

#include <microhttpd.h>

#include "http/exchange.h"

namespace orvan_web {

/** The head of a request; `peer` and `body` are the caller's. */
Request read_head(MHD_Connection* connection, const char* url, const char* method);

/** Why the length of a request's body, or its host, is ambiguous or not supported: programs between the
 * client and this server might take another view. */
std::optional<Response> refuse_framing(MHD_Connection* connection);

/** Whether a body follows the head. */
bool announces_body(const Request& request);

/** Length of the announced body; empty if it is sent in chunks, or is too large for the type. */
std::optional<size_t> announced_length(const Request& request);

struct DestroyMhdResponse {
    void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using MhdResponse = std::unique_ptr<MHD_Response, DestroyMhdResponse>;

/** Adds the type, the headers of `response` and those that each reply has. */
void add_headers(MHD_Response* to, const Response& response);

/** Queues a reply.
 *  @return MHD_NO if that is not possible, and the connection has to be closed */
MHD_Result queue_reply(MHD_Connection* connection, const Response& response);

} // namespace orvan_web

#endif
