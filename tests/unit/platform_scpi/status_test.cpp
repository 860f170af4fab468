#include "data_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

struct Status : ScpiData {
    scpi_reg_val_t reg(scpi_reg_name_t name) const { return SCPI_RegGet(&context, name); }
    void set(scpi_reg_name_t name, int val) { SCPI_RegSet(&context, name, static_cast<scpi_reg_val_t>(val)); }
};

TEST_F(Status, RegisterKeepsWhatWasSet)
{
    for (const scpi_reg_name_t name :
         {SCPI_REG_SRE, SCPI_REG_ESR, SCPI_REG_ESE, SCPI_REG_OPER, SCPI_REG_OPERE, SCPI_REG_OPERC,
          SCPI_REG_QUES, SCPI_REG_QUESE, SCPI_REG_QUESC}) {
        set(name, 0x25);
        EXPECT_EQ(reg(name), 0x25) << name;
    }
}

TEST_F(Status, BitsAreSetAndClearedIndividually)
{
    set(SCPI_REG_QUESE, 0x0F);
    SCPI_RegSetBits(&context, SCPI_REG_QUESE, 0x30);
    EXPECT_EQ(reg(SCPI_REG_QUESE), 0x3F);
    SCPI_RegClearBits(&context, SCPI_REG_QUESE, 0x11);
    EXPECT_EQ(reg(SCPI_REG_QUESE), 0x2E);
}

TEST_F(Status, ByteRegistersHaveEightBitsAndTheOthersFifteen)
{
    for (const scpi_reg_name_t name : {SCPI_REG_ESR, SCPI_REG_ESE}) {
        set(name, 0xFFFF);
        EXPECT_EQ(reg(name), 0xFF) << name;
    }
    for (const scpi_reg_name_t name :
         {SCPI_REG_OPER, SCPI_REG_OPERE, SCPI_REG_OPERC, SCPI_REG_QUES, SCPI_REG_QUESE, SCPI_REG_QUESC}) {
        set(name, 0xFFFF);
        EXPECT_EQ(reg(name), 0x7FFF) << name;
    }
}

TEST_F(Status, ServiceRequestEnableHasNoBitForTheRequestItself)
{
    set(SCPI_REG_SRE, 0xFF);
    EXPECT_EQ(reg(SCPI_REG_SRE), 0xBF);
}

TEST_F(Status, UnknownRegisterIsZeroAndIgnoresWrites)
{
    for (const auto name : {static_cast<scpi_reg_name_t>(SCPI_REG_COUNT), static_cast<scpi_reg_name_t>(15)}) {
        set(name, 1);
        EXPECT_EQ(reg(name), 0);
    }
}

TEST_F(Status, StandardEventsAreSummarizedThroughTheirEnable)
{
    set(SCPI_REG_ESR, ESR_OPC);
    EXPECT_EQ(reg(SCPI_REG_STB), 0);
    set(SCPI_REG_ESE, ESR_OPC | ESR_CER);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_ESR);
    set(SCPI_REG_ESR, ESR_PON);
    EXPECT_EQ(reg(SCPI_REG_STB), 0);
}

TEST_F(Status, OperationAndQuestionableEventsAreSummarizedThroughTheirEnables)
{
    set(SCPI_REG_OPERE, 0x10);
    set(SCPI_REG_QUESE, 0x20);
    set(SCPI_REG_OPER, 0x20);
    set(SCPI_REG_QUES, 0x10);
    EXPECT_EQ(reg(SCPI_REG_STB), 0);
    SCPI_RegSetBits(&context, SCPI_REG_OPER, 0x10);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_OPS);
    SCPI_RegSetBits(&context, SCPI_REG_QUES, 0x20);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_OPS | STB_QES);
    SCPI_RegClearBits(&context, SCPI_REG_OPER, 0x10);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_QES);
}

TEST_F(Status, ErrorQueueIsSummarizedWhileItHoldsAnError)
{
    SCPI_ErrorPush(&context, -900);
    SCPI_ErrorPush(&context, -900);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_QMA);
    scpi_error_t entry;
    SCPI_ErrorPop(&context, &entry);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_QMA);
    SCPI_ErrorPop(&context, &entry);
    EXPECT_EQ(reg(SCPI_REG_STB), 0);
}

TEST_F(Status, ConditionLatchesItsEventWhenItRises)
{
    set(SCPI_REG_OPERC, 0x10);
    set(SCPI_REG_QUESC, 0x01);
    EXPECT_EQ(reg(SCPI_REG_OPER), 0x10);
    EXPECT_EQ(reg(SCPI_REG_QUES), 0x01);
    set(SCPI_REG_OPER, 0);
    set(SCPI_REG_OPERC, 0x30);
    EXPECT_EQ(reg(SCPI_REG_OPER), 0x20) << "the bit that stayed is no event";
    set(SCPI_REG_OPERC, 0);
    EXPECT_EQ(reg(SCPI_REG_OPER), 0x20) << "an event stays, and a fall is none";
}

TEST_F(Status, ConditionReachesTheStatusByteThroughTheEvent)
{
    set(SCPI_REG_QUESE, 0x01);
    set(SCPI_REG_QUESC, 0x01);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_QES);
}

TEST_F(Status, OnlyBitsWithoutASummaryCanBeWrittenInTheStatusByte)
{
    set(SCPI_REG_STB, 0xFFFF);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_R01 | STB_PRO | STB_MAV);
    set(SCPI_REG_ESE, 0xFF);
    set(SCPI_REG_ESR, 1);
    set(SCPI_REG_STB, 0);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_ESR);
    SCPI_RegSetBits(&context, SCPI_REG_STB, STB_MAV);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_ESR | STB_MAV);
    SCPI_RegClearBits(&context, SCPI_REG_STB, 0xFF);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_ESR);
}

TEST_F(Status, RisingSummaryRequestsServiceOnce)
{
    set(SCPI_REG_SRE, STB_ESR | STB_QMA);
    set(SCPI_REG_ESE, 0xFF);
    EXPECT_THAT(controls, IsEmpty());
    set(SCPI_REG_ESR, ESR_OPC);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_ESR | STB_SRQ);
    EXPECT_THAT(controls, ElementsAre(Pair(SCPI_CTRL_SRQ, STB_ESR | STB_SRQ)));
    SCPI_RegSetBits(&context, SCPI_REG_ESR, ESR_CER);
    SCPI_ErrorPush(&context, -101);
    EXPECT_EQ(controls.size(), 1u) << "a summary that is up does not rise";
    SCPI_ErrorClear(&context);
    set(SCPI_REG_ESR, 0);
    EXPECT_EQ(reg(SCPI_REG_STB), 0);
    SCPI_ErrorPush(&context, -900);
    EXPECT_THAT(controls,
                ElementsAre(Pair(SCPI_CTRL_SRQ, STB_ESR | STB_SRQ), Pair(SCPI_CTRL_SRQ, STB_QMA | STB_SRQ)));
}

TEST_F(Status, EnablingASetBitRequestsService)
{
    SCPI_ErrorPush(&context, -900);
    EXPECT_THAT(controls, IsEmpty());
    set(SCPI_REG_SRE, STB_QMA);
    EXPECT_THAT(controls, ElementsAre(Pair(SCPI_CTRL_SRQ, STB_QMA | STB_SRQ)));
}

TEST_F(Status, WriteOfTheStatusByteDoesNotRepeatARequest)
{
    set(SCPI_REG_SRE, STB_QMA);
    SCPI_ErrorPush(&context, -900);
    set(SCPI_REG_STB, STB_MAV);
    EXPECT_EQ(controls.size(), 1u);
}

TEST_F(Status, AContextWithoutCallbacksKeepsItsRegisters)
{
    context.interface = nullptr;
    set(SCPI_REG_SRE, STB_QMA);
    SCPI_ErrorPush(&context, -101);
    EXPECT_EQ(reg(SCPI_REG_STB), STB_QMA | STB_SRQ);
}

} // namespace
