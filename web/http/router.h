#ifndef ORVAN_WEB_ROUTER_H
#define ORVAN_WEB_ROUTER_H

#include <string>
#include <string_view>
#include <vector>

#include "http/exchange.h"

namespace orvan_web {

/** What a path leads to. */
struct Match {
    const Route* route = nullptr;        /**< null: none with this method */
    std::vector<std::string> parameters; /**< the parts of the path that the route has in braces */
    std::string allow; /**< "GET, HEAD, PATCH": the methods of the path; empty: no route has it */
};

/**
 * Finds the route of a request. A literal part of a path wins over one in braces.
 *
 * @param method "GET" for HEAD as well
 */
Match find_route(const std::vector<Route>& routes, std::string_view method, std::string_view path);

} // namespace orvan_web

#endif
