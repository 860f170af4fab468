#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "service/standard/standard_message.h"

using namespace orvan_service;
using Texts = std::vector<std::string>;

namespace {

const char* name(SessionCommand command)
{
    switch (command) {
    case SessionCommand::kClear:
        return "*CLS";
    case SessionCommand::kEventEnable:
        return "*ESE";
    case SessionCommand::kEventEnableQ:
        return "*ESE?";
    case SessionCommand::kEventStatusQ:
        return "*ESR?";
    case SessionCommand::kComplete:
        return "*OPC";
    case SessionCommand::kCompleteQ:
        return "*OPC?";
    case SessionCommand::kServiceEnable:
        return "*SRE";
    case SessionCommand::kServiceEnableQ:
        return "*SRE?";
    case SessionCommand::kStatusByteQ:
        return "*STB?";
    case SessionCommand::kWait:
        return "*WAI";
    case SessionCommand::kErrorQ:
        return ":SYST:ERR?";
    case SessionCommand::kErrorCountQ:
        return ":SYST:ERR:COUN?";
    case SessionCommand::kSessionErrorsQ:
        return ":SYST:ERR:SESS?";
    }
    return "?";
}

/** A line for each part: the instrument's message, or "session *ESE [32]", or "error -161". */
Texts cut(std::string_view message)
{
    Texts lines;
    std::string whole(message);
    if (!whole.ends_with('\n')) {
        whole += '\n';
    }
    for (const MessagePart& part : cut_message(whole)) {
        const std::string text(part.text.data(), part.text.size());
        switch (part.kind) {
        case MessagePart::Kind::kInstrument:
            EXPECT_TRUE(text.ends_with('\n'));
            lines.push_back(part.path + text.substr(0, text.size() - 1));
            break;
        case MessagePart::Kind::kSession:
            EXPECT_EQ(part.path, "");
            lines.push_back(std::string("session ") + name(part.command) + " [" + text + ']');
            break;
        case MessagePart::Kind::kError:
            lines.push_back("error " + std::to_string(part.error));
            break;
        }
    }
    return lines;
}

} // namespace

TEST(StandardMessage, UnitsOfTheInstrumentStayOneMessage)
{
    EXPECT_EQ(cut(":FREQ 1GHz;:POW -3;:FREQ?\n"), Texts{":FREQ 1GHz;:POW -3;:FREQ?"});
    EXPECT_EQ(cut(":FREQ 1GHz;:POW -3;:FREQ?"), Texts{":FREQ 1GHz;:POW -3;:FREQ?"});
    EXPECT_EQ(cut(" :FREQ  1GHz ; :POW -3 \r\n"), Texts{":FREQ  1GHz ; :POW -3"});
    EXPECT_EQ(cut("FREQ 1;POW 2;PHAS 3"), Texts{"FREQ 1;POW 2;PHAS 3"});
    EXPECT_EQ(cut(":SOUR:FREQ 1;POW 2;*RST;PHAS 3"), Texts{":SOUR:FREQ 1;POW 2;*RST;PHAS 3"});
}

TEST(StandardMessage, EmptyUnitsMakeNoParts)
{
    EXPECT_EQ(cut(""), Texts{});
    EXPECT_EQ(cut("\n"), Texts{});
    EXPECT_EQ(cut(" \t\r\n"), Texts{});
    EXPECT_EQ(cut(";;\n"), Texts{});
    EXPECT_EQ(cut(";:FREQ 1;; ;*ESR?;;:POW 2;\n"), (Texts{":FREQ 1", "session *ESR? []", ":POW 2"}));
    EXPECT_EQ(cut(":FREQ 1;;:POW 2;\n"), Texts{":FREQ 1;;:POW 2"}); // the instrument drops them
}

TEST(StandardMessage, CommandsOfTheSessionArePartsOfTheirOwn)
{
    EXPECT_EQ(cut("*CLS;*ESE 1;*ESE?;*ESR?;*OPC;*OPC?;*SRE 4;*SRE?;*STB?;*WAI;:SYST:ERR?;:SYST:ERR:COUN?\n"),
              (Texts{"session *CLS []", "session *ESE [1]", "session *ESE? []", "session *ESR? []",
                     "session *OPC []", "session *OPC? []", "session *SRE [4]", "session *SRE? []",
                     "session *STB? []", "session *WAI []", "session :SYST:ERR? []",
                     "session :SYST:ERR:COUN? []"}));
    EXPECT_EQ(cut("*ese \t1 , 2 ;*IDN?;*cLs"), (Texts{"session *ESE [1 , 2]", "*IDN?", "session *CLS []"}));
    EXPECT_EQ(cut("system:error:next?;:SYSTEM:ERROR?;:SYST:ERR:NEXT?"), Texts(3, "session :SYST:ERR? []"));
    EXPECT_EQ(cut("*CLS?;*ESR;*IDN?;:SYST:ERR;:SYST:ERR:COUN;*STB;*CL;*CLSS"),
              Texts{"*CLS?;*ESR;*IDN?;:SYST:ERR;:SYST:ERR:COUN;*STB;*CL;*CLSS"})
        << "no commands of the session";
}

TEST(StandardMessage, AHeaderOfTheSessionMayRelyOnAPath)
{
    EXPECT_EQ(cut(":SYST:VERS?;ERR?"), (Texts{":SYST:VERS?", "session :SYST:ERR? []"}));
    EXPECT_EQ(cut("SYST:ERR?;ERR:COUN?;SESS?;SESSION?"),
              (Texts{"session :SYST:ERR? []", "session :SYST:ERR:COUN? []", "session :SYST:ERR:SESS? []",
                     "session :SYST:ERR:SESS? []"}));
    EXPECT_EQ(cut(":SYST:ERR?;*STB?;ERR?"),
              (Texts{"session :SYST:ERR? []", "session *STB? []", "session :SYST:ERR? []"}));
    EXPECT_EQ(cut(":SOUR:FREQ 1;SYST:ERR?"), Texts{":SOUR:FREQ 1;SYST:ERR?"}) << ":SOUR:SYST:ERR? is none";
    EXPECT_EQ(cut(":SYST:ERR:NEXT?;SYST:ERR?"), (Texts{"session :SYST:ERR? []", ":SYST:ERR:SYST:ERR?"}));
}

TEST(StandardMessage, ThePathOfTheUnitBeforeIsCarriedOverACommandOfTheSession)
{
    EXPECT_EQ(cut(":SOUR:FREQ 1;*ESR?;POW 2;PHAS 3\n"),
              (Texts{":SOUR:FREQ 1", "session *ESR? []", ":SOUR:POW 2;PHAS 3"}));
    EXPECT_EQ(cut("SOUR:FREQ 1;*ESR?;POW 2"), (Texts{"SOUR:FREQ 1", "session *ESR? []", ":SOUR:POW 2"}));
    EXPECT_EQ(cut(":SOUR:FREQ 1;*ESR?;:POW 2"), (Texts{":SOUR:FREQ 1", "session *ESR? []", ":POW 2"}));
    EXPECT_EQ(cut("FREQ 1;*ESR?;POW 2"), (Texts{"FREQ 1", "session *ESR? []", "POW 2"}));
    EXPECT_EQ(cut(":FREQ 1;*ESR?;POW 2"), (Texts{":FREQ 1", "session *ESR? []", ":POW 2"}));
    EXPECT_EQ(cut(":SOUR:POW 1;POW:LEV:IMM 2;*WAI;LIM 3"),
              (Texts{":SOUR:POW 1;POW:LEV:IMM 2", "session *WAI []", ":SOUR:POW:LEV:LIM 3"}));
    EXPECT_EQ(cut(":SYST:ERR?;VERS?"), (Texts{"session :SYST:ERR? []", ":SYST:VERS?"}));
}

// Common commands do not change the path (IEEE 488.2 A.1.1), so it is needed after one that begins a part.
TEST(StandardMessage, ThePathIsCarriedOverACommonCommandThatBeginsAPart)
{
    EXPECT_EQ(cut(":SOUR:FREQ 1;*ESR?;*RST;POW 2;*TRG;PHAS 3"),
              (Texts{":SOUR:FREQ 1", "session *ESR? []", "*RST", ":SOUR:POW 2;*TRG;PHAS 3"}));
    EXPECT_EQ(cut("SOUR:FREQ 1;*ESR?;*RST;:OUTP 1;PHAS 3"),
              (Texts{"SOUR:FREQ 1", "session *ESR? []", "*RST;:OUTP 1;PHAS 3"}));
}

TEST(StandardMessage, AFaultyHeaderNeitherGetsNorChangesThePath)
{
    EXPECT_EQ(cut(":SOUR:FREQ 1;*ESR?;1X;POW 2"),
              (Texts{":SOUR:FREQ 1", "session *ESR? []", "1X", ":SOUR:POW 2"}));
    EXPECT_EQ(cut(":SOUR:FREQ 1;A::B;*ESR?;POW 2"),
              (Texts{":SOUR:FREQ 1;A::B", "session *ESR? []", ":SOUR:POW 2"}));
    EXPECT_EQ(cut(":SYST:VERS?;:SYST:?ERR?;ERR?"),
              (Texts{":SYST:VERS?;:SYST:?ERR?", "session :SYST:ERR? []"}));
    EXPECT_EQ(cut("*ESR?X;*ESE,1;*ESE1"), Texts{"*ESR?X;*ESE,1;*ESE1"});
}

TEST(StandardMessage, ASemicolonInAStringAnExpressionOrABlockEndsNoUnit)
{
    EXPECT_EQ(cut(":A \"x;*CLS\";*CLS"), (Texts{":A \"x;*CLS\"", "session *CLS []"}));
    EXPECT_EQ(cut(":A 'x;''*CLS';*CLS"), (Texts{":A 'x;''*CLS'", "session *CLS []"}));
    EXPECT_EQ(cut(":A (1;*CLS);*CLS"), (Texts{":A (1;*CLS)", "session *CLS []"}));
    EXPECT_EQ(cut(":A #15;*CLS;*CLS"), (Texts{":A #15;*CLS", "session *CLS []"}));
    EXPECT_EQ(cut(":A 1,#15;*CLS,2;*CLS"), (Texts{":A 1,#15;*CLS,2", "session *CLS []"}));
    EXPECT_EQ(cut("*ESE \"x;y\";*CLS"), (Texts{"session *ESE [\"x;y\"]", "session *CLS []"}));
}

TEST(StandardMessage, ABlockKeepsItsBytes)
{
    const std::string block(":LIST:DATA #18\n \0;\r\n\xff ", 22);
    EXPECT_EQ(cut(block), Texts{block});
    EXPECT_EQ(cut(block + '\n'), Texts{block});
    EXPECT_EQ(cut(":FREQ 1;" + block + ";*CLS\n"), (Texts{":FREQ 1;" + block, "session *CLS []"}));
    EXPECT_EQ(cut(":A #0a;*CLS \n"), Texts{":A #0a;*CLS "}) << "an indefinite block ends with the message";
}

TEST(StandardMessage, AnIncompleteBlockIsAnErrorAndNotSentOn)
{
    EXPECT_EQ(cut(":LIST:DATA #15abc\n"), Texts{"error -161"});
    EXPECT_EQ(cut(":LIST:DATA #15abc"), Texts{"error -161"});
    EXPECT_EQ(cut(":FREQ 1;:LIST:DATA #3100ab;*CLS\n"), (Texts{":FREQ 1", "error -161"}));
    EXPECT_EQ(cut("*ESE #15ab"), Texts{"error -161"});
    EXPECT_EQ(cut(":A 1,#9999999999\n"), Texts{"error -161"});
}

// The instrument would wait for the rest of it, whatever its header is.
TEST(StandardMessage, AnIncompleteBlockAfterAFaultyHeaderIsTheHeadersError)
{
    EXPECT_EQ(cut("1X #15ab\n"), Texts{"error -102"});
    EXPECT_EQ(cut(":FREQ 1;A::B #15ab"), (Texts{":FREQ 1", "error -110"}));
}

TEST(StandardMessage, AnOpenStringOrExpressionIsTheInstrumentsError)
{
    EXPECT_EQ(cut(":A \"x;*CLS\n"), Texts{":A \"x;*CLS"});
    EXPECT_EQ(cut(":A (x;*CLS"), Texts{":A (x;*CLS"});
    EXPECT_EQ(cut("*CLS;*ESE 'x"), (Texts{"session *CLS []", "*ESE 'x"}));
}

// The instrument puts no separator between a block and the results after it.
TEST(StandardMessage, AQueryForABlockIsAPartOfItsOwn)
{
    EXPECT_EQ(cut(":INST?;:INT:INF:DEV:OPT?;ARCH?;:SYST:VERS?"),
              (Texts{":INST?", ":INT:INF:DEV:OPT?", ":INT:INF:DEV:ARCH?;:SYST:VERS?"}));
    EXPECT_EQ(cut("INF:DEV:ARCH?;OPT?;*IDN?;ARCH?"),
              (Texts{"INF:DEV:ARCH?", ":INF:DEV:OPT?", "*IDN?", ":INF:DEV:ARCH?"}));
}
