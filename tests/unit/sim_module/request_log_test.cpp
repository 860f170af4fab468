#include <string>

#include <gtest/gtest.h>

#include "module/request_log.h"

using sim_module::escape_bytes;
using sim_module::RequestLog;

TEST(RequestLog, EscapesWhatIsNotPrintable)
{
    using namespace std::string_literals;
    EXPECT_EQ(escape_bytes(":FREQ \"a\\b\"\r\n\t"), ":FREQ \"a\\\\b\"\\r\\n\\t");
    EXPECT_EQ(escape_bytes("\0\x1f\x7f\xff~"s), "\\x00\\x1F\\x7F\\xFF~");
}

TEST(RequestLog, KeepsTheLastThousandAndCountsAll)
{
    RequestLog log;
    EXPECT_EQ(log.last_line(), "");
    for (size_t i = 0; i < RequestLog::kCapacity + 7; ++i) {
        log.add(std::to_string(i));
    }
    EXPECT_EQ(log.size(), RequestLog::kCapacity);
    EXPECT_EQ(log.count(), RequestLog::kCapacity + 7);
    EXPECT_EQ(log.line(0), "7");
    EXPECT_EQ(log.last_line(), "1006");
    log.clear();
    EXPECT_EQ(log.size(), 0U);
    EXPECT_EQ(log.count(), 0U);
}

TEST(RequestLog, KeepsTheHeadOfALongRequest)
{
    RequestLog log;
    log.add(std::string(RequestLog::kBytesKept, 'x'));
    EXPECT_EQ(log.last_line(), std::string(RequestLog::kBytesKept, 'x'));
    log.add(std::string(RequestLog::kBytesKept + 12, 'x'));
    EXPECT_EQ(log.last_line(), std::string(RequestLog::kBytesKept, 'x') + "...(+12 bytes)");
}
