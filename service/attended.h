#ifndef ORVAN_SERVICE_ATTENDED_H
#define ORVAN_SERVICE_ATTENDED_H

#include <chrono>
#include <span>
#include <vector>

#include <poll.h>

namespace orvan_service {

/** What the attendant serves besides the raw listeners, even while a command runs: nothing in it may block.
 */
class Attended {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~Attended() = default;

    /** Appends the descriptors to wait for. */
    virtual void add_descriptors(std::vector<pollfd>& waiting) = 0;

    /** Called when one of them is ready or due() has passed.
     *  @param waiting the appended ones, with their results */
    virtual void serve(std::span<const pollfd> waiting) = 0;

    /** When to call serve() even if no descriptor is ready. */
    virtual Clock::time_point due() const { return Clock::time_point::max(); }
};

} // namespace orvan_service

#endif
