/** Splits the bytes of one connection into requests, each a program message with its line end. */
#ifndef ORVAN_SIM_MODULE_REQUEST_FRAMER_H
#define ORVAN_SIM_MODULE_REQUEST_FRAMER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "scpi/extensions.h"

namespace sim_module {

class RequestFramer {
public:
    /** Longest request in bytes, line end included: enough for a software package for the module. */
    static constexpr size_t kMaxRequest = 16 * 1024 * 1024;

    enum class Result {
        kNone,    /**< only part of a request is buffered */
        kRequest, /**< a whole request */
        kTooLong, /**< the end of a request longer than kMaxRequest; only its head is available */
    };

    RequestFramer() { SCPI_FramerReset(&m_framer); }

    /** Adds bytes, in pieces of any size. */
    void add(std::string_view bytes);

    /**
     * Removes and returns the next request. The view is valid until the next call.
     *
     * Bytes of a request past kMaxRequest are dropped as they arrive, so a client that never ends its request
     * costs no more memory than that.
     */
    Result next(std::string_view& request);

    /** Bytes held. */
    size_t buffered() const { return m_bytes.size(); }

private:
    void scan();

    scpi_framer_t m_framer{};
    std::string m_bytes;
    size_t m_taken = 0;   // bytes of m_bytes returned by earlier calls
    size_t m_scanned = 0; // bytes of m_bytes already scanned
    bool m_too_long = false;
};

} // namespace sim_module

#endif
