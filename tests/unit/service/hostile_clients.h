/**
 * Helpers for tests of hostile clients and of the others served meanwhile.
 */
#ifndef ORVAN_TESTS_HOSTILE_CLIENTS_H
#define ORVAN_TESTS_HOSTILE_CLIENTS_H

#include <string>

#include <gtest/gtest.h>

#include "service_fixture.h"
#include "support/log_capture.h"

namespace orvan_test {

inline bool logged(const LogCapture& log, const std::string& part)
{
    for (const auto& line : log.lines()) {
        if (line.text.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

inline void expect_good_service(int port)
{
    TestClient good(port);
    EXPECT_EQ(good.ask("*IDN?\n"), "*IDN?;+OK\r\n");
}

} // namespace orvan_test

#endif
