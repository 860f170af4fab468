// Replies, the error queue, the status registers and commands with an action.

#include <string>

#include "instrument_fixture.h"

using namespace sim_module;

namespace {

using Reply = InstrumentTest;
using Status = InstrumentTest;
using Actions = InstrumentTest;

} // namespace

TEST_F(Reply, ResultsAndErrorsComeInOrderFollowedByTheSuccessWord)
{
    EXPECT_EQ(instrument.execute(":FREQ 2GHz\r\n"), "+OK\r\n");
    EXPECT_EQ(instrument.execute(":FREQ?\r\n"), "2000000000;+OK\r\n");
    EXPECT_EQ(instrument.execute(":FREQ 3GHz;:POW -3;:FREQ?;:POW?\r\n"), "3000000000;-3;+OK\r\n");
    EXPECT_EQ(instrument.execute(":FREQ?;:POW 99;:POW?\r\n"),
              "3000000000;-ERR -222, \"Data out of range\";-3;+OK\r\n");
    EXPECT_EQ(instrument.execute(":FOO;:BAR?\r\n"),
              "-ERR -113, \"Undefined header\";-ERR -113, \"Undefined header\";+OK\r\n");
}

TEST_F(Reply, ASeparatorBeforeTheLineEndIsAccepted)
{
    EXPECT_EQ(instrument.execute(":FREQ 1GHz;:POW 2;\r\n"), "+OK\r\n");
    EXPECT_EQ(instrument.execute(":FREQ?;\r\n"), "1000000000;+OK\r\n");
    EXPECT_EQ(instrument.execute(":FREQ?; ;;\r\n"), "1000000000;+OK\r\n");
}

TEST_F(Reply, EveryLineEndIsAccepted)
{
    for (const char* request : {":POW?\r\n", ":POW?\n", ":POW? \r\n", "  :POW?\t\n"}) {
        EXPECT_EQ(instrument.execute(request), "5;+OK\r\n") << request;
    }
    EXPECT_EQ(instrument.execute("\r\n"), "+OK\r\n");
    EXPECT_EQ(instrument.execute("\n"), "+OK\r\n");
    EXPECT_EQ(instrument.execute(""), "+OK\r\n");
}

TEST_F(Reply, ARelativeHeaderUsesThePreviousPath)
{
    EXPECT_EQ(instrument.execute(":SOUR:FREQ 2GHz;POW -5;:FREQ?;POW?\r\n"), "2000000000;-5;+OK\r\n");
    EXPECT_EQ(instrument.execute(":AM:DEPT 10;STAT ON;STAT?;DEPT?\r\n"), "1;10;+OK\r\n");
}

TEST_F(Reply, AfterARefusedUnitTheOthersAreStillExecuted)
{
    EXPECT_EQ(instrument.execute(":POW 99;:FREQ 2GHz\r\n"), "-ERR -222, \"Data out of range\";+OK\r\n");
    EXPECT_EQ(instrument.execute(":FREQ?\r\n"), "2000000000;+OK\r\n");
}

TEST_F(Reply, SixtyFourUnitsFit)
{
    std::string request;
    std::string expected;
    for (int i = 0; i < 64; ++i) {
        request += ":SOURCE:FREQUENCY?;";
        expected += "1000000000;";
    }
    EXPECT_EQ(instrument.execute(request + "\r\n"), expected + "+OK\r\n");
}

TEST_F(Reply, ThatIsTooLongIsReplacedByAnError)
{
    // "5;" is two bytes, the success word and the line end are five.
    const size_t most = (Instrument::kMaxReply - 5) / 2;
    std::string request;
    for (size_t i = 0; i < most; ++i) {
        request += ":POW?;";
    }
    EXPECT_EQ(instrument.execute(request + "\n").size(), 2 * most + 5);
    EXPECT_EQ(instrument.execute(request + ":POW?\n"), "-ERR -223, \"Too much data\";+OK\r\n");
    EXPECT_EQ(value(":SYST:ERR?"), "-223,\"Too much data\"");
    std::string errors;
    for (int i = 0; i < 100'000; ++i) {
        errors += ":A;";
    }
    EXPECT_EQ(instrument.execute(errors + "\n"), "-ERR -223, \"Too much data\";+OK\r\n");
    EXPECT_EQ(instrument.execute(":POW?\n"), "5;+OK\r\n");
}

TEST_F(Reply, ARequestThatIsTooLongIsAnOverrun)
{
    EXPECT_EQ(instrument.refuse_overrun(), "-ERR -363, \"Input buffer overrun\";+OK\r\n");
    EXPECT_EQ(value(":SYST:ERR?"), "-363,\"Input buffer overrun\"");
}

TEST_F(Reply, BinaryBytesAreRefusedAndDoNoHarm)
{
    using namespace std::string_literals;
    for (const std::string& request : {":FR\0EQ?\r\n"s, "\xff\xfe\n"s, ":FREQ \x01\n"s, "#15abc\n"s}) {
        const std::string reply = instrument.execute(request);
        EXPECT_TRUE(reply.starts_with("-ERR ")) << reply;
        EXPECT_TRUE(reply.ends_with(";+OK\r\n")) << reply;
    }
    EXPECT_EQ(instrument.execute(":FREQ?\n"), "1000000000;+OK\r\n");
}

TEST_F(Status, ErrorsAreQueuedOldestFirst)
{
    EXPECT_EQ(value(":SYST:ERR?"), "0,\"No error\"");
    ask(":POW 99");
    ask(":FOO");
    EXPECT_EQ(value(":SYST:ERR:COUN?"), "2");
    EXPECT_EQ(value(":SYST:ERR?"), "-222,\"Data out of range\"");
    EXPECT_EQ(value(":SYST:ERR:NEXT?"), "-113,\"Undefined header\"");
    EXPECT_EQ(value(":SYST:ERR:COUN?"), "0");
    EXPECT_EQ(value(":SYST:ERR?"), "0,\"No error\"");
}

TEST_F(Status, AFullQueueEndsInAnOverflow)
{
    for (size_t i = 0; i < Instrument::kErrorQueueLength + 5; ++i) {
        ask(":POW 99");
    }
    EXPECT_EQ(value(":SYST:ERR:COUN?"), std::to_string(Instrument::kErrorQueueLength));
    for (size_t i = 1; i < Instrument::kErrorQueueLength; ++i) {
        EXPECT_EQ(value(":SYST:ERR?"), "-222,\"Data out of range\"");
    }
    EXPECT_EQ(value(":SYST:ERR?"), "-350,\"Queue overflow\"");
    EXPECT_EQ(value(":SYST:ERR:COUN?"), "0");
}

TEST_F(Status, RegistersFollowTheErrors)
{
    EXPECT_EQ(value("*ESR?"), "0");
    ask("*ESE 48;*SRE 32");
    EXPECT_EQ(value("*ESE?;*SRE?"), "48;32");
    ask(":POW 99");                   // execution error
    ask(":FOO");                      // command error
    EXPECT_EQ(value("*STB?"), "100"); // master summary, event summary, error queue
    EXPECT_EQ(value("*ESR?"), "48");
    EXPECT_EQ(value("*ESR?"), "0");
    EXPECT_EQ(value("*STB?"), "4");
    EXPECT_EQ(ask("*CLS"), "+OK");
    EXPECT_EQ(value("*STB?"), "0");
    EXPECT_EQ(value(":SYST:ERR:COUN?"), "0");
    EXPECT_EQ(value("*ESE?;*SRE?"), "48;32");
    EXPECT_EQ(ask("*ESE 256"), "-ERR -222, \"Data out of range\";+OK");
}

TEST_F(Status, OperationCompleteIsReported)
{
    EXPECT_EQ(value("*OPC?"), "1");
    EXPECT_EQ(ask("*OPC;*WAI"), "+OK");
    EXPECT_EQ(value("*ESR?"), "1");
}

TEST_F(Status, ResetLeavesTheQueueTheRegistersAndTheFilesAlone)
{
    ask("*ESE 1;:SYST:FILE:STOR:LIST \"f\";:POW 99");
    EXPECT_EQ(ask("*RST"), "+OK");
    EXPECT_EQ(value(":SYST:ERR:COUN?"), "1");
    EXPECT_EQ(value("*ESE?"), "1");
    EXPECT_EQ(value(":SYST:FILE:CAT:LIST?"), "\"f\"");
}

TEST_F(Actions, ABusTriggerIsIgnoredUnlessTheBusIsTheSource)
{
    EXPECT_EQ(ask("*TRG"), "-ERR -211, \"Trigger ignored\";+OK");
    EXPECT_EQ(instrument.triggers(), 0U);
    ask(":TRIG:SOUR BUS");
    EXPECT_EQ(ask("*TRG;*TRG"), "+OK");
    EXPECT_EQ(ask("*TRG 1"), "-ERR -108, \"Parameter not allowed\";+OK");
    EXPECT_EQ(instrument.triggers(), 2U);
}

TEST_F(Actions, TheClockAcceptsOnlyValidDates)
{
    EXPECT_EQ(ask(":SYST:CLOC 2024,2,29,23,59,59"), "+OK");
    EXPECT_EQ(instrument.clock(), "2024-02-29T23:59:59");
    for (const char* date : {"2023,2,29,0,0,0", "2024,13,1,0,0,0", "2024,0,1,0,0,0", "2024,1,0,0,0,0",
                             "2024,1,1,24,0,0", "2024,1,1,0,60,0", "2024,1,1,0,0,60", "1969,1,1,0,0,0",
                             "10000,1,1,0,0,0", "2024,-1,1,0,0,0", "2024,257,1,0,0,0"}) {
        EXPECT_EQ(ask(std::string(":SYST:CLOC ") + date), "-ERR -222, \"Data out of range\";+OK") << date;
    }
    EXPECT_EQ(ask(":SYST:CLOC 2024,1,1"), "-ERR -109, \"Missing parameter\";+OK");
    EXPECT_EQ(instrument.clock(), "2024-02-29T23:59:59");
}

TEST_F(Actions, TheTemperatureIsHeldOrDriftsAroundTheWorkingPoint)
{
    const double drifting = std::stod(value(":SYST:TEMP?"));
    EXPECT_GE(drifting, 40.5);
    EXPECT_LE(drifting, 43.5);
    instrument.temperature().hold(64.99);
    EXPECT_EQ(value(":SYST:TEMP?"), "64.99");
    instrument.temperature().hold(65);
    EXPECT_EQ(value(":SYST:TEMP?"), "65");
    instrument.temperature().hold(-5.5);
    EXPECT_EQ(value(":SYST:TEMP?"), "-5.5");
    instrument.temperature().release();
    EXPECT_GE(std::stod(value(":SYST:TEMP?")), 40.5);
}
