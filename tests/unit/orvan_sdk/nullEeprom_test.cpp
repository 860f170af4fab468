#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "orvan_sdk/nullEeprom/nullEeprom.h"
#include "support/output_capture.h"
#include "support/private_home.h"

using orvan_test::OutputCapture;
using orvan_test::PrivateHome;

// Injects failures that no path of the fixed folder can cause.
struct NullEepromTestPeer {
    static void set_path(NullEeprom& store, const char* path)
    {
        std::memset(store._fullpath, 0, sizeof store._fullpath);
        std::strcpy(store._fullpath, path);
    }
    static std::string path(const NullEeprom& store) { return store._fullpath; }
    static const uint8_t* storage(const NullEeprom& store) { return store._storage; }
};

namespace {

// The one call that a test makes fail ("longer ftell": reports too much), and the order of the locking
// calls.
std::string g_failing;
std::vector<std::string> g_calls;
bool g_recording = false;

bool fails(const char* name)
{
    if (g_failing != name) {
        return false;
    }
    errno = EIO;
    return true;
}

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// They override the C library's for the whole program.
extern "C" int flock(int fd, int operation) noexcept
{
    if (g_recording) {
        g_calls.push_back("flock " + std::to_string(operation));
    }
    return fails("flock") ? -1 : next<int(int, int)>("flock")(fd, operation);
}

extern "C" long ftell(FILE* file)
{
    if (fails("ftell")) {
        return -1;
    }
    return next<long(FILE*)>("ftell")(file) + (g_failing == "longer ftell" ? 5 : 0);
}

extern "C" int fsync(int fd)
{
    if (g_recording) {
        g_calls.push_back("fsync " +
                          std::to_string(std::filesystem::file_size("/proc/self/fd/" + std::to_string(fd))));
    }
    return next<int(int)>("fsync")(fd);
}

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

const std::string kFolder = "/home/orvan/halde/config";
const std::string kFile = kFolder + "/flash.ini";

Bytes counting(size_t count, uint8_t from = 1)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), from);
    return bytes;
}

class FileStore : public testing::Test {
protected:
    void SetUp() override
    {
        if (!home.refusal().empty()) {
            GTEST_SKIP() << home.refusal();
        }
        store = std::make_unique<NullEeprom>();
    }
    void TearDown() override
    {
        g_failing.clear();
        g_recording = false;
        g_calls.clear();
        store.reset();
    }

    static Bytes file()
    {
        std::ifstream stream(kFile, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(stream), {});
    }
    static void put_file(const Bytes& bytes)
    {
        fs::create_directories(kFolder);
        std::ofstream(kFile, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    /** What was printed, without the lines that a sanitizer's malloc adds when it has no memory. */
    static std::string said(const OutputCapture& err)
    {
        std::istringstream text(err.text());
        std::string own;
        for (std::string line; std::getline(text, line);) {
            if (!line.starts_with("==")) {
                own += line + '\n';
            }
        }
        return own;
    }
    /** init() of a store with a fault. */
    std::string failed_init()
    {
        OutputCapture err(STDERR_FILENO);
        EXPECT_FALSE(store->init());
        return said(err);
    }

    PrivateHome home;
    std::unique_ptr<NullEeprom> store;
};

TEST_F(FileStore, IsKeptInFlashIniInTheConfigFolder)
{
    EXPECT_STREQ(NullEeprom::dir_path, "/home/orvan/halde/config");
    EXPECT_STREQ(NullEeprom::filename, "flash.ini");
    EXPECT_EQ(NullEepromTestPeer::path(*store), kFile);
}

TEST_F(FileStore, TheConstructorTouchesNoFile)
{
    EXPECT_FALSE(fs::exists("/home/orvan"));
    EXPECT_EQ(store->size(), 0u);
    EXPECT_EQ(NullEepromTestPeer::storage(*store), nullptr);
}

TEST_F(FileStore, InitMakesEveryMissingFolderWithMode755)
{
    ::umask(0);
    ASSERT_TRUE(store->init());
    for (const std::string folder : {"/home/orvan", "/home/orvan/halde", "/home/orvan/halde/config"}) {
        struct stat info = {};
        ASSERT_EQ(stat(folder.c_str(), &info), 0) << folder;
        EXPECT_TRUE(S_ISDIR(info.st_mode));
        EXPECT_EQ(info.st_mode & 07777, 0755u) << folder;
    }
    EXPECT_FALSE(fs::exists(kFile)) << "no file is made";
}

TEST_F(FileStore, InitLeavesExistingFoldersAsTheyAre)
{
    fs::create_directories(kFolder);
    fs::permissions("/home/orvan/halde", fs::perms::owner_all);
    ASSERT_TRUE(store->init());
    EXPECT_EQ(fs::status("/home/orvan/halde").permissions(), fs::perms::owner_all);
}

TEST_F(FileStore, AFileInPlaceOfTheFolderFailsWithItsName)
{
    fs::create_directories("/home/orvan/halde");
    std::ofstream(kFolder) << "x";
    EXPECT_EQ(failed_init(), "NullEeprom: /home/orvan/halde/config exists but not a directory\n");
}

TEST_F(FileStore, AFileInPlaceOfAParentFailsInMkdir)
{
    fs::create_directories("/home/orvan");
    std::ofstream("/home/orvan/halde") << "x";
    EXPECT_EQ(failed_init(), "NullEeprom mkdir: Not a directory\n");
}

TEST_F(FileStore, AFolderCreatedMeanwhileIsNoFailure)
{
    // stat follows the dangling link and fails, mkdir finds the link and returns EEXIST.
    fs::create_directories("/home/orvan/halde");
    fs::create_symlink("/nowhere", kFolder);
    EXPECT_TRUE(store->init());
}

TEST_F(FileStore, AnEmptyPathIsABadPath)
{
    NullEepromTestPeer::set_path(*store, "");
    EXPECT_EQ(failed_init(), "NullEeprom: bad path\n");
}

TEST_F(FileStore, APathWithoutASlashFailsSilently)
{
    NullEepromTestPeer::set_path(*store, "flash.ini");
    EXPECT_EQ(failed_init(), "");
}

TEST_F(FileStore, AMissingFileIsAnEmptyStore)
{
    ASSERT_TRUE(store->init());
    EXPECT_EQ(store->size(), 0u);
}

TEST_F(FileStore, AnEmptyFileIsAnEmptyStore)
{
    put_file({});
    ASSERT_TRUE(store->init());
    EXPECT_EQ(store->size(), 0u);
}

TEST_F(FileStore, AFileOfAnyLengthLoads)
{
    for (const size_t size : {size_t{1}, size_t{552}, size_t{1024}, size_t{5000}}) {
        put_file(counting(size));
        NullEeprom loaded;
        ASSERT_TRUE(loaded.init());
        ASSERT_EQ(loaded.size(), size);
        Bytes bytes(size);
        EXPECT_TRUE(loaded.read(0, bytes.data(), size));
        EXPECT_EQ(bytes, counting(size));
    }
}

TEST_F(FileStore, ASecondInitTakesTheFileAsItIsThen)
{
    put_file(counting(100));
    ASSERT_TRUE(store->init());
    put_file(counting(7));
    ASSERT_TRUE(store->init());
    EXPECT_EQ(store->size(), 7u);
    fs::remove(kFile);
    ASSERT_TRUE(store->init());
    EXPECT_EQ(store->size(), 0u);
}

TEST_F(FileStore, AFileThatCannotBeOpenedFails)
{
    fs::create_directories(kFolder);
    fs::create_symlink("flash.ini", kFile);
    EXPECT_EQ(failed_init(), "NullEeprom fopen: Too many levels of symbolic links\n");
}

TEST_F(FileStore, AFileThatCannotBeSoughtFails)
{
    fs::create_directories(kFolder);
    ASSERT_EQ(mkfifo(kFile.c_str(), 0600), 0);
    const int other_end = ::open(kFile.c_str(), O_RDWR);
    EXPECT_EQ(failed_init(), "NullEeprom fseek: Illegal seek\n");
    ::close(other_end);
}

TEST_F(FileStore, AnUnknownLengthFails)
{
    put_file(counting(10));
    g_failing = "ftell";
    EXPECT_EQ(failed_init(), "NullEeprom ftell: Input/output error\n");
}

// Exhausts the room for large allocations. Only a 32-bit process runs out of it.
class LargeAddresses {
public:
    LargeAddresses()
    {
        void* piece = nullptr;
        while (m_pieces.size() < 16 && (piece = ::mmap(nullptr, kPiece, PROT_NONE,
                                                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) != MAP_FAILED) {
            m_pieces.push_back(piece);
        }
    }
    ~LargeAddresses()
    {
        for (void* const piece : m_pieces) {
            ::munmap(piece, kPiece);
        }
    }
    LargeAddresses(const LargeAddresses&) = delete;
    LargeAddresses& operator=(const LargeAddresses&) = delete;

private:
    static constexpr size_t kPiece = size_t{1} << 28;
    std::vector<void*> m_pieces;
};

TEST_F(FileStore, AFileTooLargeForTheMemoryFails)
{
    fs::create_directories(kFolder);
    std::ofstream(kFile) << "x";
    constexpr uintmax_t kHuge = sizeof(long) > 4 ? uintmax_t{1} << 60 : uintmax_t{LONG_MAX}; // for ftell()
    if (::truncate(kFile.c_str(), static_cast<off_t>(kHuge)) != 0) {
        fs::resize_file(kFile, uintmax_t{1} << 50);
    }
    const auto size = fs::file_size(kFile);
    const LargeAddresses taken;
    EXPECT_EQ(failed_init(), "NullEeprom malloc " + std::to_string(size) + " failed\n");
    EXPECT_EQ(store->size(), 0u);
}

TEST_F(FileStore, AShortReadFailsAndKeepsTheOldImage)
{
    put_file(counting(10));
    ASSERT_TRUE(store->init());
    put_file(counting(20));
    g_failing = "longer ftell";
    const std::string text = failed_init();
    EXPECT_TRUE(text.starts_with("NullEeprom fread: ")) << text;
    EXPECT_EQ(store->size(), 10u);
    Bytes bytes(10);
    EXPECT_TRUE(store->read(0, bytes.data(), 10));
    EXPECT_EQ(bytes, counting(10));
}

TEST_F(FileStore, ReadingOutsideFailsWithTheNumbers)
{
    put_file(counting(10));
    ASSERT_TRUE(store->init());
    Bytes bytes(16, 0xee);
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(store->read(4, bytes.data(), 7));
    EXPECT_FALSE(store->read(11, bytes.data(), 0));
    EXPECT_FALSE(store->read(11, bytes.data(), SIZE_MAX - 5));
    EXPECT_EQ(err.text(), "NullEeprom::read OOB 4+7 > 10\n"
                          "NullEeprom::read OOB 11+0 > 10\n"
                          "NullEeprom::read OOB 11+" +
                              std::to_string(SIZE_MAX - 5) + " > 10\n");
    EXPECT_EQ(bytes, Bytes(16, 0xee));
}

TEST_F(FileStore, ReadingUpToTheEndSucceeds)
{
    put_file(counting(10));
    ASSERT_TRUE(store->init());
    Bytes bytes(6);
    EXPECT_TRUE(store->read(4, bytes.data(), 6));
    EXPECT_EQ(bytes, counting(6, 5));
    EXPECT_TRUE(store->read(10, bytes.data(), 0));
}

TEST_F(FileStore, AnEmptyStoreReadsZeroBytesOnly)
{
    ASSERT_TRUE(store->init());
    uint8_t byte = 0;
    EXPECT_TRUE(store->read(0, &byte, 0));
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(store->read(0, &byte, 1));
    EXPECT_EQ(err.text(), "NullEeprom::read OOB 0+1 > 0\n");
}

TEST_F(FileStore, NullPointersFailSilently)
{
    put_file(counting(10));
    ASSERT_TRUE(store->init());
    OutputCapture err(STDERR_FILENO);
    EXPECT_FALSE(store->read(0, nullptr, 1));
    EXPECT_FALSE(store->write(0, nullptr, 1));
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(file(), counting(10));
}

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

TEST_F(FileStore, WhatIsWrittenIsReadByTheNextObject)
{
    ASSERT_TRUE(store->init());
    ASSERT_TRUE(store->write(0, counting(1024).data(), 1024));
    NullEeprom other;
    ASSERT_TRUE(other.init());
    Bytes bytes(1024);
    ASSERT_TRUE(other.read(0, bytes.data(), 1024));
    EXPECT_EQ(bytes, counting(1024));
}

TEST_F(FileStore, AWriteThatNoMemoryHoldsFails)
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

TEST_F(FileStore, AFileThatCannotBeOpenedForWritingFailsAndTheImageIsNewer)
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

TEST_F(FileStore, AFullDiskGoesUnnoticedForAnImageOfTheSettings)
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
