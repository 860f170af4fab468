#include "guard/guard.h"

#include <memory>

#include <strings.h>
#include <syslog.h>

#include <cjson/cJSON.h>

#include "guard/authority.h"
#include "guard/secrets.h"

namespace orvan_web {
namespace {

constexpr const char* kReadOnly = "the web server is read-only";
constexpr const char* kNoPassword =
    "changes are off until a password is set: run orvan-web --set-password on the instrument";

Response needs_token(std::string_view detail, const char* challenge)
{
    Response response = problem(401, detail);
    response.headers.emplace_back("WWW-Authenticate", challenge);
    return response;
}

Response try_later(int status, std::string_view detail, std::chrono::seconds wait)
{
    Response response = problem(status, detail);
    response.headers.emplace_back("Retry-After", std::to_string(wait.count()));
    return response;
}

/** The token of an Authorization header; empty if there is none of this scheme. */
std::optional<std::string> bearer_token(const Request& request)
{
    constexpr std::string_view kScheme = "bearer ";
    const std::string value = request.header("authorization");
    if (value.empty()) {
        return std::nullopt;
    }
    if (::strncasecmp(value.c_str(), kScheme.data(), kScheme.size()) != 0) {
        return std::string();
    }
    const size_t begin = value.find_first_not_of(' ', kScheme.size());
    return begin == std::string::npos ? std::string() : value.substr(begin);
}

bool has_body(const Request& request)
{
    const std::string length = request.header("content-length");
    return !(length.empty() || length == "0") || !request.header("transfer-encoding").empty();
}

bool is_json(const Request& request)
{
    std::string type = request.header("content-type");
    type = type.substr(0, type.find(';'));
    type.erase(type.find_last_not_of(" \t") + 1);
    return ::strcasecmp(type.c_str(), "application/json") == 0;
}

enum class From { kOwnPage, kForeignPage, kNoPage };

From origin_of(const Request& request)
{
    const std::string text = request.header("origin");
    if (text.empty()) {
        return From::kNoPage;
    }
    const auto origin = parse_origin(text);
    const auto host = parse_authority(request.header("host"));
    return origin && host && same_origin(*origin, *host) ? From::kOwnPage : From::kForeignPage;
}

std::optional<std::string> password_in(const std::string& body)
{
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> document(
        cJSON_ParseWithLength(body.data(), body.size()), cJSON_Delete);
    const cJSON* const password = cJSON_GetObjectItemCaseSensitive(document.get(), "password");
    return cJSON_IsString(password) ? std::optional<std::string>(password->valuestring) : std::nullopt;
}

constexpr const char* kPasswordSchema =
    R"({"type":"object","properties":{"password":{"type":"string"}},"required":["password"]})";
constexpr const char* kSessionSchema =
    R"({"type":"object","properties":{"token":{"type":"string"},"expires_s":{"type":"integer"}}})";
constexpr const char* kNothingSchema = R"({"type":"object"})";

} // namespace

Guard::Guard(GuardOptions options, const HostNames& names)
    : m_options(std::move(options)), m_names(names), m_credentials(m_options.state)
{
}

std::optional<Response> Guard::refuse(const Request& request, const std::string& local)
{
    const auto host = parse_authority(request.header("host"));
    if (host && m_names.allows(host->host, local)) {
        return std::nullopt;
    }
    return problem(421, "this instrument is not called \"" + request.header("host") +
                            "\"; orvan-web --name NAME allows a further name");
}

std::optional<Response> Guard::refuse_change(const Request& request)
{
    const std::lock_guard lock(m_mutex);
    if (m_options.read_only) {
        return problem(403, kReadOnly);
    }
    if (has_body(request) && !is_json(request)) {
        return problem(415, "changes are sent as application/json");
    }
    const auto token = bearer_token(request);
    if (token) {
        return is_valid(*token) ? std::nullopt
                                : std::optional(needs_token("the token is not valid, or no longer",
                                                            "Bearer error=\"invalid_token\""));
    }
    if (origin_of(request) != From::kOwnPage) {
        return problem(403, "changes come from the instrument's own page or with a token");
    }
    if (!current_hash().empty()) {
        return needs_token("the password is needed", "Bearer");
    }
    return m_options.changes_without_password ? std::nullopt : std::optional(problem(403, kNoPassword));
}

// Sessions do not outlive the password with which they began.
const std::string& Guard::current_hash()
{
    const std::string& hash = m_credentials.password_hash();
    if (hash != m_hash_of_sessions) {
        m_sessions.end_all();
        m_hash_of_sessions = hash;
    }
    return hash;
}

bool Guard::is_valid(const std::string& token)
{
    current_hash();
    return m_sessions.has(token, Sessions::Clock::now()) || !m_credentials.name_of(token).empty();
}

Access Guard::access()
{
    const std::lock_guard lock(m_mutex);
    const bool password_set = !current_hash().empty();
    if (m_options.read_only) {
        return {false, password_set, kReadOnly};
    }
    if (!password_set && !m_options.changes_without_password) {
        return {false, false, kNoPassword};
    }
    return {true, password_set, ""};
}

std::vector<Route> Guard::routes()
{
    return {{"POST", "/api/v1/session", false, "Exchange the password for a token", kPasswordSchema,
             kSessionSchema,
             [this](const std::shared_ptr<Exchange>& exchange, const std::vector<std::string>&) {
                 begin_session(exchange);
             }},
            {"DELETE", "/api/v1/session", false, "End the session of the token", nullptr, kNothingSchema,
             [this](const std::shared_ptr<Exchange>& exchange, const std::vector<std::string>&) {
                 end_session(exchange);
             }}};
}

void Guard::begin_session(const std::shared_ptr<Exchange>& exchange)
{
    const Request& request = exchange->request();
    if (!is_json(request)) {
        return exchange->reply(problem(415, "the password is sent as application/json"));
    }
    if (origin_of(request) == From::kForeignPage) {
        return exchange->reply(problem(403, "only the instrument's own page may ask for the password"));
    }
    const auto password = password_in(request.body);
    if (!password) {
        return exchange->reply(problem(400, R"(the body is {"password":"..."})"));
    }
    const std::lock_guard lock(m_mutex);
    const std::string hash = current_hash();
    if (hash.empty()) {
        return exchange->reply(problem(409, "no password is set"));
    }
    if (const auto wait = m_attempts.begin(request.peer, Attempts::Clock::now())) {
        return exchange->reply(try_later(429, "too many wrong passwords", *wait));
    }
    const auto check = [this, exchange, hash, password = *password] {
        checked(*exchange, hash, password_matches(password, hash));
    };
    if (!m_worker.add(check)) {
        exchange->reply(try_later(503, "too many passwords are being checked", std::chrono::seconds(2)));
    }
}

void Guard::checked(Exchange& exchange, const std::string& hash, bool right)
{
    const std::string& peer = exchange.request().peer;
    if (!right) {
        ::syslog(LOG_WARNING, "wrong password from %s", peer.c_str());
        return exchange.reply(needs_token("wrong password", "Bearer"));
    }
    std::string token;
    {
        const std::lock_guard lock(m_mutex);
        if (current_hash() != hash) {
            return exchange.reply(needs_token("the password has just changed", "Bearer"));
        }
        m_attempts.succeeded(peer);
        token = m_sessions.begin(Sessions::Clock::now());
    }
    ::syslog(LOG_NOTICE, "session begun from %s", peer.c_str());
    constexpr auto kSeconds = std::chrono::seconds(Sessions::kLifetime).count();
    exchange.reply({200,
                    "application/json",
                    R"({"token":")" + token + R"(","expires_s":)" + std::to_string(kSeconds) + "}",
                    {}});
}

void Guard::end_session(const std::shared_ptr<Exchange>& exchange)
{
    const auto token = bearer_token(exchange->request());
    const std::lock_guard lock(m_mutex);
    if (token && m_sessions.end(*token, Sessions::Clock::now())) {
        exchange->reply({200, "application/json", "{}", {}});
    } else {
        exchange->reply(needs_token("there is no such session", "Bearer"));
    }
}

} // namespace orvan_web
