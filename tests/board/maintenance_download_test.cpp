// The download of a file from the maintenance tool, block by block.

#include <random>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "maintenance_firmware_bench.h"

using namespace board_test;
using namespace HaldeElec::Orvan;
using std::chrono::milliseconds;

namespace {

class MaintenanceDownload : public FirmwareTest {
protected:
    /** Ends the download after this many blocks; the file is no archive, so it fails. */
    void finish(uint16_t blocks)
    {
        const auto number = static_cast<uint16_t>(blocks + 1);
        EXPECT_EQ(reply_in_transfer(block(number, "", kEndOfData)),
                  acknowledgement(static_cast<uint16_t>(number + 1)));
        EXPECT_EQ(end(), IF_FAILED);
    }
    /** A request that fails before a block is requested, and its reply. */
    std::string reply_to_failure()
    {
        EXPECT_EQ(serve(FrameHeader{"HESU"}.bytes()), IF_FAILED);
        return client.ready();
    }
    static std::string full_block(char fill) { return std::string(kBlockSize, fill); }
};

class MaintenanceDownloadOfSize : public MaintenanceDownload, public testing::WithParamInterface<size_t> {};

} // namespace

TEST_P(MaintenanceDownloadOfSize, IsWrittenAsSent)
{
    const std::string file = file_of(GetParam());
    EXPECT_EQ(download(file), IF_FAILED); // no archive
    EXPECT_TRUE(read_file(kReceived) == file);
    EXPECT_EQ(peer.download_status(), 0);
    const auto blocks = static_cast<int>((file.size() + kBlockSize - 1) / kBlockSize);
    EXPECT_EQ(take_lines(), download_lines(blocks + 1, {extraction(false)}));
}
INSTANTIATE_TEST_SUITE_P(Sizes, MaintenanceDownloadOfSize,
                         testing::Values(1, 1023, 1024, 1025, 2048, 10 * 1024 * 1024));

TEST_F(MaintenanceDownload, AnEmptyFileIsAcknowledgedWithBlockTwo)
{
    begin_download();
    EXPECT_EQ(reply_in_transfer(block(1, "", kEndOfData)), acknowledgement(2));
    EXPECT_EQ(end(), IF_FAILED);
    EXPECT_EQ(fs::file_size(kReceived), 0U);
    EXPECT_EQ(take_lines(), download_lines(1, {extraction(false)}));
}

TEST_F(MaintenanceDownload, AnAcknowledgementIsAHeaderThatEchoesOpcodeAndMac)
{
    begin(FrameHeader{"HESU", 7, 512, kForeignMac, 0x1234, 0x89ABCDEF, "uv"}.bytes() + full_block('x'));
    EXPECT_EQ(client.receive(), (FrameHeader{"HESU", 1, 0, kForeignMac, 0x1234, 0x89ABCDEF, "uv"}.bytes()));
    EXPECT_EQ(reply_in_transfer(FrameHeader{"NONE", 1, 1, kOwnMac, 0x4321, 5, "wx"}.bytes() + "a"),
              (FrameHeader{"NONE", 2, 0, kOwnMac, 0x4321, 5, "wx"}.bytes()));
    finish(1);
    EXPECT_EQ(read_file(kReceived), "a");
}

TEST_F(MaintenanceDownload, ARepeatedBlockIsIgnoredAndTheTransferContinues)
{
    begin_download();
    EXPECT_EQ(reply_in_transfer(block(1, "one,")), acknowledgement(2));
    expect_ignored(block(1, "ONE,"));
    EXPECT_EQ(reply_in_transfer(block(2, "two")), acknowledgement(3));
    finish(2);
    EXPECT_EQ(read_file(kReceived), "one,two");
}

TEST_F(MaintenanceDownload, ABlockThatIsEarlyIsIgnoredAndSoIsAnEarlyEnd)
{
    begin_download();
    expect_ignored(block(2, "two"));
    expect_ignored(block(2, "", kEndOfData));
    EXPECT_EQ(reply_in_transfer(block(1, "one")), acknowledgement(2));
    finish(1);
    EXPECT_EQ(read_file(kReceived), "one");
}

TEST_F(MaintenanceDownload, BlockZeroStartsOverAndKeepsTheTailOfALongerFile)
{
    begin_download();
    for (uint16_t number = 1; number <= 3; ++number) {
        EXPECT_EQ(reply_in_transfer(block(number, full_block(static_cast<char>('a' + number)))),
                  acknowledgement(static_cast<uint16_t>(number + 1)));
    }
    expect_ignored(block(0, full_block('z'))); // its data is ignored
    expect_ignored(block(4, full_block('y')));
    EXPECT_EQ(reply_in_transfer(block(1, "short")), acknowledgement(2));
    finish(1);
    EXPECT_EQ(read_file(kReceived), "short" + full_block('b').substr(5) + full_block('c') + full_block('d'));
}

TEST_F(MaintenanceDownload, BlockZeroWithTheEndSizeIsAlsoARestart)
{
    begin_download();
    EXPECT_EQ(reply_in_transfer(block(1, "one")), acknowledgement(2));
    expect_ignored(block(0, "", kEndOfData));
    finish(0);
    EXPECT_EQ(read_file(kReceived), "one");
}

TEST_F(MaintenanceDownload, AsManyBytesAreWrittenAsTheFrameClaimsPaddedWithZeros)
{
    begin_download();
    std::string expected;
    uint16_t number = 0;
    for (const size_t size : {0u, 1u, 1023u, 1024u, 1025u, 4096u, 65534u}) {
        ++number;
        EXPECT_EQ(reply_in_transfer(block(number, full_block('x'), static_cast<uint16_t>(size))),
                  acknowledgement(static_cast<uint16_t>(number + 1)))
            << size;
        expected += std::string(std::min(size, kBlockSize), 'x') +
                    std::string(size - std::min(size, kBlockSize), '\0');
    }
    finish(number);
    EXPECT_EQ(read_file(kReceived), expected);
}

TEST_F(MaintenanceDownload, AShortDatagramKeepsTheRestOfThePreviousFrame)
{
    begin_download();
    EXPECT_EQ(reply_in_transfer(block(1, full_block('x'))), acknowledgement(2));
    EXPECT_EQ(reply_in_transfer(block(2, "abc", 6)), acknowledgement(3));
    // The acknowledgement was built in the same buffer: an empty frame is the next block.
    EXPECT_EQ(reply_in_transfer(""), acknowledgement(4));
    finish(3);
    EXPECT_EQ(read_file(kReceived), full_block('x') + "abcxxx");
}

TEST_F(MaintenanceDownload, ALongerDatagramIsCutAtAFrame)
{
    begin_download();
    EXPECT_EQ(reply_in_transfer(block(1, full_block('x') + "more", 2000)), acknowledgement(2));
    finish(1);
    EXPECT_EQ(read_file(kReceived), full_block('x') + std::string(2000 - kBlockSize, '\0'));
}

TEST_F(MaintenanceDownload, PastBlock65535OnlyARestartMatches)
{
    begin_download();
    for (uint32_t number = 1; number <= 65535 && !HasFailure(); ++number) {
        EXPECT_EQ(reply_in_transfer(block(static_cast<uint16_t>(number), "x")),
                  acknowledgement(static_cast<uint16_t>(number + 1)));
    }
    for (const int number : {1, 2, 65535, 0}) {
        expect_ignored(block(static_cast<uint16_t>(number), "y"));
    }
    EXPECT_EQ(reply_in_transfer(block(1, "z")), acknowledgement(2));
    finish(1);
    EXPECT_EQ(read_file(kReceived), "z" + std::string(65534, 'x'));
}

TEST_F(MaintenanceDownload, TheEndAfterBlock65534IsAcknowledgedWithBlockZero)
{
    begin_download();
    for (uint32_t number = 1; number <= 65534 && !HasFailure(); ++number) {
        EXPECT_EQ(reply_in_transfer(block(static_cast<uint16_t>(number), "")),
                  acknowledgement(static_cast<uint16_t>(number + 1)));
    }
    finish(65534);
    EXPECT_EQ(logs.count(LOG_INFO, "firmware download complete (65535 blocks)"), 1U);
}

TEST_F(MaintenanceDownload, AnySenderMaySendBlocksAndIsAcknowledged)
{
    begin_download();
    const MaintenanceClient other("127.0.0.2"); // whose frames would normally need the MAC address
    other.send(block(1, "one,"), port);
    EXPECT_EQ(other.receive(), acknowledgement(2));
    EXPECT_EQ(reply_in_transfer(block(2, "two")), acknowledgement(3));
    EXPECT_EQ(other.ready(), "");
    finish(2);
    EXPECT_EQ(read_file(kReceived), "one,two");
}

TEST_F(MaintenanceDownload, OtherRequestsWaitUntilItHasEnded)
{
    begin_download();
    EXPECT_EQ(reply_in_transfer(block(1, "one")), acknowledgement(2));
    EXPECT_EQ(reply_in_transfer(block(2, "", kEndOfData)), acknowledgement(3));
    client.send(FrameHeader{"HEID"}.bytes(), port);
    EXPECT_EQ(end(), IF_FAILED);
    EXPECT_EQ(server.WaitForEvent(), IF_SUCCESS);
    EXPECT_EQ(client.ready().substr(0, 4), "HEID");
}

TEST_F(MaintenanceDownload, TheFileOfThePreviousDownloadIsRemoved)
{
    EXPECT_EQ(download(file_of(3000)), IF_FAILED);
    EXPECT_EQ(download("short"), IF_FAILED);
    EXPECT_EQ(read_file(kReceived), "short");
}

TEST_F(MaintenanceDownload, WaitsForAToolSilentForLongerThanTheTimeOut)
{
    // Every read of the socket then times out.
    ::fcntl(peer.socket(), F_SETFL, O_NONBLOCK);
    begin_download();
    EXPECT_EQ(event.wait_for(milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(reply_in_transfer(block(1, "one")), acknowledgement(2));
    finish(1);
    EXPECT_EQ(read_file(kReceived), "one");
}

TEST_F(MaintenanceDownload, LaterEventsWithoutAFrameFailAfterFiveSeconds)
{
    EXPECT_EQ(download("no archive"), IF_FAILED);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(server.WaitForEvent(), IF_FAILED);
    const auto waited = std::chrono::steady_clock::now() - begun;
    EXPECT_GE(waited, milliseconds(4900));
    EXPECT_LT(waited, milliseconds(9000));
}

TEST_F(MaintenanceDownload, ASocketThatFailsEndsItWithTheReason)
{
    server.Close();
    EXPECT_EQ(serve(FrameHeader{"HESU"}.bytes()), IF_FAILED);
    EXPECT_EQ(peer.download_status(), -1);
    EXPECT_EQ(take_lines(), (std::vector{
                                info(kAccepted),
                                info("[CUdpServer] HESU - program download mode non orvanX"),
                                info("[CUdpServer] ACK HESU header -> blk=1"),
                                info("RecvFirmwareFileFromHEUpdateTool start"),
                                info("recv error (Bad file descriptor)"),
                                error("Firmware file receive failed"),
                            }));
    EXPECT_TRUE(fs::exists(kReceived));
}

TEST_F(MaintenanceDownload, AFileThatDoesNotOpenIsOnlyLogged)
{
    write_file(kUpgrade, "no folder");
    EXPECT_EQ(reply_to_failure(), acknowledgement(1));
    EXPECT_EQ(peer.download_status(), -1);
    EXPECT_EQ(take_lines(),
              (std::vector{
                  info(kAccepted),
                  info("[CUdpServer] HESU - program download mode non orvanX"),
                  info("[CUdpServer] ACK HESU header -> blk=1"),
                  info("RecvFirmwareFileFromHEUpdateTool start"),
                  info("cannot open /home/orvan/halde/upgrade/host_sw/software_update.tar.gz for writing"),
                  error("Firmware file receive failed"),
              }));
    timeval timeout = {};
    socklen_t size = sizeof timeout;
    ::getsockopt(peer.socket(), SOL_SOCKET, SO_RCVTIMEO, &timeout, &size);
    EXPECT_EQ(timeout.tv_sec, 5);
    EXPECT_EQ(timeout.tv_usec, 0);
}

TEST_F(MaintenanceDownload, AFullDiskIsNoticedByTheArchiverAlone)
{
    const SmallDisk disk;
    if (!disk.mounted()) {
        GTEST_SKIP() << "no file system in memory";
    }
    EXPECT_EQ(download(file_of(200 * 1024)), IF_FAILED);
    EXPECT_LE(fs::file_size(kReceived), 65536U);
    EXPECT_EQ(take_lines(), download_lines(201, {extraction(false)}));
}

TEST_F(MaintenanceDownload, ADeviceOfNoKnownProductGetsNoAcknowledgement)
{
    for (const int product : {-1, static_cast<int>(InvalidDevice), 4}) {
        device.device_type_product = product;
        EXPECT_EQ(reply_to_failure(), "") << product;
        EXPECT_EQ(take_lines(),
                  (std::vector{info(kAccepted), error("invalid deviceType=" + std::to_string(product))}));
    }
    peer.set_device(nullptr);
    EXPECT_EQ(reply_to_failure(), "");
    EXPECT_EQ(take_lines(), (std::vector{info(kAccepted), error("invalid deviceType=3")}));
    EXPECT_FALSE(fs::exists(kUpgrade));
}

TEST_F(MaintenanceDownload, ItsStatusIsThatOfTheLastDownload)
{
    EXPECT_EQ(download("no archive"), IF_FAILED);
    EXPECT_EQ(peer.download_status(), 0); // it has arrived, whatever its contents
    fs::remove_all(kUpgrade);
    write_file(kUpgrade, "no folder");
    EXPECT_EQ(reply_to_failure(), acknowledgement(1));
    EXPECT_EQ(peer.download_status(), -1);
}

TEST_F(MaintenanceDownload, AnySequenceOfFramesWritesTheExpectedFile)
{
    begin_download();
    std::mt19937 random(1);
    std::string frame = acknowledgement(1) + full_block('\0'); // as in the server's own buffer
    const auto number_at = [&frame](size_t at) {
        return static_cast<uint16_t>(static_cast<uint8_t>(frame[at]) << 8 |
                                     static_cast<uint8_t>(frame[at + 1]));
    };
    std::string file;
    size_t position = 0;
    uint16_t next = 1;
    bool unanswered = false;
    for (int i = 0; i < 500 && !HasFailure(); ++i) {
        // A frame that is answered follows one that is not: the socket buffers only a few.
        const bool fits = unanswered || random() % 2 == 0;
        const uint16_t others[] = {0, static_cast<uint16_t>(next - 1), static_cast<uint16_t>(next + 1),
                                   static_cast<uint16_t>(random())};
        const auto claimed = static_cast<uint16_t>(random() % (random() % 8 == 0 ? 65535 : 1030));
        std::string datagram = FrameHeader{"HESU", fits ? next : others[random() % 4], claimed}.bytes() +
                               std::string(random() % 1100, static_cast<char>(random()));
        if (!fits && random() % 2 == 0) {
            datagram.resize(random() % FRMHEADERLEN);
        }

        const size_t received = std::min(datagram.size(), frame.size());
        frame.replace(0, received, datagram, 0, received);
        const uint16_t number = number_at(4);
        const size_t size = number_at(6);
        unanswered = number == 0 || number != next;
        if (number == 0) {
            next = 1;
            position = 0;
        }
        if (unanswered) {
            client.send(datagram, port);
            continue;
        }
        std::string data = frame.substr(FRMHEADERLEN, std::min(size, kBlockSize));
        data.resize(size, '\0');
        file.resize(std::max(file.size(), position + size));
        file.replace(position, size, data);
        position += size;
        ++next;
        frame[4] = static_cast<char>(next >> 8);
        frame[5] = static_cast<char>(next & 0xFF);
        frame[6] = frame[7] = '\0';
        EXPECT_EQ(reply_in_transfer(datagram), frame.substr(0, FRMHEADERLEN)) << "frame " << i;
    }
    finish(static_cast<uint16_t>(next - 1));
    EXPECT_TRUE(read_file(kReceived) == file);
}
