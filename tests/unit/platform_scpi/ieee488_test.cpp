#include "data_fixture.h"

using ::testing::ElementsAre;

namespace {

struct CommonCommand : ScpiData {
    using Handler = scpi_result_t (*)(scpi_t*);

    scpi_reg_val_t reg(scpi_reg_name_t name) const { return SCPI_RegGet(&context, name); }
    void set(scpi_reg_name_t name, int val) { SCPI_RegSet(&context, name, static_cast<scpi_reg_val_t>(val)); }

    std::string ask(Handler handler)
    {
        parameters("");
        EXPECT_EQ(handler(&context), SCPI_RES_OK);
        return output();
    }

    scpi_result_t run(Handler handler, const char* text)
    {
        parameters(text);
        return handler(&context);
    }

    void expect_enable(Handler command, Handler query, const char* accepted, const char* reads_back)
    {
        EXPECT_EQ(run(command, accepted), SCPI_RES_OK) << accepted;
        EXPECT_EQ(ask(query), reads_back) << accepted;
    }

    void expect_refused(Handler command, Handler query, const char* refused, int err)
    {
        const std::string before = ask(query);
        EXPECT_EQ(run(command, refused), SCPI_RES_ERR) << refused;
        EXPECT_EQ(error(), err) << refused;
        EXPECT_EQ(ask(query), before);
    }

    void identify(const char* a, const char* b, const char* c, const char* d)
    {
        context.idn[0] = a;
        context.idn[1] = b;
        context.idn[2] = c;
        context.idn[3] = d;
    }
};

TEST_F(CommonCommand, IdentificationIsFourResults)
{
    identify("MAKER", "MODEL", "1234", "1.0");
    parameters("");
    EXPECT_EQ(SCPI_CoreIdnQ(&context), SCPI_RES_OK);
    EXPECT_THAT(writes, ElementsAre("MAKER", ",", "MODEL", ",", "1234", ",", "1.0"));
}

TEST_F(CommonCommand, IdentificationWithoutATextIsZero)
{
    identify("MAKER", nullptr, "", "1.0");
    EXPECT_EQ(ask(SCPI_CoreIdnQ), "MAKER,0,0,1.0");
}

TEST_F(CommonCommand, IdentificationIsReadAtEachQuery)
{
    char serial[8] = "1";
    identify("M", "N", serial, "V");
    EXPECT_EQ(ask(SCPI_CoreIdnQ), "M,N,1,V");
    serial[0] = '2';
    EXPECT_EQ(ask(SCPI_CoreIdnQ), "M,N,2,V");
}

TEST_F(CommonCommand, RefusedIdentificationFails)
{
    identify("M", "N", "S", "V");
    parameters("");
    writes_taken = 3;
    EXPECT_EQ(SCPI_CoreIdnQ(&context), SCPI_RES_ERR);
}

TEST_F(CommonCommand, ClearEmptiesEventsAndQueueAndLeavesTheEnables)
{
    set(SCPI_REG_ESE, 0x11);
    set(SCPI_REG_SRE, 0x22);
    set(SCPI_REG_OPERE, 0x33);
    set(SCPI_REG_QUESE, 0x44);
    set(SCPI_REG_OPERC, 0x01);
    set(SCPI_REG_QUESC, 0x02);
    SCPI_ErrorPush(&context, -101);
    EXPECT_EQ(run(SCPI_CoreCls, ""), SCPI_RES_OK);
    EXPECT_EQ(reg(SCPI_REG_ESR), 0);
    EXPECT_EQ(reg(SCPI_REG_OPER), 0);
    EXPECT_EQ(reg(SCPI_REG_QUES), 0);
    EXPECT_EQ(reg(SCPI_REG_STB), 0);
    EXPECT_EQ(SCPI_ErrorCount(&context), 0);
    EXPECT_EQ(reg(SCPI_REG_ESE), 0x11);
    EXPECT_EQ(reg(SCPI_REG_SRE), 0x22);
    EXPECT_EQ(reg(SCPI_REG_OPERE), 0x33);
    EXPECT_EQ(reg(SCPI_REG_QUESE), 0x44);
    EXPECT_EQ(reg(SCPI_REG_OPERC), 0x01);
    EXPECT_EQ(reg(SCPI_REG_QUESC), 0x02);
}

TEST_F(CommonCommand, EventEnableTakesAByte)
{
    expect_enable(SCPI_CoreEse, SCPI_CoreEseQ, "255", "255");
    expect_enable(SCPI_CoreEse, SCPI_CoreEseQ, "0", "0");
    expect_enable(SCPI_CoreEse, SCPI_CoreEseQ, "#H3C", "60");
    expect_enable(SCPI_CoreEse, SCPI_CoreEseQ, "31.5", "32");
    EXPECT_EQ(reg(SCPI_REG_ESE), 32);
    expect_refused(SCPI_CoreEse, SCPI_CoreEseQ, "256", -222);
    expect_refused(SCPI_CoreEse, SCPI_CoreEseQ, "-1", -222);
    expect_refused(SCPI_CoreEse, SCPI_CoreEseQ, "1E99", -222);
    expect_refused(SCPI_CoreEse, SCPI_CoreEseQ, "", -109);
    expect_refused(SCPI_CoreEse, SCPI_CoreEseQ, "ON", -148);
}

TEST_F(CommonCommand, ServiceRequestEnableTakesAByteWithoutBitSix)
{
    expect_enable(SCPI_CoreSre, SCPI_CoreSreQ, "255", "191");
    expect_enable(SCPI_CoreSre, SCPI_CoreSreQ, "64", "0");
    expect_enable(SCPI_CoreSre, SCPI_CoreSreQ, "32", "32");
    EXPECT_EQ(reg(SCPI_REG_SRE), 32);
    expect_refused(SCPI_CoreSre, SCPI_CoreSreQ, "256", -222);
    expect_refused(SCPI_CoreSre, SCPI_CoreSreQ, "-1", -222);
}

TEST_F(CommonCommand, ReadingTheEventRegisterClearsIt)
{
    set(SCPI_REG_ESE, 0xFF);
    set(SCPI_REG_ESR, 0x81);
    EXPECT_EQ(ask(SCPI_CoreEsrQ), "129");
    EXPECT_EQ(ask(SCPI_CoreEsrQ), "0");
    EXPECT_EQ(reg(SCPI_REG_STB), 0);
}

TEST_F(CommonCommand, ReadingTheStatusByteClearsNothing)
{
    set(SCPI_REG_SRE, STB_ESR);
    set(SCPI_REG_ESE, 0xFF);
    set(SCPI_REG_ESR, 1);
    EXPECT_EQ(ask(SCPI_CoreStbQ), "96");
    EXPECT_EQ(ask(SCPI_CoreStbQ), "96");
    EXPECT_EQ(reg(SCPI_REG_ESR), 1);
}

TEST_F(CommonCommand, OperationCompleteSetsItsBit)
{
    EXPECT_EQ(run(SCPI_CoreOpc, ""), SCPI_RES_OK);
    EXPECT_EQ(reg(SCPI_REG_ESR), ESR_OPC);
    EXPECT_EQ(output(), "");
}

TEST_F(CommonCommand, OperationCompleteQueryIsOneAndSetsNoBit)
{
    EXPECT_EQ(ask(SCPI_CoreOpcQ), "1");
    EXPECT_EQ(reg(SCPI_REG_ESR), 0);
}

TEST_F(CommonCommand, SelfTestIsPassed)
{
    EXPECT_EQ(ask(SCPI_CoreTstQ), "0");
}

TEST_F(CommonCommand, WaitIsDoneAtOnce)
{
    EXPECT_EQ(run(SCPI_CoreWai, ""), SCPI_RES_OK);
    EXPECT_EQ(output(), "");
}

TEST_F(CommonCommand, ResetCallsTheResetCallbackAndReturnsItsResult)
{
    EXPECT_EQ(run(SCPI_CoreRst, ""), SCPI_RES_OK);
    EXPECT_EQ(resets, 1);
    reset_result = SCPI_RES_ERR;
    EXPECT_EQ(run(SCPI_CoreRst, ""), SCPI_RES_ERR);
    EXPECT_EQ(resets, 2);
    context.interface = nullptr;
    EXPECT_EQ(run(SCPI_CoreRst, ""), SCPI_RES_OK);
}

TEST_F(CommonCommand, RefusedQueryFails)
{
    for (const Handler handler : {SCPI_CoreEseQ, SCPI_CoreEsrQ, SCPI_CoreSreQ, SCPI_CoreStbQ, SCPI_CoreOpcQ,
                                  SCPI_CoreTstQ, SCPI_SystemVersionQ, SCPI_SystemErrorCountQ}) {
        writes_taken = 0;
        EXPECT_EQ(run(handler, ""), SCPI_RES_ERR);
    }
}

/* SCPI-99 */

using MandatoryCommand = CommonCommand;

TEST_F(MandatoryCommand, VersionIs1999)
{
    EXPECT_EQ(ask(SCPI_SystemVersionQ), "1999.0");
}

TEST_F(MandatoryCommand, ErrorQueryTakesTheOldestError)
{
    SCPI_ErrorPush(&context, -113);
    SCPI_ErrorPushEx(&context, -109, "Param 0", 7);
    EXPECT_EQ(ask(SCPI_SystemErrorCountQ), "2");
    EXPECT_EQ(ask(SCPI_SystemErrorNextQ), "-113,\"Undefined header\"");
    EXPECT_EQ(ask(SCPI_SystemErrorNextQ), "-109,\"Missing parameter;Param 0\"");
    EXPECT_EQ(ask(SCPI_SystemErrorNextQ), "0,\"No error\"");
    EXPECT_EQ(ask(SCPI_SystemErrorCountQ), "0");
    EXPECT_EQ(reg(SCPI_REG_STB) & STB_QMA, 0);
}

TEST_F(MandatoryCommand, ErrorQueryFreesTheTextAlsoWhenItIsRefused)
{
    SCPI_ErrorPushEx(&context, -109, "Param 0", 7);
    writes_taken = 0;
    EXPECT_EQ(run(SCPI_SystemErrorNextQ, ""), SCPI_RES_ERR);
}

TEST_F(MandatoryCommand, StatusEventsAreClearedByReading)
{
    set(SCPI_REG_OPERC, 0x4001);
    set(SCPI_REG_QUESC, 0x0802);
    EXPECT_EQ(ask(SCPI_StatusOperationEventQ), "16385");
    EXPECT_EQ(ask(SCPI_StatusOperationEventQ), "0");
    EXPECT_EQ(ask(SCPI_StatusQuestionableEventQ), "2050");
    EXPECT_EQ(ask(SCPI_StatusQuestionableEventQ), "0");
}

TEST_F(MandatoryCommand, StatusConditionsStayWhenRead)
{
    set(SCPI_REG_OPERC, 5);
    set(SCPI_REG_QUESC, 6);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ask(SCPI_StatusOperationConditionQ), "5");
        EXPECT_EQ(ask(SCPI_StatusQuestionableConditionQ), "6");
    }
}

TEST_F(MandatoryCommand, StatusEnablesTake16BitsAndDropTheHighest)
{
    const std::pair<Handler, Handler> enables[] = {
        {SCPI_StatusOperationEnable, SCPI_StatusOperationEnableQ},
        {SCPI_StatusQuestionableEnable, SCPI_StatusQuestionableEnableQ}};
    for (const auto& [command, query] : enables) {
        expect_enable(command, query, "0", "0");
        expect_enable(command, query, "32767", "32767");
        expect_enable(command, query, "65535", "32767");
        expect_enable(command, query, "#H8010", "16");
        expect_refused(command, query, "65536", -222);
        expect_refused(command, query, "-1", -222);
        expect_refused(command, query, "", -109);
        expect_refused(command, query, "MAX", -148);
    }
}

TEST_F(MandatoryCommand, StatusEnablesAreTwoRegisters)
{
    run(SCPI_StatusOperationEnable, "1");
    run(SCPI_StatusQuestionableEnable, "2");
    EXPECT_EQ(reg(SCPI_REG_OPERE), 1);
    EXPECT_EQ(reg(SCPI_REG_QUESE), 2);
}

TEST_F(MandatoryCommand, StatusPresetClearsTheEnablesOnly)
{
    for (int name = SCPI_REG_SRE; name < SCPI_REG_COUNT; ++name) {
        set(static_cast<scpi_reg_name_t>(name), 0x21);
    }
    EXPECT_EQ(run(SCPI_StatusPreset, ""), SCPI_RES_OK);
    for (int name = SCPI_REG_SRE; name < SCPI_REG_COUNT; ++name) {
        const bool preset = name == SCPI_REG_OPERE || name == SCPI_REG_QUESE;
        EXPECT_EQ(reg(static_cast<scpi_reg_name_t>(name)), preset ? 0 : 0x21) << name;
    }
}

} // namespace
