#ifndef ORVAN_WEB_INSTRUMENT_H
#define ORVAN_WEB_INSTRUMENT_H

#include <functional>
#include <memory>
#include <string>

#include "channels.h"
#include "controller.h"
#include "counters.h"
#include "history.h"
#include "json.h"
#include "loop.h"
#include "network.h"
#include "scpi_link.h"
#include "setups.h"

namespace orvan_web {

struct InstrumentOptions {
    std::string local_dir = "/run/orvan";     /**< folder of the service's sockets */
    std::string records = g_shmemName;        /**< shared memory with the channels' records */
    std::string setups = "/home/orvan/halde"; /**< see Setups */
};

/** What the web process knows about the instrument. Loop's thread. */
class Instrument {
public:
    struct Events {
        /** Members of a channel that have changed, with its number. */
        std::function<void(const cJSON* changes)> channel;
        /** The document may have changed. */
        std::function<void()> instrument;
        /** The service has been reached, or lost. */
        std::function<void(bool reachable)> service;
        /** Identity, host name or network have changed: what the instrument announces. */
        std::function<void()> identity;
    };

    Instrument(InstrumentLoop& loop, const InstrumentOptions& options);
    ~Instrument();
    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    /** Adds a listener. Before start(). */
    void on_events(Events events) { m_listeners.push_back(std::move(events)); }

    /** Connects to the service. */
    void start();

    /** Begins and ends to follow what others change; while it does not, nothing but the history runs. */
    void watch(bool watched);

    /** Brings everything that json() shows up to date, as far as it can be reached. */
    void refresh(std::function<void()> done);

    /** Brings counters, temperatures and the controller's condition up to date, without asking a module. */
    void count(std::function<void()> done);

    /** Brings power_up() up to date, as far as the service answers. */
    void refresh_power_up(std::function<void()> done);

    /** The document of the instrument, as it was last known. */
    Json json() const;

    const Identity& identity() const { return m_controller.identity(); }
    const Condition& condition() const { return m_controller.condition(); }
    /** The setup that is loaded at power-up, as it was last known. */
    std::optional<int> power_up() const { return m_controller.power_up(); }
    const Network& network() const { return m_network; }
    /** TCP port of SCPI on a raw socket, as of the last copy of the records. */
    uint16_t raw_port() const;
    bool reachable() const { return m_link.reachable(); }
    /** The last counters; null if the service was not there. */
    const std::shared_ptr<const Counters>& counters() const { return m_last_counters; }

    ScpiLink& link() { return m_link; }
    Channels& channels() { return m_channels; }
    const History& history() const { return m_history; }
    const Setups& setups() const { return m_setups; }

private:
    void take_reachable(bool reachable);
    void take_counters(const std::shared_ptr<const Counters>& counters);
    void refresh_identity();
    void refresh_condition();
    void check_identity();

    InstrumentLoop& m_loop;
    ScpiLink m_link;
    CountersClient m_counters;
    Channels m_channels;
    Controller m_controller;
    History m_history;
    Setups m_setups;
    Network m_network;
    Identity m_known_identity;
    std::shared_ptr<const Counters> m_last_counters;
    std::vector<Events> m_listeners;
    bool m_watched = false;
    InstrumentLoop::TimerId m_timer = 0;
};

} // namespace orvan_web

#endif
