// Blocks as parameters.
#include <string>

#include "parameter_fixture.h"

using namespace std::string_literals;

namespace {

/* ParamArbitraryBlock */

TEST_F(Parameter, BlockPointsAtItsBytesInTheInput)
{
    parameters("#15a,;\n\0 , 7"s);
    const char* data = nullptr;
    size_t len = 0;
    ASSERT_TRUE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_EQ(std::string(data, len), "a,;\n\0"s);
    EXPECT_EQ(data, context.param_list.lex_state.buffer + 3);
    int32_t number = 0;
    EXPECT_TRUE(SCPI_ParamInt32(&context, &number, true));
    EXPECT_EQ(number, 7);
}

TEST_F(Parameter, IndefiniteBlockRunsToTheEnd)
{
    parameters("#0ab,c;d ");
    const char* data = nullptr;
    size_t len = 0;
    ASSERT_TRUE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_EQ(std::string(data, len), "ab,c;d ");
    EXPECT_EQ(unread(), "");
}

TEST_F(Parameter, EmptyBlockIsABlock)
{
    parameters("#10");
    const char* data = nullptr;
    size_t len = 9;
    ASSERT_TRUE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_NE(data, nullptr);
    EXPECT_EQ(len, 0u);
}

struct NotABlock : ScpiData, ::testing::WithParamInterface<Mistake> {};

TEST_P(NotABlock, ReportsTheNumberOfItsKindAndNothingElse)
{
    parameters(GetParam().text);
    const char* data = "x";
    size_t len = 9;
    EXPECT_FALSE(SCPI_ParamArbitraryBlock(&context, &data, &len, true));
    EXPECT_EQ(error(), GetParam().error);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(len, 0u);
}

INSTANTIATE_TEST_SUITE_P(Each, NotABlock,
                         ::testing::Values(Mistake{"", -109}, Mistake{"12", -128}, Mistake{"#HFF", -128},
                                           Mistake{"#Q7", -128}, Mistake{"#B1", -128}, Mistake{"1V", -138},
                                           Mistake{"ABC", -148}, Mistake{"'a'", -158}, Mistake{"\"a\"", -158},
                                           Mistake{"(1)", -178}, Mistake{"#212abc", -161}));

TEST_F(Parameter, BlockWhereAWordIsWantedIsMinus168)
{
    parameters("#11A");
    const char* data = "x";
    size_t len = 9;
    EXPECT_FALSE(SCPI_ParamCharacters(&context, &data, &len, true));
    EXPECT_EQ(error(), -168);
    EXPECT_EQ(data, nullptr);
}

} // namespace
