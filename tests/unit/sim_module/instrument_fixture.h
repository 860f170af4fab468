/** An instrument without a network, and headers made from patterns. */
#ifndef ORVAN_TESTS_UNIT_SIM_MODULE_INSTRUMENT_FIXTURE_H
#define ORVAN_TESTS_UNIT_SIM_MODULE_INSTRUMENT_FIXTURE_H

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "module/instrument.h"

class InstrumentTest : public testing::Test {
protected:
    /** The reply without its line end. */
    std::string ask(std::string_view request)
    {
        std::string reply = instrument.execute(std::string(request) + "\r\n");
        EXPECT_TRUE(reply.ends_with("+OK\r\n")) << request << " gave " << reply;
        EXPECT_EQ(reply.find('\n'), reply.size() - 1) << request << " gave " << reply;
        return reply.substr(0, reply.size() - 2);
    }

    /** The value that a query returns. */
    std::string value(std::string_view query)
    {
        const std::string reply = ask(query);
        EXPECT_TRUE(reply.ends_with(";+OK")) << query << " gave " << reply;
        EXPECT_EQ(reply.find("-ERR"), std::string::npos) << query << " gave " << reply;
        return reply.substr(0, reply.size() - std::min<size_t>(reply.size(), 4));
    }

    sim_module::Instrument instrument{sim_module::Identity{}};
};

/** "[:SOURce]:FREQuency" as ":FREQ". */
std::string short_header(std::string_view pattern);

/** "[:SOURce]:FREQuency" as ":SOURCE:FREQUENCY". */
std::string long_header(std::string_view pattern);

#endif
