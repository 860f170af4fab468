#include <gtest/gtest.h>

#include "http/exchange.h"

using namespace orvan_web;

TEST(Problem, HasTheTitleOfItsStatusAndTheDetail)
{
    const Response response = problem(404, R"(no channel "7")");
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.type, "application/problem+json");
    EXPECT_EQ(response.body,
              R"({"type":"about:blank","title":"Not Found","status":404,"detail":"no channel \"7\""})");
}

TEST(Problem, WithoutADetailHasNone)
{
    EXPECT_EQ(problem(503, "").body, R"({"type":"about:blank","title":"Service Unavailable","status":503})");
}

TEST(Problem, OfAnUnknownStatusIsAnError)
{
    EXPECT_EQ(problem(599, "").body, R"({"type":"about:blank","title":"Error","status":599})");
}
