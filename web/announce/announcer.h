#ifndef ORVAN_WEB_ANNOUNCER_H
#define ORVAN_WEB_ANNOUNCER_H

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "announce/announcement.h"
#include <unique_fd.h>

namespace orvan_web {

/**
 * Announces the instrument by mDNS through the machine's avahi-daemon, over D-Bus, for as long as it lives.
 *
 * A name that somebody else on the network has is replaced by another one ("NAME #2"). Addresses are
 * followed by avahi; its host name is changed to the instrument's if it allows that. When avahi or the bus
 * ends, the announcement returns with it. Without them the only effect is a line of the log, "mDNS: ...",
 * one for each change of the state of affairs.
 *
 * Everything runs on a thread named "mdns", which sleeps unless something changes, or, without a bus, looks
 * for it every 30 s. It has all signals blocked.
 */
class Announcer {
public:
    /**
     * Throws std::system_error if descriptors or threads have run out.
     * @param announced called on the thread "mdns" whenever the instrument has been announced, with the host
     *                  name under which it is reached, "bench-4.local"
     */
    explicit Announcer(std::function<void(const std::string& host)> announced = {});
    /** Withdraws the announcement. Takes up to 25 s if avahi-daemon hangs. */
    ~Announcer();
    Announcer(const Announcer&) = delete;
    Announcer& operator=(const Announcer&) = delete;

    /** Replaces what is announced; nothing is until the first call. Any thread; returns at once. */
    void announce(Announcement announcement);

private:
    void run();
    void wake() const;

    const std::function<void(const std::string&)> m_announced;
    orvan_common::UniqueFd m_wake; /**< an eventfd */
    std::mutex m_mutex;
    std::optional<Announcement> m_next;
    bool m_ending = false;
    std::thread m_thread; /**< last, as it uses the others */
};

} // namespace orvan_web

#endif
