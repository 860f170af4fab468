#include <climits>
#include <cstring>

#include "data_fixture.h"

using ::testing::ElementsAre;

namespace {

struct ErrorQueue : ScpiData {
    void push(int_fast16_t err, const char* info)
    {
        SCPI_ErrorPushEx(&context, err, info, std::strlen(info));
    }

    /** "number" or "number:info" of the oldest entry; "" on an empty queue. */
    std::string pop()
    {
        scpi_error_t entry;
        if (!SCPI_ErrorPop(&context, &entry)) {
            return "";
        }
        std::string text = std::to_string(entry.error_code);
        if (entry.device_dependent_info != nullptr) {
            text += std::string(":") + entry.device_dependent_info;
        }
        SCPI_ErrorFree(&entry);
        return text;
    }
};

TEST_F(ErrorQueue, ReturnsItsEntriesOldestFirst)
{
    SCPI_ErrorPush(&context, -101);
    push(-222, "frequency");
    SCPI_ErrorPush(&context, 7);
    EXPECT_EQ(SCPI_ErrorCount(&context), 3);
    EXPECT_EQ(pop(), "-101");
    EXPECT_EQ(pop(), "-222:frequency");
    EXPECT_EQ(pop(), "7");
    EXPECT_EQ(SCPI_ErrorCount(&context), 0);
}

TEST_F(ErrorQueue, PopOfAnEmptyQueueReturnsNoErrorAndNoText)
{
    char text[] = "x";
    scpi_error_t entry{5, text};
    EXPECT_FALSE(SCPI_ErrorPop(&context, &entry));
    EXPECT_EQ(entry.error_code, 0);
    EXPECT_EQ(entry.device_dependent_info, nullptr);
}

TEST_F(ErrorQueue, WrapsAroundItsArrayManyTimes)
{
    for (int i = 1; i <= 50; ++i) {
        push(-i - 100, "a");
        push(-i - 200, "b");
        push(-i - 300, "c");
        EXPECT_EQ(pop(), std::to_string(-i - 100) + ":a");
        EXPECT_EQ(pop(), std::to_string(-i - 200) + ":b");
        EXPECT_EQ(pop(), std::to_string(-i - 300) + ":c");
    }
}

TEST_F(ErrorQueue, OverflowReplacesTheLastEntryAndItsText)
{
    push(-101, "1");
    push(-102, "2");
    push(-103, "3");
    push(-104, "4");
    push(-109, "5");
    push(-113, "6");
    EXPECT_EQ(SCPI_ErrorCount(&context), kQueueSize);
    EXPECT_EQ(pop(), "-101:1");
    EXPECT_EQ(pop(), "-102:2");
    EXPECT_EQ(pop(), "-103:3");
    EXPECT_EQ(pop(), "-350");
    EXPECT_EQ(pop(), "");
}

TEST_F(ErrorQueue, AcceptsErrorsAgainAfterTheOverflowOnceThereIsRoom)
{
    for (int i = 0; i < 6; ++i) {
        SCPI_ErrorPush(&context, -101);
    }
    EXPECT_EQ(pop(), "-101");
    push(-222, "late");
    EXPECT_EQ(pop(), "-101");
    EXPECT_EQ(pop(), "-101");
    EXPECT_EQ(pop(), "-350");
    EXPECT_EQ(pop(), "-222:late");
}

TEST_F(ErrorQueue, OfOneEntryOverflowsAtTheSecondError)
{
    context.error_queue_size = 1;
    push(-101, "a");
    push(-102, "b");
    EXPECT_EQ(SCPI_ErrorCount(&context), 1);
    EXPECT_EQ(pop(), "-350");
}

TEST_F(ErrorQueue, WithoutAnyRoomStillReportsTheError)
{
    context.error_queue_size = 0;
    push(-222, "text");
    EXPECT_EQ(SCPI_ErrorCount(&context), 0);
    EXPECT_THAT(errors, ElementsAre(-222));
    EXPECT_EQ(SCPI_RegGet(&context, SCPI_REG_ESR), ESR_EER);
    EXPECT_EQ(pop(), "");
}

TEST_F(ErrorQueue, ClearEmptiesIt)
{
    push(-101, "a");
    push(-102, "b");
    SCPI_ErrorClear(&context);
    EXPECT_EQ(SCPI_ErrorCount(&context), 0);
    EXPECT_EQ(pop(), "");
    EXPECT_EQ(SCPI_RegGet(&context, SCPI_REG_STB) & STB_QMA, 0);
    push(-103, "c");
    EXPECT_EQ(pop(), "-103:c");
}

TEST_F(ErrorQueue, ClearFreesTheTextsOfAQueueThatWrapsAround)
{
    push(-101, "1");
    push(-101, "2");
    push(-101, "3");
    EXPECT_EQ(pop(), "-101:1");
    EXPECT_EQ(pop(), "-101:2");
    push(-101, "4");
    push(-101, "5");
    push(-101, "6");
    SCPI_ErrorClear(&context);
    for (const scpi_error_t& entry : queue) {
        EXPECT_EQ(entry.device_dependent_info, nullptr);
    }
}

TEST_F(ErrorQueue, ZeroIsNoError)
{
    SCPI_ErrorPush(&context, 0);
    EXPECT_EQ(SCPI_ErrorCount(&context), 0);
    EXPECT_TRUE(errors.empty());
    EXPECT_FALSE(context.cmd_error);
    EXPECT_EQ(SCPI_RegGet(&context, SCPI_REG_ESR), 0);
}

TEST_F(ErrorQueue, EveryPushCallsBackEvenAfterAnOverflow)
{
    for (int err = -101; err >= -106; --err) {
        SCPI_ErrorPush(&context, err);
    }
    EXPECT_THAT(errors, ElementsAre(-101, -102, -103, -104, -105, -106));
}

TEST_F(ErrorQueue, CallbackFindsTheEntryInTheQueue)
{
    SCPI_ErrorPush(&context, -101);
    SCPI_ErrorPush(&context, -102);
    EXPECT_THAT(counts_at_error, ElementsAre(1, 2));
}

TEST_F(ErrorQueue, CallbackGetsTheNumberUnchanged)
{
    SCPI_ErrorPush(&context, 0x10000 + 5);
    EXPECT_THAT(errors, ElementsAre(0x10000 + 5));
    EXPECT_EQ(pop(), "5");
}

TEST_F(ErrorQueue, AContextWithoutCallbacksAcceptsErrors)
{
    context.interface = nullptr;
    SCPI_ErrorPush(&context, -101);
    const scpi_interface_t none{};
    context.interface = &none;
    SCPI_ErrorPush(&context, -102);
    EXPECT_EQ(pop(), "-101");
    EXPECT_EQ(pop(), "-102");
}

TEST_F(ErrorQueue, PushMarksCommandAndMessageAsFailed)
{
    SCPI_ErrorPush(&context, -101);
    EXPECT_TRUE(context.cmd_error);
    EXPECT_TRUE(context.message_error);
    EXPECT_TRUE(SCPI_ParamErrorOccurred(&context));
}

TEST_F(ErrorQueue, InfoTextIsACopy)
{
    char text[] = "abc";
    SCPI_ErrorPushEx(&context, -200, text, 3);
    text[0] = 'X';
    EXPECT_EQ(pop(), "-200:abc");
}

TEST_F(ErrorQueue, InfoTextEndsAtItsLengthOrItsNul)
{
    SCPI_ErrorPushEx(&context, -200, "abcdef", 3);
    SCPI_ErrorPushEx(&context, -200, "abc\0def", 7);
    SCPI_ErrorPushEx(&context, -200, "abc", 256 * 256);
    EXPECT_EQ(pop(), "-200:abc");
    EXPECT_EQ(pop(), "-200:abc");
    EXPECT_EQ(pop(), "-200:abc");
}

TEST_F(ErrorQueue, InfoTextWithoutALengthIsTakenWhole)
{
    SCPI_ErrorPushEx(&context, -200, "Target is not initialized", 0);
    EXPECT_EQ(pop(), "-200:Target is not initialized");
    push(-109, "first");
    SCPI_ErrorUpdateEx(&context, "Param 0", 0);
    EXPECT_EQ(pop(), "-109:Param 0");
}

TEST_F(ErrorQueue, EmptyInfoTextCountsAsNone)
{
    for (const size_t length : {0u, 10u}) {
        SCPI_ErrorPushEx(&context, -200, "", length);
        SCPI_ErrorPushEx(&context, -200, nullptr, length);
    }
    EXPECT_EQ(pop(), "-200");
    EXPECT_EQ(pop(), "-200");
    EXPECT_EQ(pop(), "-200");
    EXPECT_EQ(pop(), "-200");
}

TEST_F(ErrorQueue, UpdateSetsTheTextOfTheNewestEntry)
{
    SCPI_ErrorPush(&context, -101);
    SCPI_ErrorPush(&context, -109);
    SCPI_ErrorUpdateEx(&context, "Param 0", 7);
    EXPECT_EQ(pop(), "-101");
    EXPECT_EQ(pop(), "-109:Param 0");
}

TEST_F(ErrorQueue, UpdateReplacesTheTextAndQueuesAndReportsNothing)
{
    push(-109, "first");
    SCPI_ErrorUpdateEx(&context, "second", 6);
    EXPECT_EQ(SCPI_ErrorCount(&context), 1);
    EXPECT_THAT(errors, ElementsAre(-109));
    EXPECT_EQ(pop(), "-109:second");
}

TEST_F(ErrorQueue, UpdateMayUseAPartOfTheTextThatItReplaces)
{
    push(-109, "first");
    SCPI_ErrorUpdateEx(&context, queue[0].device_dependent_info + 2, 2);
    EXPECT_EQ(pop(), "-109:rs");
}

TEST_F(ErrorQueue, UpdateWithNoTextRemovesIt)
{
    push(-109, "first");
    SCPI_ErrorUpdateEx(&context, nullptr, 0);
    EXPECT_EQ(pop(), "-109");
}

TEST_F(ErrorQueue, UpdateOfAnEmptyQueueDoesNothing)
{
    SCPI_ErrorUpdateEx(&context, "Param 0", 7);
    EXPECT_EQ(SCPI_ErrorCount(&context), 0);
    EXPECT_FALSE(context.cmd_error);
    push(-101, "a");
    pop();
    SCPI_ErrorUpdateEx(&context, "Param 0", 7);
    for (const scpi_error_t& entry : queue) {
        EXPECT_EQ(entry.device_dependent_info, nullptr);
    }
}

TEST_F(ErrorQueue, UpdateLeavesTheOverflowMarkWithoutText)
{
    for (int i = 0; i < 5; ++i) {
        SCPI_ErrorPush(&context, -109);
    }
    SCPI_ErrorUpdateEx(&context, "Param 0", 7);
    EXPECT_EQ(pop(), "-109");
    EXPECT_EQ(pop(), "-109");
    EXPECT_EQ(pop(), "-109");
    EXPECT_EQ(pop(), "-350");
}

struct ClassRow {
    int number;
    scpi_reg_val_t event;
};

class ErrorClassBit : public ScpiData, public ::testing::WithParamInterface<ClassRow> {};

TEST_P(ErrorClassBit, IsSetInTheEventRegister)
{
    SCPI_ErrorPush(&context, GetParam().number);
    EXPECT_EQ(SCPI_RegGet(&context, SCPI_REG_ESR), GetParam().event);
}

INSTANTIATE_TEST_SUITE_P(
    Limits, ErrorClassBit,
    ::testing::Values(ClassRow{1, ESR_DER}, ClassRow{32767, ESR_DER}, ClassRow{-99, 0},
                      ClassRow{-100, ESR_CER}, ClassRow{-199, ESR_CER}, ClassRow{-200, ESR_EER},
                      ClassRow{-299, ESR_EER}, ClassRow{-300, ESR_DER}, ClassRow{-399, ESR_DER},
                      ClassRow{-400, ESR_QERR}, ClassRow{-499, ESR_QERR}, ClassRow{-500, ESR_PON},
                      ClassRow{-599, ESR_PON}, ClassRow{-600, ESR_URQ}, ClassRow{-699, ESR_URQ},
                      ClassRow{-700, ESR_REQ}, ClassRow{-799, ESR_REQ}, ClassRow{-800, ESR_OPC},
                      ClassRow{-899, ESR_OPC}, ClassRow{-900, 0}, ClassRow{-32768, 0}),
    [](const auto& row) {
        return (row.param.number < 0 ? "Minus" : "Plus") + std::to_string(std::abs(row.param.number));
    });

TEST_F(ErrorQueue, OverflowSetsTheDeviceErrorBitBesideTheClassOfTheLostError)
{
    for (int i = 0; i < kQueueSize; ++i) {
        SCPI_ErrorPush(&context, -101);
    }
    EXPECT_EQ(SCPI_RegGet(&context, SCPI_REG_ESR), ESR_CER);
    SCPI_ErrorPush(&context, -222);
    EXPECT_EQ(SCPI_RegGet(&context, SCPI_REG_ESR), ESR_CER | ESR_EER | ESR_DER);
}

struct Text {
    int number;
    const char* text;
};

constexpr Text kTexts[] = {
    {0, "No error"},
    {-100, "Command error"},
    {-101, "Invalid character"},
    {-102, "Syntax error"},
    {-103, "Invalid separator"},
    {-104, "Data type error"},
    {-105, "GET not allowed"},
    {-108, "Parameter not allowed"},
    {-109, "Missing parameter"},
    {-110, "Command header error"},
    {-111, "Header separator error"},
    {-112, "Program mnemonic too long"},
    {-113, "Undefined header"},
    {-114, "Header suffix out of range"},
    {-115, "Unexpected number of parameters"},
    {-120, "Numeric data error"},
    {-121, "Invalid character in number"},
    {-123, "Exponent too large"},
    {-124, "Too many digits"},
    {-128, "Numeric data not allowed"},
    {-130, "Suffix error"},
    {-131, "Invalid suffix"},
    {-134, "Suffix too long"},
    {-138, "Suffix not allowed"},
    {-140, "Character data error"},
    {-141, "Invalid character data"},
    {-144, "Character data too long"},
    {-148, "Character data not allowed"},
    {-150, "String data error"},
    {-151, "Invalid string data"},
    {-158, "String data not allowed"},
    {-160, "Block data error"},
    {-161, "Invalid block data"},
    {-168, "Block data not allowed"},
    {-170, "Expression error"},
    {-171, "Invalid expression"},
    {-178, "Expression data not allowed"},
    {-180, "Macro error"},
    {-181, "Invalid outside macro definition"},
    {-183, "Invalid inside macro definition"},
    {-184, "Macro parameter error"},
    {-200, "Execution error"},
    {-201, "Invalid while in local"},
    {-202, "Settings lost due to rtl"},
    {-203, "Command protected"},
    {-210, "Trigger error"},
    {-211, "Trigger ignored"},
    {-212, "Arm ignored"},
    {-213, "Init ignored"},
    {-214, "Trigger deadlock"},
    {-215, "Arm deadlock"},
    {-220, "Parameter error"},
    {-221, "Settings conflict"},
    {-222, "Data out of range"},
    {-223, "Too much data"},
    {-224, "Illegal parameter value"},
    {-225, "Out of memory"},
    {-226, "Lists not same length"},
    {-230, "Data corrupt or stale"},
    {-231, "Data questionable"},
    {-232, "Invalid format"},
    {-233, "Invalid version"},
    {-240, "Hardware error"},
    {-241, "Hardware missing"},
    {-250, "Mass storage error"},
    {-251, "Missing mass storage"},
    {-252, "Missing media"},
    {-253, "Corrupt media"},
    {-254, "Media full"},
    {-255, "Directory full"},
    {-256, "File name not found"},
    {-257, "File name error"},
    {-258, "Media protected"},
    {-260, "Expression error"},
    {-261, "Math error in expression"},
    {-270, "Macro error"},
    {-271, "Macro syntax error"},
    {-272, "Macro execution error"},
    {-273, "Illegal macro label"},
    {-274, "Macro parameter error"},
    {-275, "Macro definition too long"},
    {-276, "Macro recursion error"},
    {-277, "Macro redefinition not allowed"},
    {-278, "Macro header not found"},
    {-280, "Program error"},
    {-281, "Cannot create program"},
    {-282, "Illegal program name"},
    {-283, "Illegal variable name"},
    {-284, "Program currently running"},
    {-285, "Program syntax error"},
    {-286, "Program runtime error"},
    {-290, "Memory use error"},
    {-291, "Out of memory"},
    {-292, "Referenced name does not exist"},
    {-293, "Referenced name already exists"},
    {-294, "Incompatible type"},
    {-300, "Device-specific error"},
    {-310, "System error"},
    {-311, "Memory error"},
    {-312, "PUD memory lost"},
    {-313, "Calibration memory lost"},
    {-314, "Save/recall memory lost"},
    {-315, "Configuration memory lost"},
    {-320, "Storage fault"},
    {-321, "Out of memory"},
    {-330, "Self-test failed"},
    {-340, "Calibration failed"},
    {-350, "Queue overflow"},
    {-360, "Communication error"},
    {-361, "Parity error in program message"},
    {-362, "Framing error in program message"},
    {-363, "Input buffer overrun"},
    {-365, "Time out error"},
    {-400, "Query error"},
    {-410, "Query INTERRUPTED"},
    {-420, "Query UNTERMINATED"},
    {-430, "Query DEADLOCKED"},
    {-440, "Query UNTERMINATED after indefinite response"},
    {-500, "Power on"},
    {-600, "User request"},
    {-700, "Request control"},
    {-800, "Operation complete"},
};

TEST(ErrorText, IsTheStandardOneForEachNumberAndUnknownForAllOthers)
{
    std::vector<std::string> expected(1001, "Unknown error");
    for (const Text& row : kTexts) {
        expected[static_cast<size_t>(-row.number)] = row.text;
    }
    for (int number = 0; number >= -1000; --number) {
        EXPECT_EQ(SCPI_ErrorTranslate(number), expected[static_cast<size_t>(-number)]) << number;
    }
}

TEST(ErrorText, OfAnyOtherNumberIsUnknown)
{
    for (const int_fast16_t number :
         {1L, 100L, 32767L, -32768L, 65536L - 100L, long{INT32_MAX}, long{INT32_MIN}}) {
        EXPECT_STREQ(SCPI_ErrorTranslate(number), "Unknown error") << number;
    }
}

} // namespace
