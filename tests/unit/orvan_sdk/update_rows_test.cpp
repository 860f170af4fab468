// The rows that update modules: their replies, byte for byte, and what modules get.
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/header_forms.h"
#include "update_bench.h"

using namespace orvan_test;
using testing::IsEmpty;

namespace {

const std::string kNotAllowed = "-ERR -108, \"Parameter not allowed\";+OK\r\n";
const std::string kUndefined = "-ERR -113, \"Undefined header\";+OK\r\n";

struct ImageRow {
    const char* pattern;
    const char* to_module;
};

const ImageRow kImageRows[] = {
    {":SYSTem:UPDate:SOFTware", ":SYST:UPD:SOFT #13abc\r\n"},
    {":SYSTem:UPDate:FPGA", ":SYST:UPD:FPGA #13abc\r\n"},
};

struct WrongImage {
    const char* parameters;
    const char* reply;
};

const WrongImage kWrongImages[] = {
    {"", "-ERR -109, \"Missing parameter\";+OK\r\n"},
    {" 1", "-ERR -128, \"Numeric data not allowed\";+OK\r\n"},
    {" image", "-ERR -148, \"Character data not allowed\";+OK\r\n"},
    {" \"image\"", "-ERR -158, \"String data not allowed\";+OK\r\n"},
    {" #10", "-ERR -200, \"Execution error\";+OK\r\n"},
};

class UpdateRows : public UpdateBench {
protected:
    /** What the three modules received since the last call, concatenated. */
    std::vector<Lines> take_requests()
    {
        std::vector<Lines> all;
        for (int index = 0; index < 3; ++index) {
            const Lines requests = modules[index].requests();
            all.emplace_back(requests.begin() + static_cast<std::ptrdiff_t>(m_seen[index]), requests.end());
            m_seen[index] = requests.size();
        }
        return all;
    }

    static std::vector<Lines> each(const Lines& requests) { return std::vector<Lines>(3, requests); }

    const std::string m_internal = "[:INTernal]:GUI:UPDate:SOFTware";

private:
    size_t m_seen[3] = {};
};

TEST_F(UpdateRows, TakeAnImageInEveryForm)
{
    for (const ImageRow& row : kImageRows) {
        for (const std::string& form : header_forms(row.pattern)) {
            EXPECT_EQ(ask(form + " #13abc"), "+OK\r\n") << form;
            EXPECT_EQ(take_requests(), each({row.to_module})) << form;
        }
    }
    EXPECT_THAT(stand_ins.calls(), IsEmpty());
}

TEST_F(UpdateRows, RefuseAnInvalidImageAndSendNothing)
{
    for (const ImageRow& row : kImageRows) {
        for (const WrongImage& wrong : kWrongImages) {
            EXPECT_EQ(ask(short_header(row.pattern) + wrong.parameters), wrong.reply)
                << row.pattern << wrong.parameters;
        }
    }
    EXPECT_EQ(connections(), 0u);
    EXPECT_TRUE(std::filesystem::is_empty(kUpgradeFolder));
}

TEST_F(UpdateRows, RefuseAnExtraParameterAfterExecuting)
{
    for (const ImageRow& row : kImageRows) {
        EXPECT_EQ(ask(short_header(row.pattern) + " #13abc,1"), kNotAllowed) << row.pattern;
        EXPECT_EQ(take_requests(), each({row.to_module})) << row.pattern;
    }
    put_image("ovx_module_1.2.3.tar.gz", "abc");
    EXPECT_EQ(ask(short_header(m_internal) + " 1"), kNotAllowed);
    EXPECT_EQ(take_requests(), each({kImageRows[0].to_module, ":SYST:REST\r\n"}));
}

TEST_F(UpdateRows, SendTheImageInPlaceAndRestartInEveryForm)
{
    for (const std::string& form : header_forms(m_internal)) {
        put_image("ovx_module_1.2.3.tar.gz", "abc");
        const size_t restarts = stand_ins.calls().size();
        EXPECT_EQ(ask(form), "+OK\r\n") << form;
        EXPECT_EQ(take_requests(), each({kImageRows[0].to_module, ":SYST:REST\r\n"})) << form;
        EXPECT_EQ(stand_ins.calls().size(), restarts + 1) << form;
        EXPECT_EQ(stand_ins.calls().back(), "sudo reboot") << form;
    }
}

TEST_F(UpdateRows, HaveNoQueries)
{
    for (const std::string pattern : {kImageRows[0].pattern, kImageRows[1].pattern, m_internal.c_str()}) {
        for (const std::string& form : header_forms(pattern + "?")) {
            EXPECT_EQ(ask(form), kUndefined) << form;
        }
    }
    EXPECT_EQ(connections(), 0u);
    EXPECT_THAT(stand_ins.calls(), IsEmpty());
}

TEST_F(UpdateRows, AnswerForAMissingModule)
{
    const int closed = listen_on_loopback();
    orvanx->m_OrvanXport[2] = static_cast<uint32_t>(local_port(closed));
    ::close(closed);
    for (const ImageRow& row : kImageRows) {
        EXPECT_EQ(ask(short_header(row.pattern) + " #13abc"), kTooMuchData) << row.pattern;
    }
    put_image("ovx_module_1.2.3.tar.gz", "abc");
    EXPECT_EQ(ask(short_header(m_internal)), kTooMuchData);
    EXPECT_EQ(stand_ins.calls(), Lines{"sudo reboot"});
}

} // namespace
