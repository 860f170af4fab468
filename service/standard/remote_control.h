#ifndef ORVAN_SERVICE_REMOTE_CONTROL_H
#define ORVAN_SERVICE_REMOTE_CONTROL_H

namespace orvan_service {

/** What a client has asked for; the front panel works in any case. */
enum class RemoteState {
    kLocal,
    kRemote,
    kLockout,  /**< remote, with local lockout */
    kUnchanged /**< as before */
};

/**
 * Notes the state of a standard session; kLocal at its end. The status line of the service shows how many
 * sessions are in remote control. Any thread; blocks as notify() does, and only if the line changes.
 *
 * @param session its address is all that counts
 */
void note_remote(const void* session, RemoteState state);

} // namespace orvan_service

#endif
