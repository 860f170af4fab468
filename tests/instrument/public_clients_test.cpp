// Clients that were not written here: lxi-tools and PyVISA, as Debian has them.
#include "instrument.h"

#include <gtest/gtest.h>

using namespace orvan_test;

namespace {

std::string lxi(const Instrument& instrument, const std::string& line)
{
    return run_program(
               {"lxi", "scpi", "-a", "127.0.0.1", "-p", std::to_string(instrument.port()), "-r", line})
        .output;
}

} // namespace

TEST(PublicClients, LxiToolsCompletesASession)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    EXPECT_NE(lxi(instrument, "*IDN?").find("Halde Electronics Ltd.,OVX3651P,230000,01.0.001;+OK"),
              std::string::npos);
    lxi(instrument, ":FREQ 3GHz");
    EXPECT_NE(lxi(instrument, ":FREQ?").find("3000000000;+OK"), std::string::npos);
    EXPECT_NE(lxi(instrument, ":FOO?").find("-ERR -113, \"Undefined header\";+OK"), std::string::npos);
}

TEST(PublicClients, PyVisaCompletesASession)
{
    ORVAN_NEEDS_SANDBOX();
    Instrument instrument;
    // Debian's own interpreter: its packages are not visible to another one that may stand ahead in PATH.
    const Outcome session = run_program({"/usr/bin/python3", ORVAN_INSTRUMENT_TESTS_DIR "/visa_session.py",
                                         std::to_string(instrument.port())});
    EXPECT_EQ(session.status, 0) << session.output;
}
