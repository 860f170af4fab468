/** Cuts the bytes of one connection into requests, each a program message with its line end. */
#ifndef ORVAN_SIM_MODULE_REQUEST_FRAMER_H
#define ORVAN_SIM_MODULE_REQUEST_FRAMER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "scpi/extensions.h"

namespace sim_module {

class RequestFramer {
public:
    /** Longest request in bytes, line end included: a package of software for the module fits. */
    static constexpr size_t kMaxRequest = 16 * 1024 * 1024;

    enum class Result {
        kNone,    /**< what is buffered belongs to a request that goes on */
        kRequest, /**< a whole request */
        kTooLong, /**< the end of a request that was longer than kMaxRequest; its head is all there is */
    };

    RequestFramer() { SCPI_FramerReset(&m_framer); }

    /** Takes bytes in any pieces. */
    void add(std::string_view bytes);

    /**
     * Takes the next request out. The view is good until the next call.
     *
     * Of a request that is too long the bytes past kMaxRequest are dropped as they come, so a client that
     * never ends its request costs no more memory than that.
     */
    Result next(std::string_view& request);

    /** Bytes held, whatever becomes of them. */
    size_t buffered() const { return m_bytes.size(); }

private:
    void scan();

    scpi_framer_t m_framer{};
    std::string m_bytes;
    size_t m_taken = 0;   // bytes of m_bytes that earlier calls gave out
    size_t m_scanned = 0; // bytes of m_bytes that the framer has seen
    bool m_too_long = false;
};

} // namespace sim_module

#endif
