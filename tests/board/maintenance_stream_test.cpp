// An image for the modules, passed on by the maintenance server frame by frame.

#include <csignal>
#include <cstring>
#include <deque>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "maintenance_firmware_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using orvan_test::open_descriptors;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr const char* kModuleAddresses[] = {"127.0.7.1", "127.0.8.1", "127.0.9.1", "127.0.10.1"};
constexpr size_t kFrameSize = 1046;

/** A module's maintenance port: the test decides what it answers, and when. */
class UdpModule {
public:
    explicit UdpModule(const char* address) : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_in own = orvan_test::ipv4(address, PORTUDP);
        EXPECT_EQ(bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    }
    /** The instrument's next frame; later answers are sent to its sender. */
    std::string receive(milliseconds bound = seconds(5))
    {
        pollfd waiting = {m_socket.get(), POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(bound.count())) <= 0) {
            return {};
        }
        std::string frame(2 * kFrameSize, '\0');
        socklen_t size = sizeof m_instrument;
        const ssize_t received = ::recvfrom(m_socket.get(), frame.data(), frame.size(), 0,
                                            reinterpret_cast<sockaddr*>(&m_instrument), &size);
        frame.resize(received > 0 ? static_cast<size_t>(received) : 0);
        return frame;
    }
    void send(const std::string& frame) const
    {
        ::sendto(m_socket.get(), frame.data(), frame.size(), 0,
                 reinterpret_cast<const sockaddr*>(&m_instrument), sizeof m_instrument);
    }

private:
    orvan_common::UniqueFd m_socket;
    sockaddr_in m_instrument = {};
};

const std::string kErrorFrame =
    FrameHeader{"HEPD", 0, 0xFFFF, std::string(6, '\0'), 0xFFFF, 0x8000010A}.bytes();

class MaintenanceStream : public FirmwareTest {
protected:
    void SetUp() override
    {
        std::copy(std::begin(kModuleAddresses), std::end(kModuleAddresses), CUdpServer::modulAddr);
        FirmwareTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        for (const char* address : kModuleAddresses) {
            modules.emplace_back(address);
        }
        install(3);
    }

    /** Sets the instrument's number of modules. */
    void install(int count)
    {
        settings().numDevices = static_cast<decltype(settings().numDevices)>(count);
        installed = count;
    }

    static std::string image(uint16_t number, const std::string& data = "")
    {
        return FrameHeader{"HEPD", number, static_cast<uint16_t>(data.size()), kOwnMac}.bytes() + data;
    }
    static std::string last_frame(uint16_t number)
    {
        return FrameHeader{"HEPD", number, 0xFFFF, kOwnMac}.bytes();
    }
    /** A module's answer: a header only, with its number in `mac`. */
    static std::string answer(int module, uint16_t number, uint16_t size = 0)
    {
        return FrameHeader{"HEPD", number, size, std::string(6, static_cast<char>('a' + module))}.bytes();
    }
    static std::string final_answer(int module, const std::string& text = "")
    {
        return FrameHeader{"HEPD", 0, 0xFFFF, std::string(6, static_cast<char>('a' + module))}.bytes() + text;
    }

    /** Lets every module receive a frame and answer. @return the reply to the tool */
    std::string pass_on(const std::string& frame, uint16_t number)
    {
        for (int i = 0; i < installed; ++i) {
            const std::string got = modules[static_cast<size_t>(i)].receive();
            EXPECT_EQ(got.size(), kFrameSize) << i;
            EXPECT_EQ(got.substr(0, frame.size()), frame) << i;
        }
        for (int i = 0; i < installed; ++i) {
            modules[static_cast<size_t>(i)].send(answer(i, number));
        }
        return client.receive();
    }
    /** The stream of an image in one frame, up to the answer to its end. */
    void stream()
    {
        begin(image(1, "image"));
        ASSERT_EQ(pass_on(image(1, "image"), 2), answer(installed - 1, 2));
        client.send(last_frame(2), port);
        ASSERT_EQ(pass_on(last_frame(2), 3), answer(installed - 1, 3));
    }
    /** The success frame after an acknowledgement of the highest module. */
    std::string success_frame() const
    {
        return FrameHeader{"HEPD", 0, 0xFFFF, std::string(6, static_cast<char>('a' + installed - 1)),
                           0xFFFF, 0}
            .bytes();
    }
    UdpModule& module(int index) { return modules[static_cast<size_t>(index)]; }

    static std::vector<LogLine> stream_lines(const std::vector<LogLine>& more)
    {
        std::vector<LogLine> lines = {info(kAccepted), info("[CUdpServer]OrvanX")};
        lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    }

    std::deque<UdpModule> modules;
    int installed = 0;
};

} // namespace

TEST_F(MaintenanceStream, FramesReachEveryModuleAndTheHighestModulesAnswerIsReturned)
{
    const std::string first = image(1, file_of(1024));
    const std::string second = image(2, "the rest");
    begin(first);
    EXPECT_EQ(pass_on(first, 2), answer(2, 2));
    client.send(second, port);
    EXPECT_EQ(pass_on(second + first.substr(second.size()), 3), answer(2, 3)); // followed by the previous one
    client.send(last_frame(3), port);
    EXPECT_EQ(pass_on(last_frame(3), 4), answer(2, 4));

    module(0).send(answer(0, 50, 7) + "half way");
    EXPECT_EQ(client.receive(), answer(0, 50, 7));
    module(0).send(final_answer(0, "burnt"));
    EXPECT_EQ(client.receive(), final_answer(0));
    module(1).send(final_answer(1, std::string(1024, 'x')));
    EXPECT_EQ(client.receive(), final_answer(1));
    module(2).send(final_answer(2));
    EXPECT_EQ(client.receive(), final_answer(2));
    EXPECT_EQ(client.receive(), success_frame());
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
    EXPECT_EQ(client.ready(), "");
    EXPECT_EQ(take_lines(),
              stream_lines({
                  info("[CUdpServer] File stream complete."),
                  info("[CUdpServer]:: start burning phase: 3 devices"),
                  info("[CUdpServer] final response from orvanx ch 1: burnt"),
                  info("[CUdpServer] final response from orvanx ch 2: " + std::string(1024, 'x')),
                  info("[CUdpServer] final response from orvanx ch 3: "),
                  info("[CUdpServer]HEPD - program download mode orvanX end"),
              }));
}

TEST_F(MaintenanceStream, EndClosesTheModuleSockets)
{
    const size_t before = open_descriptors();
    stream();
    for (int i = 0; i < installed; ++i) {
        module(i).send(final_answer(i));
    }
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(MaintenanceStream, AnswersAreReadInChannelOrderWhicheverArrivesFirst)
{
    stream();
    module(2).send(answer(2, 10));
    module(2).send(final_answer(2));
    module(1).send(final_answer(1));
    EXPECT_EQ(client.receive(milliseconds(20)), "");
    module(0).send(final_answer(0));
    for (const std::string& expected :
         {final_answer(0), final_answer(1), answer(2, 10), final_answer(2), success_frame()}) {
        EXPECT_EQ(client.receive(), expected);
    }
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}

TEST_F(MaintenanceStream, AnInstrumentOfOneModuleHasOneSocket)
{
    install(1);
    const size_t before = open_descriptors();
    begin(image(1, "image"));
    EXPECT_EQ(module(0).receive().substr(0, 27), image(1, "image"));
    EXPECT_EQ(open_descriptors(), before + 1);
    EXPECT_EQ(module(1).receive(milliseconds(20)), "");
    module(0).send(answer(0, 2));
    EXPECT_EQ(client.receive(), answer(0, 2));
    client.send(last_frame(2), port);
    EXPECT_EQ(pass_on(last_frame(2), 3), answer(0, 3));
    module(0).send(final_answer(0));
    EXPECT_EQ(client.receive(), final_answer(0));
    EXPECT_EQ(client.receive(), success_frame());
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}

TEST_F(MaintenanceStream, WithoutAModuleItSucceedsAtOnce)
{
    install(0);
    begin(last_frame(1));
    EXPECT_EQ(client.receive(), std::string(FRMHEADERLEN, '\0'));
    EXPECT_EQ(client.receive(),
              (FrameHeader{std::string(4, '\0'), 0, 0xFFFF, std::string(6, '\0'), 0xFFFF}.bytes()));
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}

TEST_F(MaintenanceStream, AFrameOfAnotherOpcodeIsDroppedWithNoReply)
{
    begin(image(1));
    EXPECT_EQ(pass_on(image(1), 2), answer(2, 2));
    for (const char* opcode : {"HEID", "HESU", "hepd", "\0\0\0\0"}) {
        client.send(FrameHeader{std::string(opcode, 4), 2, 0xFFFF}.bytes(), port);
    }
    EXPECT_EQ(module(0).receive(milliseconds(20)), "");
    EXPECT_EQ(client.ready(), "");
    client.send(image(2), port);
    EXPECT_EQ(pass_on(image(2), 3), answer(2, 3));
    client.send(last_frame(3), port);
    EXPECT_EQ(pass_on(last_frame(3), 4), answer(2, 4));
    for (int i = 0; i < installed; ++i) {
        module(i).send(final_answer(i));
    }
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}

TEST_F(MaintenanceStream, TheLastSenderGetsTheAnswersRegardlessOfItsMac)
{
    install(1);
    begin(image(1));
    EXPECT_EQ(pass_on(image(1), 2), answer(0, 2));
    const MaintenanceClient other("127.0.0.2");
    const std::string frame = FrameHeader{"HEPD", 2, 0xFFFF, kForeignMac}.bytes();
    other.send(frame, port);
    EXPECT_EQ(module(0).receive().substr(0, FRMHEADERLEN), frame);
    module(0).send(answer(0, 3));
    EXPECT_EQ(other.receive(), answer(0, 3));
    module(0).send(final_answer(0));
    EXPECT_EQ(other.receive(), final_answer(0));
    EXPECT_EQ(other.receive(), success_frame());
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
    EXPECT_EQ(client.ready(), "");
}

TEST_F(MaintenanceStream, AnAnswerShorterThanAHeaderIsCompletedFromThePreviousOne)
{
    install(2);
    begin(image(1));
    module(0).receive();
    module(1).receive();
    module(0).send(answer(0, 2));
    module(1).send("hepd!");
    EXPECT_EQ(client.receive(), "hepd!" + answer(0, 2).substr(5));
    client.send(last_frame(2), port);
    EXPECT_EQ(pass_on(last_frame(2), 3), answer(1, 3));
    module(0).send("\xff"); // a burn frame of a byte that is not the last
    EXPECT_EQ(client.receive().size(), FRMHEADERLEN);
    module(0).send(final_answer(0));
    module(1).send(final_answer(1));
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}

TEST_F(MaintenanceStream, AModuleThatIsSilentForTwoSecondsEndsItWithAnErrorFrame)
{
    const size_t before = open_descriptors();
    begin(image(1, "image"));
    for (int i = 0; i < installed; ++i) {
        module(i).receive();
    }
    module(0).send(answer(0, 2));
    module(2).send(answer(2, 2));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(client.receive(seconds(8)), kErrorFrame);
    const auto waited = std::chrono::steady_clock::now() - begun;
    EXPECT_GE(waited, milliseconds(1900));
    EXPECT_LT(waited, milliseconds(8000));
    EXPECT_EQ(end(), IF_FAILED);
    EXPECT_EQ(client.ready(), "");
    EXPECT_EQ(open_descriptors(), before + 3); // its sockets stay
    EXPECT_EQ(take_lines(), stream_lines({
                                error("[CUdpServer] Timeout/Error receiving ACK from Channel 2"),
                                error("[CUdpServer] Aborting stream due to module timeout."),
                            }));
}

// An empty datagram from a module counts as no answer, at once.

TEST_F(MaintenanceStream, EveryModuleThatFailsIsLoggedAndTheServiceContinues)
{
    begin(image(1));
    EXPECT_EQ(pass_on(image(1), 2), answer(2, 2));
    client.send(image(2), port);
    for (int i = 0; i < installed; ++i) {
        module(i).receive();
    }
    module(0).send("");
    module(1).send(answer(1, 3));
    module(2).send("");
    EXPECT_EQ(client.receive(), kErrorFrame);
    EXPECT_EQ(end(), IF_FAILED);
    EXPECT_EQ(take_lines(), stream_lines({
                                error("[CUdpServer] Timeout/Error receiving ACK from Channel 1"),
                                error("[CUdpServer] Timeout/Error receiving ACK from Channel 3"),
                                error("[CUdpServer] Aborting stream due to module timeout."),
                            }));
    EXPECT_EQ(reply_to(FrameHeader{"HEID"}.bytes()).substr(0, 4), "HEID");
}

TEST_F(MaintenanceStream, AtTheEndOfTheImageAModuleHasTenSeconds)
{
    install(1);
    begin(last_frame(1));
    module(0).receive();
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(client.receive(seconds(20)), kErrorFrame);
    const auto waited = std::chrono::steady_clock::now() - begun;
    EXPECT_GE(waited, milliseconds(9900));
    EXPECT_LT(waited, milliseconds(19000));
    EXPECT_EQ(end(), IF_FAILED);
}

TEST_F(MaintenanceStream, AModuleSilentForTenSecondsWhileBurningLeavesTheOthersTheirTime)
{
    stream();
    module(0).send(final_answer(0));
    EXPECT_EQ(client.receive(), final_answer(0));
    module(2).send(final_answer(2));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(client.receive(seconds(20)), kErrorFrame);
    const auto waited = std::chrono::steady_clock::now() - begun;
    EXPECT_GE(waited, milliseconds(9900));
    EXPECT_LT(waited, milliseconds(19000));
    EXPECT_EQ(client.receive(), final_answer(2));
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
    EXPECT_EQ(client.ready(), ""); // no success frame
    EXPECT_EQ(logs.count(LOG_ERR, "[CUdpServer] Channel 2 burn timeout."), 1U);
}

TEST_F(MaintenanceStream, EachModuleThatFailsToBurnIsAnErrorFrameAndNoneSucceeds)
{
    const size_t before = open_descriptors();
    stream();
    for (int i = 0; i < installed; ++i) {
        module(i).send(answer(i, 10));
        module(i).send("");
        EXPECT_EQ(client.receive(), answer(i, 10));
        EXPECT_EQ(client.receive(), kErrorFrame);
    }
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
    EXPECT_EQ(client.ready(), "");
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(take_lines(), stream_lines({
                                info("[CUdpServer] File stream complete."),
                                info("[CUdpServer]:: start burning phase: 3 devices"),
                                error("[CUdpServer] Channel 1 burn timeout."),
                                error("[CUdpServer] Channel 2 burn timeout."),
                                error("[CUdpServer] Channel 3 burn timeout."),
                                info("[CUdpServer]HEPD - program download mode orvanX end"),
                            }));
}

TEST_F(MaintenanceStream, AToolThatCannotBeReachedIsLoggedAndTheStreamContinues)
{
    sockaddr_in nowhere = client.address();
    nowhere.sin_port = 0;
    EXPECT_EQ(peer.serve(last_frame(1), nowhere), IF_SUCCESS_FPGA_UPDATED);
    EXPECT_EQ(take_lines(),
              stream_lines({
                  error("[CUdpServer]::WaitForEvent Error sending UDP ACK back to HEupdate Tool"),
                  info("[CUdpServer] File stream complete."),
                  info("[CUdpServer]:: start burning phase: 0 devices"),
                  info("[CUdpServer]HEPD - program download mode orvanX end"),
              }));
}

TEST_F(MaintenanceStream, ASocketWithATimeOutSendsTheFrameAgainEachTimeItPasses)
{
    install(1);
    const timeval soon = {0, 20'000};
    ::setsockopt(peer.socket(), SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof soon);
    begin(image(1, "image"));
    for (uint16_t number = 2; number < 5; ++number) {
        EXPECT_EQ(pass_on(image(1, "image"), number), answer(0, number));
    }
    client.send(last_frame(2), port);
    uint16_t number = 5;
    std::string frame;
    while ((frame = module(0).receive()).substr(0, FRMHEADERLEN) != last_frame(2)) {
        ASSERT_EQ(frame.substr(0, 27), image(1, "image"));
        module(0).send(answer(0, number));
        EXPECT_EQ(client.receive(), answer(0, number++));
    }
    module(0).send(answer(0, number));
    module(0).send(final_answer(0));
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}

TEST_F(MaintenanceStream, EndOfTheStreamEndsTheThread)
{
    install(1);
    client.send(last_frame(1), port);
    std::thread thread([this] { server.ThreadMain(); });
    EXPECT_EQ(pass_on(last_frame(1), 2), answer(0, 2));
    EXPECT_EQ(server.GetState(), 0U);
    module(0).send(final_answer(0));
    thread.join();
    EXPECT_EQ(server.GetState(), IFC_RECV_FIRMWARE);
    EXPECT_TRUE(peer.time_to_exit());
}

TEST_F(MaintenanceStream, TheSuccessFrameIsBuiltFromTheLastAcknowledgementNotABurnFrame)
{
    install(1);
    begin(last_frame(1));
    module(0).receive();
    const std::string acknowledged = FrameHeader{"HEPD", 2, 0, std::string(6, 'a'), 0x1234, 7, "uv"}.bytes();
    module(0).send(acknowledged);
    EXPECT_EQ(client.receive(), acknowledged);
    const std::string burnt = FrameHeader{"BURN", 5, 0xFFFF, std::string(6, 'z'), 0x4321, 9, "wx"}.bytes();
    module(0).send(burnt);
    EXPECT_EQ(client.receive(), burnt);
    EXPECT_EQ(client.receive(),
              (FrameHeader{"HEPD", 0, 0xFFFF, std::string(6, 'a'), 0xFFFF, 0, "uv"}.bytes()));
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}

TEST_F(MaintenanceStream, WaitsForAToolSilentForLongerThanAModuleMayBe)
{
    install(1);
    begin(image(1));
    EXPECT_EQ(pass_on(image(1), 2), answer(0, 2));
    EXPECT_EQ(event.wait_for(seconds(3)), std::future_status::timeout);
    EXPECT_EQ(module(0).receive(milliseconds(0)), ""); // nor is the frame sent again
    EXPECT_EQ(client.ready(), "");
    client.send(last_frame(2), port);
    EXPECT_EQ(pass_on(last_frame(2), 3), answer(0, 3));
    module(0).send(final_answer(0));
    EXPECT_EQ(end(), IF_SUCCESS_FPGA_UPDATED);
}
