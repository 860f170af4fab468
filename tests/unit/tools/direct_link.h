/**
 * A link to an instrument's model in the same process, which loses, duplicates and delays frames on
 * request.
 */
#ifndef ORVAN_TESTS_DIRECT_LINK_H
#define ORVAN_TESTS_DIRECT_LINK_H

#include <cstring>
#include <deque>
#include <functional>
#include <thread>
#include <utility>

#include "instrument_model.h"
#include "orvan-maint/failure.h"
#include "orvan-maint/link.h"

namespace orvan_test {

class DirectLink : public orvan_maint::Link {
public:
    explicit DirectLink(InstrumentModel& model) : m_model(model) {}

    /** How often a frame arrives, by its number from 0 on; once if not listed. */
    std::function<int(const HaldeElec::Orvan::HALDE_PACKET&, size_t)> requests;
    std::function<int(const HaldeElec::Orvan::HALDE_PACKET&, size_t)> replies;
    /** Called before each request, for other events at the instrument. */
    std::function<void(size_t)> meanwhile;
    /** The number of the frame after which the user interrupts. */
    size_t stop_after = SIZE_MAX;

    std::vector<Bytes> sent;
    std::deque<Bytes> waiting; /**< replies that have arrived */

    void send(std::span<const uint8_t> datagram) override
    {
        const size_t number = sent.size();
        sent.emplace_back(datagram.begin(), datagram.end());
        if (meanwhile) {
            meanwhile(number);
        }
        for (int copies = requests ? requests(frame_of(sent.back()), number) : 1; copies > 0; --copies) {
            for (const Bytes& reply : m_model.serve(datagram)) {
                const size_t reply_number = m_replies++;
                const int arrive = replies ? replies(frame_of(reply), reply_number) : 1;
                waiting.insert(waiting.end(), static_cast<size_t>(arrive), reply);
            }
        }
    }

    bool receive(orvan_maint::Received& received, orvan_maint::Clock::time_point deadline) override
    {
        if (sent.size() > stop_after) {
            throw orvan_maint::Interrupted();
        }
        if (waiting.empty()) {
            std::this_thread::sleep_until(deadline); // waits in vain
            return false;
        }
        received = {};
        received.frame = frame_of(waiting.front());
        received.length = waiting.front().size();
        waiting.pop_front();
        return true;
    }

    std::string problem() const override { return " (problem)"; }

private:
    static HaldeElec::Orvan::HALDE_PACKET frame_of(const Bytes& bytes)
    {
        HaldeElec::Orvan::HALDE_PACKET frame{};
        std::memcpy(&frame, bytes.data(), std::min(bytes.size(), sizeof frame));
        return frame;
    }

    InstrumentModel& m_model;
    size_t m_replies = 0;
};

} // namespace orvan_test

#endif
