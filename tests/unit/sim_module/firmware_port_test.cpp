// The frames of the firmware port, byte for byte.
#include <cstring>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "maintenance_frame.h"
#include "module_fixture.h"
#include "support/loopback.h"

using namespace HaldeElec::Orvan;

namespace {

using namespace std::string_literals;

const std::string kMac = "\x02\x5E\x10\x20\x30\x40"s;

std::string big_endian(unsigned value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

/** A frame with this header and exactly this data. */
std::string frame(unsigned block, unsigned size, const std::string& data = "",
                  const std::string& opcode = "HEPD")
{
    return opcode + big_endian(block) + big_endian(size) + kMac + "\x12\x34\xA1\xB2\xC3\xD4\xE5\xF6"s + data;
}

/** A frame at full length. */
std::string full(const std::string& short_frame)
{
    return short_frame + std::string(sizeof(HALDE_PACKET) - short_frame.size(), '\x55');
}

std::string data_frame(unsigned block, const std::string& data)
{
    return full(frame(block, static_cast<unsigned>(data.size()), data));
}

const std::string kNoBlock(2, '\0');
std::string acknowledgement(unsigned next)
{
    return "HEPD" + big_endian(next) + kNoBlock + kMac + "\x12\x34\xA1\xB2\xC3\xD4\xE5\xF6"s;
}

std::string progress(unsigned percent)
{
    return "HEPD" + big_endian(percent) + "\0\0"s + kMac + std::string(8, '\0');
}

std::string final_frame(const std::string& info, const std::string& text)
{
    return "HEPD\0\0\xFF\xFF"s + kMac + "\xFF\xFF"s + info + "\0\0"s + text + '\0';
}

const std::string kStored = final_frame("\0\0\0\0"s, "image stored");
const std::string kIncomplete = final_frame("\x20\0\0\x80"s, "image incomplete");
const std::string kRefusedImage = final_frame("\x22\0\0\x80"s, "image refused");

/** A sender of frames to a module. */
class Sender {
public:
    explicit Sender(const sim_module::Module& module) : m_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = htons(module.firmware_port());
        ::inet_pton(AF_INET, module.address().c_str(), &name.sin_addr);
        EXPECT_EQ(connect(m_fd, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    }
    ~Sender() { ::close(m_fd); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    void send(const std::string& bytes) const
    {
        EXPECT_EQ(::send(m_fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }

    /** The next datagram; empty when none comes within the wait. */
    std::string receive(std::chrono::milliseconds wait = std::chrono::seconds(5)) const
    {
        pollfd waited{m_fd, POLLIN, 0};
        char bytes[2 * sizeof(HALDE_PACKET)];
        const bool ready = ::poll(&waited, 1, static_cast<int>(wait.count())) == 1;
        const ssize_t count = ready ? ::recv(m_fd, bytes, sizeof bytes, 0) : 0;
        return {bytes, static_cast<size_t>(count > 0 ? count : 0)};
    }

    std::string ask(const std::string& bytes) const
    {
        send(bytes);
        return receive();
    }

    bool stays_silent() const { return receive(std::chrono::milliseconds(150)).empty(); }

private:
    int m_fd;
};

class FirmwarePort : public ModuleTest {
protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        sender = std::make_unique<Sender>(module());
    }
    void TearDown() override
    {
        sender.reset();
        ModuleTest::TearDown();
    }

    /** Status of the image: how many were stored, and the length of the last. */
    std::string stored()
    {
        const std::string status = control("status");
        const size_t at = status.find("\"program\":{") + 11;
        return status.substr(at, status.find('}', at) - at);
    }

    /** The whole burning of an image, up to its final frame. */
    void expect_burning() const
    {
        for (unsigned percent = 10; percent <= 100; percent += 10) {
            EXPECT_EQ(sender->receive(), progress(percent)) << percent;
        }
        EXPECT_EQ(sender->receive(), kStored);
    }

    std::unique_ptr<Sender> sender;
};

const std::string kNothing = R"("stored":0,"size":0,"crc32":"00000000")";
const std::string kOneToNine = R"("stored":1,"size":9,"crc32":"CBF43926")";

} // namespace

TEST_F(FirmwarePort, AcknowledgesABlockWithTheNextNumberAndTheRestOfItsHeader)
{
    EXPECT_EQ(acknowledgement(2).size(), 22u);
    EXPECT_EQ(sender->ask(full(frame(1, 1024, std::string(1024, 'x')))), acknowledgement(2));
    EXPECT_EQ(sender->ask(data_frame(2, "abc")), acknowledgement(3));
}

TEST_F(FirmwarePort, AcceptsAStreamAndReportsBurning)
{
    EXPECT_EQ(sender->ask(data_frame(1, "1234")), acknowledgement(2));
    EXPECT_EQ(sender->ask(data_frame(2, "56789")), acknowledgement(3));
    EXPECT_EQ(stored(), kNothing);
    EXPECT_EQ(sender->ask(full(frame(3, EOD))), acknowledgement(4));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
    EXPECT_TRUE(sender->stays_silent());
}

TEST_F(FirmwarePort, AcceptsShortFrames)
{
    EXPECT_EQ(sender->ask(frame(0, 0)), acknowledgement(1));
    EXPECT_EQ(sender->ask(frame(1, 9, "123456789")), acknowledgement(2));
    EXPECT_EQ(sender->ask(frame(2, EOD)), acknowledgement(3));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, StoresARepeatedBlockOnceAndNoBlockAfterAGap)
{
    EXPECT_EQ(sender->ask(data_frame(1, "123")), acknowledgement(2));
    EXPECT_EQ(sender->ask(data_frame(2, "456")), acknowledgement(3));
    EXPECT_EQ(sender->ask(data_frame(2, "456")), acknowledgement(3));
    EXPECT_EQ(sender->ask(data_frame(4, "xxx")), acknowledgement(3));
    EXPECT_EQ(sender->ask(data_frame(3, "789")), acknowledgement(4));
    EXPECT_EQ(sender->ask(frame(4, EOD)), acknowledgement(5));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, RequestsABlockAgainWhoseDataIsIncomplete)
{
    EXPECT_EQ(sender->ask(frame(1, 10, "123456789")), acknowledgement(1));
    EXPECT_EQ(sender->ask(full(frame(1, 1025))), acknowledgement(1));
    EXPECT_EQ(sender->ask(full(frame(1, 0xFFFE))), acknowledgement(1));
    EXPECT_EQ(sender->ask(frame(1, 9, "123456789")), acknowledgement(2));
    EXPECT_EQ(sender->ask(frame(2, 1)), acknowledgement(2));
    EXPECT_EQ(sender->ask(frame(2, EOD)), acknowledgement(3));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, StartsOverWithBlockZeroAndWithBlockOne)
{
    sender->ask(data_frame(1, "abc"));
    sender->ask(data_frame(2, "def"));
    EXPECT_EQ(sender->ask(data_frame(0, "not stored")), acknowledgement(1));
    sender->ask(data_frame(1, "ghi"));
    sender->ask(data_frame(2, "jkl"));
    EXPECT_EQ(sender->ask(data_frame(1, "1234567")), acknowledgement(2));
    EXPECT_EQ(sender->ask(data_frame(2, "89")), acknowledgement(3));
    EXPECT_EQ(sender->ask(frame(3, EOD)), acknowledgement(4));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, DoesNotAnswerForeignFrames)
{
    for (const char* opcode : {"HEID", "HESU", "hepd", "HEPX"}) {
        sender->send(full(frame(1, 3, "abc", opcode)));
    }
    sender->send(frame(1, 0).substr(0, 21));
    sender->send("");
    EXPECT_EQ(sender->ask(data_frame(1, "123")), acknowledgement(2)) << "the first answer of all";
}

TEST_F(FirmwarePort, RefusesAnImageThatIsEmptyOrHasAGap)
{
    EXPECT_EQ(sender->ask(frame(1, EOD)), acknowledgement(1));
    EXPECT_EQ(sender->receive(), kIncomplete);
    sender->ask(data_frame(1, "123"));
    EXPECT_EQ(sender->ask(frame(3, EOD)), acknowledgement(2));
    EXPECT_EQ(sender->receive(), kIncomplete);
    EXPECT_TRUE(sender->stays_silent());
    EXPECT_EQ(stored(), kNothing);
    // A later stream is accepted normally.
    sender->ask(data_frame(1, "123456789"));
    sender->ask(frame(2, EOD));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, BurnsOnceHoweverOftenTheEndIsRepeated)
{
    sender->ask(data_frame(1, "123456789"));
    sender->send(frame(2, EOD));
    sender->send(frame(2, EOD));
    EXPECT_EQ(sender->receive(), acknowledgement(3));
    EXPECT_EQ(sender->receive(), acknowledgement(3));
    expect_burning();
    EXPECT_EQ(sender->ask(frame(2, EOD)), acknowledgement(3));
    EXPECT_TRUE(sender->stays_silent());
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, StopsBurningWhenANewStreamStarts)
{
    sender->ask(data_frame(1, "abc"));
    sender->ask(frame(2, EOD));
    EXPECT_EQ(sender->receive(), progress(10));
    sender->send(data_frame(1, "123456789"));
    std::string answer = sender->receive();
    while (answer == progress(20) || answer == progress(30)) { // already sent
        answer = sender->receive();
    }
    EXPECT_EQ(answer, acknowledgement(2));
    EXPECT_TRUE(sender->stays_silent());
    EXPECT_EQ(stored(), kNothing);
    sender->ask(frame(2, EOD));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, AnswersTheSenderOfTheFrame)
{
    const Sender other(module());
    EXPECT_EQ(sender->ask(data_frame(1, "1234")), acknowledgement(2));
    EXPECT_EQ(other.ask(data_frame(2, "56789")), acknowledgement(3));
    EXPECT_EQ(sender->ask(frame(3, EOD)), acknowledgement(4));
    expect_burning();
    EXPECT_TRUE(other.stays_silent());
}

TEST_F(FirmwarePort, SilentInTheStreamIgnoresThatBlockAndAllAfterIt)
{
    EXPECT_EQ(control("update silent-stream 2"), "ok");
    EXPECT_EQ(sender->ask(data_frame(1, "1234")), acknowledgement(2));
    sender->send(data_frame(2, "xxxxx"));
    sender->send(frame(3, EOD));
    EXPECT_TRUE(sender->stays_silent());
    EXPECT_EQ(control("update up"), "ok");
    EXPECT_EQ(sender->ask(data_frame(2, "56789")), acknowledgement(3)) << "it was not taken";
    EXPECT_EQ(control("update silent-stream"), "ok");
    sender->send(data_frame(1, "1234"));
    EXPECT_TRUE(sender->stays_silent());
}

TEST_F(FirmwarePort, SilentInTheBurningAcknowledgesOnlyTheEnd)
{
    EXPECT_EQ(control("update silent-burn"), "ok");
    EXPECT_EQ(sender->ask(data_frame(1, "1234")), acknowledgement(2));
    EXPECT_EQ(sender->ask(frame(2, EOD)), acknowledgement(3));
    EXPECT_TRUE(sender->stays_silent());
    EXPECT_EQ(stored(), kNothing);
}

TEST_F(FirmwarePort, LateAnswersAllArriveInOrder)
{
    EXPECT_EQ(control("update late 200"), "ok");
    const auto start = std::chrono::steady_clock::now();
    sender->send(data_frame(1, "123456789"));
    sender->send(frame(2, EOD));
    EXPECT_EQ(sender->receive(), acknowledgement(2));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    EXPECT_EQ(sender->receive(), acknowledgement(3));
    expect_burning();
    EXPECT_EQ(stored(), kOneToNine);
}

TEST_F(FirmwarePort, RefusesAnImageInItsFinalFrame)
{
    EXPECT_EQ(control("update refuse"), "ok");
    EXPECT_EQ(sender->ask(data_frame(1, "1234")), acknowledgement(2));
    EXPECT_EQ(sender->ask(frame(2, EOD)), acknowledgement(3));
    EXPECT_EQ(sender->receive(), kRefusedImage);
    EXPECT_TRUE(sender->stays_silent());
    EXPECT_EQ(stored(), kNothing);
}

TEST_F(FirmwarePort, AcceptsAStreamOfManyBlocks)
{
    std::string image;
    for (unsigned block = 1; block <= 2000; ++block) {
        std::string data(1024, static_cast<char>(block));
        ASSERT_EQ(sender->ask(full(frame(block, 1024, data))), acknowledgement(block + 1));
    }
    EXPECT_EQ(sender->ask(frame(2001, EOD)), acknowledgement(2002));
    expect_burning();
    EXPECT_NE(stored().find("\"size\":2048000,"), std::string::npos);
}

TEST_F(FirmwarePort, ForgetsAStreamInARestartAndAnswersAfterIt)
{
    sender->ask(data_frame(1, "123"));
    ask(":SYST:REST\r\n");
    EXPECT_TRUE(eventually([&] {
        sender->send(data_frame(2, "456"));
        const std::string answer = sender->receive(std::chrono::milliseconds(20));
        return answer == acknowledgement(1);
    }));
}

TEST(FirmwarePortOfAModule, IsOpenOnlyOnRequest)
{
    sim_module::Options options;
    options.address = "127.0.0.1";
    const sim_module::Module without(options);
    EXPECT_EQ(without.firmware_port(), 0);
    options.firmware_port = 0;
    const sim_module::Module with(options);
    EXPECT_NE(with.firmware_port(), 0);
    options.firmware_port = with.firmware_port();
    EXPECT_THROW(sim_module::Module third(options), std::system_error);
}
