// The settings file: loading and reading.
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "file_store_bench.h"

using namespace orvan_test;

namespace {

namespace fs = std::filesystem;

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

TEST_F(FileStore, InitLeavesExistingFoldersUnchanged)
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

TEST_F(FileStore, ASecondInitReadsTheFileAgain)
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

TEST_F(FileStore, AFileThatCannotSeekFails)
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

// Exhausts the address space for large allocations, which only a 32-bit process can run out of.
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

TEST_F(FileStore, ReadingOutsideFailsAndLogsTheRange)
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

} // namespace
