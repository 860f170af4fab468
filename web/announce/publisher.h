#ifndef ORVAN_WEB_PUBLISHER_H
#define ORVAN_WEB_PUBLISHER_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/watch.h>

#include "announce/announcement.h"

namespace orvan_web {

/** Keeps one announcement published, on the thread that runs the poll. */
class Publisher {
public:
    Publisher(const AvahiPoll* poll, std::function<void(const std::string& host)> announced);
    ~Publisher();
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    void publish(const Announcement& announcement);

private:
    void connect();
    void reconnect_after(std::chrono::milliseconds delay);
    void note_client(AvahiClientState state);
    void note_group(AvahiEntryGroupState state);
    void set_host_name();
    void register_services();
    int add_services();
    void fail(const std::string& what);
    void report(int priority, const std::string& text);

    const AvahiPoll* m_poll;
    const std::function<void(const std::string&)> m_announced;
    AvahiClient* m_client = nullptr;
    AvahiEntryGroup* m_group = nullptr;
    AvahiTimeout* m_reconnect = nullptr;
    std::optional<Announcement> m_announcement;
    std::string m_name;      /**< under which it is announced */
    std::string m_host_name; /**< that avahi was last asked to take */
    std::string m_reported;
};

} // namespace orvan_web

#endif
