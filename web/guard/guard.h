#ifndef ORVAN_WEB_GUARD_H
#define ORVAN_WEB_GUARD_H

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "guard/attempts.h"
#include "guard/credentials.h"
#include "guard/host_names.h"
#include "guard/password_worker.h"
#include "guard/sessions.h"
#include "http/access.h"
#include "http/server.h"

namespace orvan_web {

struct GuardOptions {
    std::filesystem::path state; /**< folder of the password and the tokens */
    bool read_only = false;
    bool changes_without_password = false;
};

/**
 * Decides who may do what. Everybody may look. A change needs a token, of a session or of a program, or comes
 * from the instrument's own page where no password is asked for. Pages of other machines can do neither.
 */
class Guard : public Gate {
public:
    /** @param names must outlive this object */
    Guard(GuardOptions options, const HostNames& names);

    /** Refuses hosts that are not this instrument's: 421. */
    std::optional<Response> refuse(const Request& request, const std::string& local) override;

    /** 403, with the reason; 401, if the password or another token helps; 415. */
    std::optional<Response> refuse_change(const Request& request) override;

    /** POST and DELETE /api/v1/session. Their handlers must not be called after the guard's end. */
    std::vector<Route> routes();

    /** Any thread. */
    Access access();

private:
    void begin_session(const std::shared_ptr<Exchange>& exchange);
    void end_session(const std::shared_ptr<Exchange>& exchange);
    void checked(Exchange& exchange, const std::string& hash, bool right);
    bool is_valid(const std::string& token);
    const std::string& current_hash();

    const GuardOptions m_options;
    const HostNames& m_names;
    std::mutex m_mutex; /**< of the following */
    Credentials m_credentials;
    std::string m_hash_of_sessions; /**< of the password with which they began */
    Attempts m_attempts;
    Sessions m_sessions;
    PasswordWorker m_worker; /**< the last one: it ends before what its checks use */
};

} // namespace orvan_web

#endif
