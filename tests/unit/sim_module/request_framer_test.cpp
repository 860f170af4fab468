#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "module/request_framer.h"

using sim_module::RequestFramer;
using Result = RequestFramer::Result;

namespace {

std::vector<std::string> requests_of(RequestFramer& framer)
{
    std::vector<std::string> requests;
    std::string_view request;
    while (framer.next(request) == Result::kRequest) {
        requests.emplace_back(request);
    }
    return requests;
}

} // namespace

TEST(RequestFramer, ReturnsARequestOnlyWhenItsLineEndHasArrived)
{
    RequestFramer framer;
    const std::string text = ":FREQ 1;:POW 2;\r\n";
    for (size_t i = 0; i + 1 < text.size(); ++i) {
        framer.add(text.substr(i, 1));
        EXPECT_TRUE(requests_of(framer).empty());
    }
    framer.add("\n");
    EXPECT_EQ(requests_of(framer), std::vector<std::string>{text});
    EXPECT_TRUE(requests_of(framer).empty());
}

TEST(RequestFramer, ReturnsSeveralRequestsOfOnePieceInOrderAndKeepsTheRest)
{
    RequestFramer framer;
    framer.add("a\nb\r\n\nc");
    EXPECT_EQ(requests_of(framer), (std::vector<std::string>{"a\n", "b\r\n", "\n"}));
    framer.add("d\n");
    EXPECT_EQ(requests_of(framer), std::vector<std::string>{"cd\n"});
}

TEST(RequestFramer, ALineEndInABlockIsDataHoweverTheBytesCome)
{
    const std::string request = ":X #14\n\r\nz;:Y\r\n";
    for (size_t cut = 0; cut <= request.size(); ++cut) {
        RequestFramer framer;
        framer.add(request.substr(0, cut));
        std::vector<std::string> requests = requests_of(framer);
        framer.add(request.substr(cut));
        for (std::string& more : requests_of(framer)) {
            requests.push_back(std::move(more));
        }
        EXPECT_EQ(requests, std::vector<std::string>{request}) << "cut at " << cut;
    }
}

TEST(RequestFramer, TheLongestRequestPassesAndOneByteMoreIsTooLong)
{
    for (const size_t piece : {RequestFramer::kMaxRequest + 100, size_t{65536}, size_t{4093}}) {
        for (const size_t excess : {size_t{0}, size_t{1}}) {
            const std::string text = std::string(RequestFramer::kMaxRequest - 1 + excess, 'x') + "\nnext\n";
            RequestFramer framer;
            std::vector<Result> results;
            std::vector<std::string> requests;
            for (size_t i = 0; i < text.size(); i += piece) {
                framer.add(std::string_view(text).substr(i, piece));
                std::string_view request;
                for (Result result = framer.next(request); result != Result::kNone;
                     result = framer.next(request)) {
                    results.push_back(result);
                    requests.emplace_back(request);
                }
            }
            EXPECT_EQ(results, (std::vector<Result>{excess == 0 ? Result::kRequest : Result::kTooLong,
                                                    Result::kRequest}));
            ASSERT_EQ(requests.size(), 2U);
            EXPECT_EQ(requests[0].size(), RequestFramer::kMaxRequest);
            EXPECT_EQ(requests[1], "next\n");
        }
    }
}

TEST(RequestFramer, ARequestWithoutEndCostsNoMoreThanTheLongestOne)
{
    RequestFramer framer;
    const std::string piece(65536, 'x');
    std::string_view request;
    for (size_t sent = 0; sent < RequestFramer::kMaxRequest + 10 * piece.size(); sent += piece.size()) {
        framer.add(piece);
        EXPECT_EQ(framer.next(request), Result::kNone);
        EXPECT_LE(framer.buffered(), RequestFramer::kMaxRequest);
    }
}
