#include "sync_stream.h"

#include <new>

#include <syslog.h>

namespace orvan_service::hislip {
namespace {

constexpr ServiceTime kReplyPatience{5000};

} // namespace

Session::Wait SyncStream::advance(ServiceTime now, bool readable)
try {
    const Wait wait = m_connection->advance(readable);
    if (wait != Wait::kRoom) {
        m_deadline = kNever;
    } else if (m_deadline == kNever) {
        m_deadline = now + kReplyPatience;
    }
    return wait;
} catch (const std::bad_alloc&) {
    ::syslog(LOG_ERR, "hislip %u: closed, no memory", m_connection->id());
    return Wait::kOver;
}

void SyncStream::expired()
{
    ::syslog(LOG_NOTICE, "hislip %u: closed, it does not read its responses", m_connection->id());
}

} // namespace orvan_service::hislip
