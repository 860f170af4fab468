#ifndef ORVAN_WEB_COUNTERS_H
#define ORVAN_WEB_COUNTERS_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "json.h"
#include "loop.h"
#include <unique_fd.h>

namespace orvan_web {

/** What the service has counted about a module. */
struct ModuleCounters {
    int module = 0;
    double requests = 0; // JSON's numbers
    double timeouts = 0;
    double link_errors = 0;
    bool failed = false; /**< its last request failed */
};

/** The service's counters, at one moment. */
struct Counters {
    Json document;                       /**< all of it, as the service sent it; never null */
    std::vector<ModuleCounters> modules; /**< one for each installed module, in order */

    /** Those of a channel's module; null if it is not installed. */
    const ModuleCounters* module(int channel) const;
};

/**
 * Gets the service's counters, which it serves on a socket of its own: also while a command runs or hangs.
 * Loop's thread.
 */
class CountersClient {
public:
    /** Counters; null if the service is not there, or has not sent them within a second. */
    using Done = std::function<void(std::shared_ptr<const Counters>)>;

    CountersClient(InstrumentLoop& loop, std::string path) : m_loop(loop), m_path(std::move(path)) {}
    ~CountersClient();
    CountersClient(const CountersClient&) = delete;
    CountersClient& operator=(const CountersClient&) = delete;

    /** @param done called once, never from within this call. Those who ask while a document is on its way
     *  share the one after it, so that each gets counts made after it asked. */
    void fetch(Done done);

private:
    void begin();
    void receive();
    void finish(const std::string* text);

    InstrumentLoop& m_loop;
    const std::string m_path;
    std::vector<Done> m_current; // waiting for the document on its way
    std::vector<Done> m_next;
    orvan_common::UniqueFd m_socket;
    std::string m_text;
    InstrumentLoop::TimerId m_deadline = 0;
};

} // namespace orvan_web

#endif
