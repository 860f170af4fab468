#ifndef ORVAN_WEB_EVENT_HUB_H
#define ORVAN_WEB_EVENT_HUB_H

#include <functional>
#include <memory>
#include <vector>

#include "http/exchange.h"
#include "instrument/instrument.h"

namespace orvan_web {

/**
 * The viewers of the live stream. Each gets everything at first, and then what changes; a change is encoded
 * once for all of them. While there are none, the instrument is not followed. Loop's thread.
 */
class EventHub {
public:
    /** @param document of the instrument, as GET has it */
    EventHub(Instrument& instrument, std::function<Json()> document);

    void add(std::shared_ptr<EventStream> stream);
    size_t viewers() const { return m_viewers.size(); }

private:
    struct Viewer {
        std::shared_ptr<EventStream> stream;
        bool greeted;
    };

    void greet();
    void send(const char* event, const std::string& data);
    void send_instrument();
    void drop_gone();

    Instrument& m_instrument;
    const std::function<Json()> m_document;
    std::vector<Viewer> m_viewers;
    Json m_sent; // the instrument's document as viewers have it; null while there are none
};

} // namespace orvan_web

#endif
