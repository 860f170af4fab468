/**
 * Writes replies piece by piece and receives them as the client.
 */
#ifndef ORVAN_TESTS_REPLY_BENCH_H
#define ORVAN_TESTS_REPLY_BENCH_H

#include <string>

#include "front_end_bench.h"

namespace orvan_test {

class ReplyPath : public FrontEndBench {
protected:
    size_t put(const std::string& piece) { return SCPI_Write(&scpi_context, piece.data(), piece.size()); }

    /** Announces a block of `size` bytes to the transmit path, and writes header and data. */
    size_t put_block(const std::string& data)
    {
        const size_t n = SCPI_ResultArbitraryBlock(&scpi_context, data.data(), data.size());
        scpi_context.output_count = 0;
        return n;
    }

    std::string flush()
    {
        EXPECT_EQ(SCPI_Flush(&scpi_context), SCPI_RES_OK);
        return read_ready(client.client());
    }
};

} // namespace orvan_test

#endif
