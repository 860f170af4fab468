// The settings file: writing.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include "file_store_bench.h"

using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

TEST_F(FileStore, WritingPastTheEndFillsTheGapWithZeros)
{
    ASSERT_TRUE(store->init());
    EXPECT_TRUE(store->write(100, counting(20).data(), 20));
    Bytes expected(100, 0);
    const Bytes tail = counting(20);
    expected.insert(expected.end(), tail.begin(), tail.end());
    EXPECT_EQ(file(), expected);
    EXPECT_EQ(store->size(), 120u);
}

TEST_F(FileStore, WritingIntoTheMiddleKeepsTheLengthAndRewritesTheFile)
{
    put_file(counting(50));
    ASSERT_TRUE(store->init());
    put_file(Bytes(80, 0xcc)); // later changes by others are lost: the whole image is written
    EXPECT_TRUE(store->write(10, Bytes(3, 0).data(), 3));
    Bytes expected = counting(50);
    std::fill_n(expected.begin() + 10, 3, uint8_t{0});
    EXPECT_EQ(file(), expected);
    EXPECT_EQ(store->size(), 50u);
}

TEST_F(FileStore, WritingAcrossTheEndGrows)
{
    put_file(counting(10));
    ASSERT_TRUE(store->init());
    EXPECT_TRUE(store->write(8, Bytes(4, 0xaa).data(), 4));
    EXPECT_EQ(file(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0xaa, 0xaa, 0xaa, 0xaa}));
}

TEST_F(FileStore, WritingNothingToAnEmptyStoreMakesAnEmptyFile)
{
    ASSERT_TRUE(store->init());
    const uint8_t byte = 0;
    EXPECT_TRUE(store->write(0, &byte, 0));
    EXPECT_TRUE(fs::exists(kFile));
    EXPECT_EQ(file(), Bytes{});
}

TEST_F(FileStore, WrittenDataIsReadByTheNextObject)
{
    ASSERT_TRUE(store->init());
    ASSERT_TRUE(store->write(0, counting(1024).data(), 1024));
    NullEeprom other;
    ASSERT_TRUE(other.init());
    Bytes bytes(1024);
    ASSERT_TRUE(other.read(0, bytes.data(), 1024));
    EXPECT_EQ(bytes, counting(1024));
}

TEST_F(FileStore, AWriteTooLargeForTheMemoryFails)
{
    ASSERT_TRUE(store->init());
    const uint8_t byte = 0;
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(store->write(4, &byte, SIZE_MAX / 2));
    EXPECT_FALSE(store->write(4, &byte, SIZE_MAX));
    EXPECT_EQ(said(err), "NullEeprom::write OOM resizing to " + std::to_string(SIZE_MAX / 2 + 4) +
                             "\nNullEeprom::write OOM resizing to " + std::to_string(SIZE_MAX) + "\n");
    EXPECT_EQ(store->size(), 0u);
    EXPECT_FALSE(fs::exists(kFile));
}

TEST_F(FileStore, AFailedOpenForWritingLeavesTheImageNewerThanTheFile)
{
    ASSERT_TRUE(store->init());
    fs::create_symlink("flash.ini", kFile);
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(store->write(0, counting(5).data(), 5));
    EXPECT_EQ(err.text(), "NullEeprom fopen for write: Too many levels of symbolic links\n");
    EXPECT_EQ(store->size(), 5u);
}

TEST_F(FileStore, AFailedLockLeavesTheFileTruncated)
{
    put_file(counting(10));
    ASSERT_TRUE(store->init());
    g_failing = "flock";
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(store->write(0, counting(10).data(), 10));
    EXPECT_EQ(err.text(), "NullEeprom flock(LOCK_EX): Input/output error\n");
    EXPECT_EQ(file(), Bytes{});
}

TEST_F(FileStore, AFullDiskFailsTheWrite)
{
    fs::create_directories(kFolder);
    ASSERT_EQ(mount("tmpfs", kFolder.c_str(), "tmpfs", 0, "size=4k"), 0);
    ASSERT_TRUE(store->init());
    g_recording = true;
    {
        OutputCapture err(STDERR_FILENO);
        EXPECT_FALSE(store->write(0, counting(100'000).data(), 100'000));
        EXPECT_EQ(err.text(), "NullEeprom fwrite: No space left on device\n");
    }
    EXPECT_EQ(g_calls, (std::vector<std::string>{"flock " + std::to_string(LOCK_EX),
                                                 "flock " + std::to_string(LOCK_UN)}))
        << "the lock is released, and nothing is synced";
    ::umount(kFolder.c_str());
}

TEST_F(FileStore, AFullDiskGoesUnnoticedForAnImageTheSizeOfTheSettings)
{
    fs::create_directories(kFolder);
    ASSERT_EQ(mount("tmpfs", kFolder.c_str(), "tmpfs", 0, "size=4k"), 0);
    std::ofstream(kFolder + "/other") << std::string(4096, 'x');
    ASSERT_TRUE(store->init());
    {
        OutputCapture err(STDERR_FILENO);
        EXPECT_TRUE(store->write(0, counting(1024).data(), 1024));
        EXPECT_EQ(err.text(), "");
    }
    EXPECT_TRUE(fs::exists(kFile));
    EXPECT_EQ(file(), Bytes{});
    ::umount(kFolder.c_str());
}

TEST_F(FileStore, TheWholeImageIsOnDiskBeforeTheLockIsReleased)
{
    ASSERT_TRUE(store->init());
    g_calls.clear();
    g_recording = true;
    ASSERT_TRUE(store->write(0, counting(1024).data(), 1024));
    EXPECT_EQ(g_calls, (std::vector<std::string>{"flock " + std::to_string(LOCK_EX), "fsync 1024",
                                                 "flock " + std::to_string(LOCK_UN)}));
}

TEST_F(FileStore, AWriterTruncatesAndThenWaitsForTheLock)
{
    put_file(counting(10));
    ASSERT_TRUE(store->init());
    const int other = ::open(kFile.c_str(), O_RDONLY);
    ASSERT_EQ(flock(other, LOCK_EX), 0);

    std::thread writer([&] { EXPECT_TRUE(store->write(0, counting(10, 100).data(), 10)); });
    while (fs::file_size(kFile) != 0) {
        std::this_thread::yield();
    }
    NullEeprom reader;
    EXPECT_TRUE(reader.init()) << "a reader takes no lock";
    EXPECT_EQ(reader.size(), 0u);

    ASSERT_EQ(flock(other, LOCK_UN), 0);
    writer.join();
    ::close(other);
    EXPECT_EQ(file(), counting(10, 100));
}

TEST_F(FileStore, NoDescriptorStaysOpen)
{
    const auto open_now = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{});
    };
    put_file(counting(10));
    const auto before = open_now();
    ASSERT_TRUE(store->init());
    ASSERT_TRUE(store->write(0, counting(10).data(), 10));
    OutputCapture err(STDERR_FILENO);
    const auto with_capture = open_now();
    g_failing = "flock";
    EXPECT_FALSE(store->write(0, counting(10).data(), 10));
    g_failing = "ftell";
    EXPECT_FALSE(store->init());
    EXPECT_EQ(open_now(), with_capture);
    EXPECT_EQ(with_capture - before, 2) << "of the capture itself";
}

} // namespace
