/**
 * The maintenance server during a download, fed block by block by a PC tool.
 */
#ifndef ORVAN_TESTS_MAINTENANCE_FIRMWARE_BENCH_H
#define ORVAN_TESTS_MAINTENANCE_FIRMWARE_BENCH_H

#include <cstdlib>
#include <filesystem>
#include <future>
#include <sstream>

#include <sys/mount.h>

#include "maintenance_bench.h"
#include "support/files.h"
#include "support/loopback.h"
#include "support/private_network.h"

namespace board_test {

namespace fs = std::filesystem;
using orvan_test::read_file;
using orvan_test::write_file;

inline const fs::path kUpgrade = "/home/orvan/halde/upgrade";
inline const fs::path kHostSw = kUpgrade / "host_sw";
inline const fs::path kReceived = kHostSw / "software_update.tar.gz";
inline constexpr uint16_t kEndOfData = 0xFFFF;

/** All byte values, repeated. */
inline std::string file_of(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i + i / 256);
    }
    return bytes;
}

/** Constructed before the bench, whose sockets belong in this network; replaces PATH. */
struct FirmwareGround {
    FirmwareGround()
    {
        std::istringstream path(std::getenv("PATH"));
        for (std::string folder; std::getline(path, folder, ':');) {
            for (const char* name : {"tar", "gzip", "cp"}) {
                if (const fs::path program = fs::path(folder) / name; fs::exists(program)) {
                    programs.emplace(name, program);
                }
            }
        }
    }
    orvan_test::PrivateNetwork network;
    std::map<std::string, fs::path> programs;
};

/** A file system that holds only a few blocks, over the upgrade folder. */
class SmallDisk {
public:
    SmallDisk()
    {
        fs::create_directories(kUpgrade);
        m_mounted = ::mount("tmpfs", kUpgrade.c_str(), "tmpfs", 0, "size=64k") == 0;
    }
    ~SmallDisk()
    {
        if (m_mounted) {
            ::umount2(kUpgrade.c_str(), MNT_DETACH);
        }
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    bool mounted() const { return m_mounted; }

private:
    bool m_mounted = false;
};

/** Only tar, gzip and cp are in PATH besides the stand-ins. */
class FirmwareTest : protected FirmwareGround, public MaintenanceTest {
protected:
    void SetUp() override
    {
        if (!network.refusal().empty()) {
            GTEST_SKIP() << network.refusal();
        }
        MaintenanceTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        fs::create_directories(kPrograms);
        for (const auto& [name, program] : programs) {
            fs::create_symlink(program, kPrograms / name);
        }
        ::setenv("PATH", (std::getenv("PATH") + ":"s + kPrograms.string()).c_str(), 1);
        device.device_type_product = HaldeElec::Orvan::BenchtopDevice;
        port = orvan_test::local_port(peer.socket());
    }
    void TearDown() override
    {
        if (event.valid()) {
            break_off();
        }
        MaintenanceTest::TearDown();
    }

    /** A frame of a transfer; its size field is the size of the data unless given. */
    static std::string block(uint16_t number, const std::string& data)
    {
        return block(number, data, static_cast<uint16_t>(data.size()));
    }
    static std::string block(uint16_t number, const std::string& data, uint16_t size)
    {
        return FrameHeader{"HESU", number, size}.bytes() + data;
    }
    static std::string acknowledgement(uint16_t number) { return FrameHeader{"HESU", number}.bytes(); }

    /** Sends a frame and serves it on a separate thread. */
    void begin(const std::string& frame)
    {
        client.send(frame, port);
        event = std::async(std::launch::async, [this] { return server.WaitForEvent(); });
    }
    /** The result of the event. */
    int64_t end()
    {
        if (event.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
            ADD_FAILURE() << "the event does not end";
            break_off();
        }
        return event.get();
    }
    /** Ends a transfer: a download ignores the opcode, and a stream fails when no module answers. */
    void break_off()
    {
        while (event.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready) {
            client.send(FrameHeader{"HEPD"}.bytes(), port);
            client.send(FrameHeader{"HEPD", 1, kEndOfData}.bytes(), port);
        }
    }

    /** Starts a software download. */
    void begin_download()
    {
        begin(FrameHeader{"HESU"}.bytes());
        ASSERT_EQ(client.receive(), acknowledgement(1));
    }
    std::string reply_in_transfer(const std::string& frame)
    {
        client.send(frame, port);
        return client.receive();
    }
    /** Sends a frame that must not be answered: the next reply is to the next request. */
    void expect_ignored(const std::string& frame)
    {
        client.send(frame, port);
        EXPECT_EQ(client.receive(std::chrono::milliseconds(20)), "");
    }
    /** A complete download. @return the result of the event */
    int64_t download(const std::string& file)
    {
        begin_download();
        uint16_t number = 1;
        for (size_t at = 0; at < file.size() && !HasFailure(); at += kBlockSize, ++number) {
            EXPECT_EQ(reply_in_transfer(block(number, file.substr(at, kBlockSize))),
                      acknowledgement(static_cast<uint16_t>(number + 1)));
        }
        EXPECT_EQ(reply_in_transfer(block(number, "", kEndOfData)),
                  acknowledgement(static_cast<uint16_t>(number + 1)));
        return end();
    }

    /** The lines since the last call. */
    std::vector<LogLine> take_lines()
    {
        std::vector<LogLine> lines = logs.lines();
        logs.clear();
        return lines;
    }
    static LogLine info(const std::string& text) { return {LOG_INFO, text}; }
    static LogLine error(const std::string& text) { return {LOG_ERR, text}; }

    /** The log lines of a download of this many blocks, followed by these. */
    static std::vector<LogLine> download_lines(int blocks, const std::vector<LogLine>& more)
    {
        std::vector<LogLine> lines = {
            info(kAccepted),
            info("[CUdpServer] HESU - program download mode non orvanX"),
            info("[CUdpServer] ACK HESU header -> blk=1"),
            info("RecvFirmwareFileFromHEUpdateTool start"),
            info("firmware download complete (" + std::to_string(blocks) + " blocks)"),
        };
        lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    }
    static LogLine extraction(bool success)
    {
        return info("Extraction software_update.tar.gz "s + (success ? "success" : "failure"));
    }

    static constexpr size_t kBlockSize = 1024;
    static inline const fs::path kPrograms = "/home/orvan/programs";

    int port = 0;
    std::future<int64_t> event;
};

} // namespace board_test

#endif
