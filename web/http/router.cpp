#include "http/router.h"

#include <optional>

namespace orvan_web {
namespace {

std::string_view take_part(std::string_view& path)
{
    const size_t end = std::min(path.find('/', 1), path.size());
    const std::string_view part = path.substr(1, end - 1);
    path.remove_prefix(end);
    return part;
}

// The parts in braces, if the path is the pattern's.
std::optional<std::vector<std::string>> parameters_of(std::string_view pattern, std::string_view path)
{
    std::vector<std::string> parameters;
    while (!pattern.empty() && path.starts_with('/')) {
        const std::string_view wanted = take_part(pattern);
        const std::string_view part = take_part(path);
        if (wanted.starts_with('{') && !part.empty()) {
            parameters.emplace_back(part);
        } else if (wanted != part) {
            return std::nullopt;
        }
    }
    if (!pattern.empty() || !path.empty()) {
        return std::nullopt;
    }
    return parameters;
}

void add_method(std::string& allow, std::string_view method)
{
    if ((", " + allow + ", ").find(", " + std::string(method) + ", ") == std::string::npos) {
        allow += (allow.empty() ? "" : ", ") + std::string(method);
    }
}

} // namespace

Match find_route(const std::vector<Route>& routes, std::string_view method, std::string_view path)
{
    Match match;
    for (const Route& route : routes) {
        auto parameters = parameters_of(route.path, path);
        if (!parameters) {
            continue;
        }
        add_method(match.allow, route.method);
        if (std::string_view(route.method) == "GET") {
            add_method(match.allow, "HEAD");
        }
        if (method == route.method &&
            (match.route == nullptr || parameters->size() < match.parameters.size())) {
            match.route = &route;
            match.parameters = std::move(*parameters);
        }
    }
    return match;
}

} // namespace orvan_web
