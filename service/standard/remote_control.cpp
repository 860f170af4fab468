#include "remote_control.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>

#include "service/notify.h"

namespace orvan_service {
namespace {

std::string status_of(const std::map<const void*, RemoteState>& sessions)
{
    if (sessions.empty()) {
        return {};
    }
    const auto locked_out = std::count_if(sessions.begin(), sessions.end(), [](const auto& session) {
        return session.second == RemoteState::kLockout;
    });
    return "in remote control by " + std::to_string(sessions.size()) +
           (sessions.size() == 1 ? " session" : " sessions") +
           (locked_out > 0 ? ", local lockout requested" : "");
}

} // namespace

void note_remote(const void* session, RemoteState state)
{
    static std::mutex mutex;
    static std::map<const void*, RemoteState> sessions;
    const std::lock_guard lock(mutex);
    const std::string before = status_of(sessions);
    if (state == RemoteState::kLocal) {
        sessions.erase(session);
    } else if (state != RemoteState::kUnchanged) {
        sessions[session] = state;
    }
    if (const std::string now = status_of(sessions); now != before) {
        notify_status(StatusPart::kRemote, now);
    }
}

} // namespace orvan_service
