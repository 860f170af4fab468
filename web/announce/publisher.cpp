#include "announce/publisher.h"

#include <utility>

#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/timeval.h>
#include <syslog.h>

namespace orvan_web {

namespace {

using namespace std::chrono_literals;

constexpr auto kDaemonRestart = 1s;
constexpr auto kNextAttempt = 30s;
constexpr int kMostNames = 100;

constexpr const char* kNoDaemon = "mDNS: not announced while avahi-daemon is not running";
constexpr const char* kNoBus = "mDNS: not announced while there is no system bus";

AvahiStringList* string_list(const std::vector<std::string>& strings)
{
    AvahiStringList* list = nullptr;
    for (const std::string& text : strings) {
        list =
            avahi_string_list_add_arbitrary(list, reinterpret_cast<const uint8_t*>(text.data()), text.size());
    }
    return list;
}

std::string another_name(const std::string& name)
{
    char* const alternative = avahi_alternative_service_name(name.c_str());
    std::string text = alternative;
    avahi_free(alternative);
    return text;
}

} // namespace

Publisher::Publisher(const AvahiPoll* poll, std::function<void(const std::string& host)> announced)
    : m_poll(poll), m_announced(std::move(announced))
{
    m_reconnect = poll->timeout_new(
        poll, nullptr, [](AvahiTimeout*, void* self) { static_cast<Publisher*>(self)->connect(); }, this);
}

Publisher::~Publisher()
{
    m_poll->timeout_free(m_reconnect);
    if (m_client != nullptr) {
        avahi_client_free(m_client); // and its group
    }
}

void Publisher::publish(const Announcement& announcement)
{
    if (m_announcement == announcement) {
        return;
    }
    // A name that had to be changed is kept until the identity changes.
    if (!m_announcement || instance_name(*m_announcement) != instance_name(announcement)) {
        m_name = instance_name(announcement);
    }
    m_announcement = announcement;
    if (m_client == nullptr) {
        connect();
    } else if (avahi_client_get_state(m_client) == AVAHI_CLIENT_S_RUNNING) {
        register_services();
    }
}

void Publisher::connect()
{
    m_poll->timeout_update(m_reconnect, nullptr);
    m_group = nullptr;
    m_host_name.clear();
    if (m_client != nullptr) {
        avahi_client_free(std::exchange(m_client, nullptr));
    }
    AvahiClient* const client = avahi_client_new(
        m_poll, AVAHI_CLIENT_NO_FAIL,
        [](AvahiClient* self_client, AvahiClientState state, void* self) {
            // The first call comes before the client is returned.
            static_cast<Publisher*>(self)->m_client = self_client;
            static_cast<Publisher*>(self)->note_client(state);
        },
        this, nullptr);
    if (client == nullptr) {
        m_client = nullptr;
        m_group = nullptr;
        report(LOG_NOTICE, kNoBus);
        reconnect_after(kNextAttempt);
    }
}

void Publisher::reconnect_after(std::chrono::milliseconds delay)
{
    timeval when = {};
    avahi_elapse_time(&when, static_cast<unsigned>(delay.count()), 0);
    m_poll->timeout_update(m_reconnect, &when);
}

void Publisher::note_client(AvahiClientState state)
{
    switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
        register_services();
        break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
        // The host name changes; the services' records have it.
        if (m_group != nullptr) {
            avahi_entry_group_reset(m_group);
        }
        break;
    case AVAHI_CLIENT_CONNECTING:
        report(LOG_NOTICE, kNoDaemon);
        break;
    case AVAHI_CLIENT_FAILURE:
        // The client cannot be freed in its own callback.
        if (avahi_client_errno(m_client) == AVAHI_ERR_DISCONNECTED) {
            report(LOG_NOTICE, kNoDaemon);
            reconnect_after(kDaemonRestart);
        } else {
            fail("connecting to avahi-daemon");
        }
        break;
    }
}

void Publisher::note_group(AvahiEntryGroupState state)
{
    switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
        report(LOG_NOTICE, "mDNS: announced as \"" + m_name + "\"");
        if (const char* const host = avahi_client_get_host_name_fqdn(m_client);
            m_announced && host != nullptr) {
            m_announced(host);
        }
        break;
    case AVAHI_ENTRY_GROUP_COLLISION:
        m_name = another_name(m_name);
        register_services();
        break;
    case AVAHI_ENTRY_GROUP_FAILURE:
        fail("registering");
        break;
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING:
        break;
    }
}

/**
 * Asked for once, as avahi may have had to choose another one. It refuses a user without the right to change
 * it, and then keeps its own.
 */
void Publisher::set_host_name()
{
    const std::string& name = m_announcement->host_name;
    if (name.empty() || std::exchange(m_host_name, name) == name) {
        return;
    }
    const char* const now = avahi_client_get_host_name(m_client);
    if (now == nullptr || name != now) {
        avahi_client_set_host_name(m_client, name.c_str());
    }
}

void Publisher::register_services()
{
    set_host_name();
    if (m_group == nullptr) {
        m_group = avahi_entry_group_new(
            m_client,
            [](AvahiEntryGroup* group, AvahiEntryGroupState state, void* self) {
                static_cast<Publisher*>(self)->m_group = group;
                static_cast<Publisher*>(self)->note_group(state);
            },
            this);
    }
    if (m_group == nullptr) {
        fail("registering");
        return;
    }
    int error = AVAHI_ERR_COLLISION;
    for (int names = 0; error == AVAHI_ERR_COLLISION && names < kMostNames; ++names) {
        avahi_entry_group_reset(m_group);
        error = add_services();
        if (error == AVAHI_ERR_COLLISION) {
            m_name = another_name(m_name);
        }
    }
    if (error < 0 || (!avahi_entry_group_is_empty(m_group) && avahi_entry_group_commit(m_group) < 0)) {
        fail("registering");
    }
}

int Publisher::add_services()
{
    AvahiStringList* const txt = string_list(txt_record(*m_announcement));
    int error = AVAHI_OK;
    for (const AnnouncedService& service : announced_services(*m_announcement)) {
        error = error < 0 ? error
                          : avahi_entry_group_add_service_strlst(
                                m_group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0),
                                m_name.c_str(), service.type.c_str(), nullptr, nullptr, service.port, txt);
    }
    avahi_string_list_free(txt);
    return error;
}

void Publisher::fail(const std::string& what)
{
    report(LOG_WARNING, "mDNS: not announced: " + what + ": " + avahi_strerror(avahi_client_errno(m_client)));
    reconnect_after(kNextAttempt);
}

/** Each state of affairs once. */
void Publisher::report(int priority, const std::string& text)
{
    if (std::exchange(m_reported, text) != text) {
        ::syslog(priority, "%s", text.c_str());
    }
}

} // namespace orvan_web
