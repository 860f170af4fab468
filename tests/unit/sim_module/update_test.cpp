// Images sent in a request, and the restart.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "crc32_utils.h"
#include "module/socket_name.h"
#include "module_fixture.h"
#include "support/loopback.h"

namespace {

const std::string kOk = "+OK\r\n";

class Update : public ModuleTest {
protected:
    static std::string request(const std::string& header, const std::string& image)
    {
        const std::string size = std::to_string(image.size());
        return header + " #" + std::to_string(size.size()) + size + image + "\r\n";
    }

    /** The status of an image. */
    std::string image(const std::string& kind)
    {
        const std::string status = control("status");
        const size_t at = status.find("\"" + kind + "\":{");
        return status.substr(at, status.find('}', at) + 1 - at);
    }

    static std::string stored(const std::string& kind, const std::string& image, int times = 1)
    {
        const Crc32Utils& crc32 = *Crc32Utils::getInstance();
        const auto* const bytes = reinterpret_cast<const uint8_t*>(image.data());
        char text[100];
        std::snprintf(text, sizeof text, "\"%s\":{\"stored\":%d,\"size\":%zu,\"crc32\":\"%08X\"}",
                      kind.c_str(), times, image.size(),
                      crc32.crc32_signoff(crc32.calculate_crc32(crc32.crc32_init(), bytes, image.size())));
        return text;
    }

    bool status_has(const std::string& text) { return control("status").find(text) != std::string::npos; }

    /** Waits until the module is back from a restart. */
    bool is_back()
    {
        return eventually([&] { return status_has("\"away\":false"); });
    }

    static std::string nothing(const std::string& kind)
    {
        return "\"" + kind + "\":{\"stored\":0,\"size\":0,\"crc32\":\"00000000\"}";
    }
};

using Restart = Update;

} // namespace

TEST_F(Update, ABlockIsKeptByTheKindOfItsHeader)
{
    EXPECT_EQ(ask(request(":SYST:UPD:SOFT", "123456789")), kOk);
    EXPECT_EQ(image("software"), "\"software\":{\"stored\":1,\"size\":9,\"crc32\":\"CBF43926\"}");
    EXPECT_EQ(image("fpga"), nothing("fpga"));
    EXPECT_EQ(ask(request(":SYSTEM:UPDATE:FPGA", "a\r\n;\n#9")), kOk);
    EXPECT_EQ(image("fpga"), stored("fpga", "a\r\n;\n#9"));
    EXPECT_EQ(ask(request(":SYST:UPD:SOFT", "second")), kOk);
    EXPECT_EQ(image("software"), stored("software", "second", 2));
}

TEST_F(Update, AnImageOfMegabytesArrivesWhole)
{
    std::string image_bytes(3'000'000, '\0');
    for (size_t i = 0; i < image_bytes.size(); ++i) {
        image_bytes[i] = static_cast<char>(i * i >> 3);
    }
    EXPECT_EQ(ask(request(":SYST:UPD:FPGA", image_bytes)), kOk);
    EXPECT_EQ(image("fpga"), stored("fpga", image_bytes));
    EXPECT_TRUE(control("log 1").ends_with("bytes)")) << "only its head is kept";
}

TEST_F(Update, AnImageMayArriveByteByByte)
{
    const Client client(module());
    for (const char byte : request(":SYST:UPD:SOFT", "a\n;b")) {
        client.send({&byte, 1});
    }
    EXPECT_EQ(client.reply(), kOk);
    EXPECT_EQ(image("software"), stored("software", "a\n;b"));
}

TEST_F(Update, AnInvalidImageIsRefusedAndNotKept)
{
    EXPECT_EQ(ask(":SYST:UPD:SOFT\r\n"), "-ERR -109, \"Missing parameter\";+OK\r\n");
    EXPECT_EQ(ask(":SYST:UPD:SOFT 12\r\n").substr(0, 9), "-ERR -128");
    EXPECT_EQ(ask(":SYST:UPD:SOFT #10\r\n"), "-ERR -161, \"Invalid block data\";+OK\r\n");
    EXPECT_EQ(ask(":SYST:UPD:SOFT #13abc,1\r\n").substr(0, 9), "-ERR -108");
    EXPECT_NE(ask(":SYST:UPD:SOFT #12abc\r\n").find("-ERR -1"), std::string::npos) << "longer than announced";
    EXPECT_EQ(ask(":SYST:UPD:SOFT? #13abc\r\n").substr(0, 9), "-ERR -113");
    EXPECT_EQ(image("software"), nothing("software"));
}

TEST_F(Update, AnImageThatEndsWithItsConnectionIsNotKept)
{
    {
        const Client client(module());
        client.send(":SYST:UPD:SOFT #15ab\r\n");
        client.end_sending();
        EXPECT_TRUE(client.ended_by_peer());
    }
    EXPECT_EQ(image("software"), nothing("software"));
}

TEST_F(Update, AModuleThatRefusesImagesKeepsNoneAndServesTheRest)
{
    EXPECT_EQ(control("update refuse"), "ok");
    EXPECT_EQ(ask(request(":SYST:UPD:SOFT", "abc")), "-ERR -250, \"Mass storage error\";+OK\r\n");
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
    EXPECT_EQ(image("software"), nothing("software"));
    EXPECT_EQ(control("update up"), "ok");
    EXPECT_EQ(ask(request(":SYST:UPD:SOFT", "abc")), kOk);
}

TEST_F(Update, ASilentUpdateIsNotAnsweredAndDelaysNoOther)
{
    for (const char* fault : {"update silent-stream", "update silent-burn"}) {
        EXPECT_EQ(control(fault), "ok");
        const Client client(module());
        client.send(request(":SYST:UPD:SOFT", "abc"));
        client.send(":POW?\r\n");
        EXPECT_EQ(client.reply(), "5;+OK\r\n") << "the next reply is that of the next request";
        EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
        EXPECT_EQ(image("software"), nothing("software"));
    }
}

TEST_F(Update, ALateUpdateIsKeptAtOnceAndAnsweredLateAndNothingElseIsLate)
{
    EXPECT_EQ(control("update late 300"), "ok");
    const auto start = std::chrono::steady_clock::now();
    const Client client(module());
    client.send(request(":SYST:UPD:SOFT", "abc"));
    EXPECT_TRUE(eventually([&] { return image("software") == stored("software", "abc"); }));
    EXPECT_EQ(client.reply(), kOk);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(control("update late 600000"), "ok");
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
}

TEST_F(Restart, AnswersDisconnectsAndReturnsAsAfterPowerUp)
{
    ask(":POW 7\r\n");
    ask(request(":SYST:UPD:SOFT", "abc"));
    const Client bystander(module());
    EXPECT_EQ(ask(":POW?\r\n"), "7;+OK\r\n");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ask(":SYST:REST\r\n"), kOk);
    EXPECT_TRUE(bystander.ended_by_peer());
    EXPECT_TRUE(is_back());
    EXPECT_GE(std::chrono::steady_clock::now() - start, kRestartTime);
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
    EXPECT_EQ(image("software"), stored("software", "abc"));
    EXPECT_TRUE(status_has("\"restarts\":1,"));
}

TEST_F(Restart, TwoInOneMessageAreOneRestart)
{
    const Client client(module());
    EXPECT_EQ(client.ask(":SYST:REST;:SYST:REST;:POW?\r\n"), "5;+OK\r\n");
    EXPECT_TRUE(client.ended_by_peer());
    EXPECT_TRUE(is_back());
    const Client next(module());
    EXPECT_EQ(next.ask(":POW?\r\n"), "5;+OK\r\n");
}

TEST_F(Restart, TakesNoParameter)
{
    EXPECT_EQ(ask(":SYST:REST 1\r\n").substr(0, 9), "-ERR -108");
    EXPECT_TRUE(status_has("\"restarts\":0,\"away\":false"));
}

TEST_F(Restart, APortThatIsClosedStaysClosedAfterIt)
{
    const Client client(module());
    EXPECT_EQ(client.ask(":POW?\r\n"), "5;+OK\r\n");
    EXPECT_EQ(control("refuse"), "ok");
    EXPECT_EQ(client.ask(":SYST:REST\r\n"), kOk);
    EXPECT_TRUE(client.ended_by_peer());
    EXPECT_TRUE(is_back());
    EXPECT_EQ(orvan_test::connect_to_loopback(module().address(), module().port()), -1);
    EXPECT_EQ(control("up"), "ok");
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
}

TEST_F(Restart, StaysAwayWhileThePortIsInUse)
{
    const sockaddr_in name = sim_module::socket_name(module().address(), module().port());
    int taker = -1;
    auto asked = std::chrono::steady_clock::now();
    for (int round = 0; round < 10 && taker < 0; ++round) {
        const Client client(module());
        EXPECT_EQ(client.ask(":POW?\r\n"), "5;+OK\r\n");
        EXPECT_EQ(control("refuse"), "ok");
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
        ASSERT_EQ(listen(fd, 1), 0);
        asked = std::chrono::steady_clock::now();
        EXPECT_EQ(client.ask(":SYST:REST\r\n"), kOk);
        EXPECT_TRUE(client.ended_by_peer());
        // During the restart this opens no port yet; if sent too late, it is refused.
        if (control("up") == "ok") {
            taker = fd;
        } else {
            ::close(fd);
            EXPECT_EQ(control("up"), "ok");
        }
    }
    ASSERT_GE(taker, 0);
    EXPECT_TRUE(eventually([&] { return std::chrono::steady_clock::now() > asked + 3 * kRestartTime; }));
    EXPECT_TRUE(status_has("\"away\":true"));
    ::close(taker);
    EXPECT_TRUE(is_back());
    EXPECT_EQ(ask(":POW?\r\n"), "5;+OK\r\n");
}
