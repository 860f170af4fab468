#include <cerrno>
#include <filesystem>
#include <string>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "interposed_calls.h"
#include "temp_folder.h"
#include <orvan_fs_utils.h>
#include <unique_fd.h>

namespace fs = std::filesystem;

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

mode_t mode_of(const std::string& path)
{
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
}

class FsUtils : public ::testing::Test {
protected:
    void SetUp() override { m_mask = ::umask(022); }
    void TearDown() override { ::umask(m_mask); }

    TempFolder folder;
    std::string path = folder / "file";

private:
    mode_t m_mask = 0;
};

TEST_F(FsUtils, IsTheSameObjectEachTime)
{
    ASSERT_NE(OrvanFSUtils::getInstance(), nullptr);
    EXPECT_EQ(OrvanFSUtils::getInstance(), OrvanFSUtils::getInstance());
}

// --- asking ----------------------------------------------------------------------------------

TEST_F(FsUtils, AnythingAtThePathExists)
{
    EXPECT_FALSE(OrvanFSUtils::ifFileExists(path.c_str()));
    write_file(path, "");
    EXPECT_TRUE(OrvanFSUtils::ifFileExists(path.c_str()));
    EXPECT_TRUE(OrvanFSUtils::ifFileExists(folder.path().c_str()));
    fs::create_symlink(folder / "nothing", folder / "broken");
    EXPECT_TRUE(OrvanFSUtils::ifFileExists((folder / "broken").c_str()));
    EXPECT_FALSE(OrvanFSUtils::ifFileExists(nullptr));
    EXPECT_FALSE(OrvanFSUtils::ifFileExists(""));
}

TEST_F(FsUtils, LengthOfAFileIsItsBytes)
{
    write_file(path, std::string(12345, 'x'));
    EXPECT_EQ(OrvanFSUtils::getFileLen(path.c_str()), 12345u);
}

TEST_F(FsUtils, LengthIsZeroWithoutAFileOrContents)
{
    EXPECT_EQ(OrvanFSUtils::getFileLen(path.c_str()), 0u);
    write_file(path, "");
    EXPECT_EQ(OrvanFSUtils::getFileLen(path.c_str()), 0u);
    EXPECT_EQ(OrvanFSUtils::getFileLen(folder.path().c_str()), 0u);
    EXPECT_EQ(OrvanFSUtils::getFileLen(nullptr), 0u);
}

TEST_F(FsUtils, LengthSaturatesAtItsMaximum)
{
    write_file(path, "");
    ASSERT_EQ(truncate(path.c_str(), (off_t{1} << 32) - 1), 0);
    EXPECT_EQ(OrvanFSUtils::getFileLen(path.c_str()), UINT32_MAX);
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 32), 0);
    EXPECT_EQ(OrvanFSUtils::getFileLen(path.c_str()), UINT32_MAX) << "not a number that wrapped to 0";
}

// --- reading ---------------------------------------------------------------------------------

TEST_F(FsUtils, ReadsTheRequestedBytes)
{
    const std::string contents("a\0b\r\n\xFF", 6);
    write_file(path, contents);
    std::string buffer(6, '?');
    EXPECT_TRUE(OrvanFSUtils::readBufferFromFile(path.c_str(), buffer.data(), 6));
    EXPECT_EQ(buffer, contents);
    buffer = "??????";
    EXPECT_TRUE(OrvanFSUtils::readBufferFromFile(path.c_str(), buffer.data(), 2));
    EXPECT_EQ(buffer, std::string("a\0????", 6));
    EXPECT_TRUE(OrvanFSUtils::readBufferFromFile(path.c_str(), nullptr, 0));
}

TEST_F(FsUtils, ReadingMoreThanThereIsFails)
{
    write_file(path, "abc");
    char buffer[8];
    EXPECT_FALSE(OrvanFSUtils::readBufferFromFile(path.c_str(), buffer, 4));
}

TEST_F(FsUtils, ReadingFromANonFileFailsWithoutBlocking)
{
    char buffer[8];
    EXPECT_FALSE(OrvanFSUtils::readBufferFromFile(path.c_str(), buffer, 1));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(OrvanFSUtils::readBufferFromFile(folder.path().c_str(), buffer, 0));
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(OrvanFSUtils::readBufferFromFile(path.c_str(), buffer, 1));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(OrvanFSUtils::readBufferFromFile(nullptr, buffer, 1));
    write_file(folder / "other", "x");
    EXPECT_FALSE(OrvanFSUtils::readBufferFromFile((folder / "other").c_str(), nullptr, 1));
}

TEST_F(FsUtils, ReadingContinuesAfterSignalsAndShortReads)
{
    const std::string contents(100, 'x');
    write_file(path, contents);
    std::string buffer(100, '?');
    InterposedCalls calls;
    calls.interrupt = true;
    calls.most_bytes = 7;
    EXPECT_TRUE(OrvanFSUtils::readBufferFromFile(path.c_str(), buffer.data(), buffer.size()));
    EXPECT_EQ(calls.calls.size(), 15u);
    EXPECT_EQ(buffer, contents);
}

TEST_F(FsUtils, WholeFileIsReadUpToItsLimit)
{
    std::string contents = "former";
    write_file(path, std::string("a\0b", 3));
    EXPECT_FALSE(OrvanFSUtils::readWholeFile(path.c_str(), contents, 2));
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(contents, "former");
    EXPECT_TRUE(OrvanFSUtils::readWholeFile(path.c_str(), contents, 3));
    EXPECT_EQ(contents, std::string("a\0b", 3));
    write_file(path, "");
    EXPECT_TRUE(OrvanFSUtils::readWholeFile(path.c_str(), contents, 3));
    EXPECT_EQ(contents, "");
    EXPECT_FALSE(OrvanFSUtils::readWholeFile(folder.path().c_str(), contents, 3));
    EXPECT_FALSE(OrvanFSUtils::readWholeFile((folder / "none").c_str(), contents, 3));
    EXPECT_FALSE(OrvanFSUtils::readWholeFile(nullptr, contents, 3));
}

// --- marker files ----------------------------------------------------------------------------

TEST_F(FsUtils, CreatedFileIsEmptyAndLosesItsFormerContents)
{
    EXPECT_TRUE(OrvanFSUtils::createFileName(path.c_str()));
    EXPECT_EQ(mode_of(path), 0644u);
    write_file(path, "old");
    EXPECT_TRUE(OrvanFSUtils::createFileName(path.c_str()));
    EXPECT_EQ(read_file(path), "");
}

TEST_F(FsUtils, LinesAreAppended)
{
    EXPECT_TRUE(OrvanFSUtils::writeTxtLineToFile(path.c_str(), "/upgrade/patch"));
    EXPECT_EQ(read_file(path), "/upgrade/patch\n");
    EXPECT_TRUE(OrvanFSUtils::writeTxtLineToFile(path.c_str(), ""));
    EXPECT_TRUE(OrvanFSUtils::writeTxtLineToFile(path.c_str(), "b"));
    EXPECT_EQ(read_file(path), "/upgrade/patch\n\nb\n");
}

TEST_F(FsUtils, AMarkerWrittenTwiceHoldsOneLine)
{
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(OrvanFSUtils::createFileName(path.c_str()));
        EXPECT_TRUE(OrvanFSUtils::writeTxtLineToFile(path.c_str(), "line"));
    }
    EXPECT_EQ(read_file(path), "line\n");
}

TEST_F(FsUtils, ALineIsOnTheDiskWithItsName)
{
    InterposedCalls calls;
    EXPECT_TRUE(OrvanFSUtils::writeTxtLineToFile(path.c_str(), "line"));
    EXPECT_THAT(calls.calls, ElementsAre("write", "fsync file", "fsync folder"));
}

TEST_F(FsUtils, ALineIsWholeAfterSignalsAndShortWrites)
{
    {
        InterposedCalls calls;
        calls.interrupt = true;
        calls.most_bytes = 1;
        EXPECT_TRUE(OrvanFSUtils::writeTxtLineToFile(path.c_str(), "a line"));
    }
    EXPECT_EQ(read_file(path), "a line\n");
}

TEST_F(FsUtils, MarkersFailWhereNoFileCanBeCreated)
{
    EXPECT_FALSE(OrvanFSUtils::createFileName((folder / "none/file").c_str()));
    EXPECT_FALSE(OrvanFSUtils::writeTxtLineToFile((folder / "none/file").c_str(), "x"));
    EXPECT_FALSE(OrvanFSUtils::createFileName(folder.path().c_str()));
    EXPECT_FALSE(OrvanFSUtils::createFileName(nullptr));
    EXPECT_FALSE(OrvanFSUtils::writeTxtLineToFile(nullptr, "x"));
    EXPECT_FALSE(OrvanFSUtils::writeTxtLineToFile(path.c_str(), nullptr));
    EXPECT_THAT(folder.names(), IsEmpty());
}

// --- folders ---------------------------------------------------------------------------------

TEST_F(FsUtils, FolderIsCreatedWithAllItsParents)
{
    const std::string deep = folder / "a/b/c";
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive(deep.c_str(), 0750), 0);
    for (const char* part : {"a", "a/b", "a/b/c"}) {
        EXPECT_EQ(mode_of(folder / part), 0750u) << part;
    }
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive(deep.c_str(), 0700), 0) << "it is there";
    EXPECT_EQ(mode_of(deep), 0750u);
}

TEST_F(FsUtils, FolderAcceptsSlashesAndRelativePaths)
{
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive((folder / "a//b/./c/").c_str(), 0755), 0);
    EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive("/", 0755), 0);
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive("x/y", 0755), 0);
    fs::current_path(before);
    EXPECT_TRUE(fs::is_directory(folder / "x/y"));
}

TEST_F(FsUtils, FolderIsCreatedThroughALinkToAFolder)
{
    fs::create_directory(folder / "real");
    fs::create_directory_symlink(folder / "real", folder / "link");
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive((folder / "link/below").c_str(), 0755), 0);
    EXPECT_TRUE(fs::is_directory(folder / "real/below"));
}

TEST_F(FsUtils, FolderFailsWhereThereIsAFile)
{
    write_file(path, "");
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive(path.c_str(), 0755), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive((path + "/below").c_str(), 0755), -1);
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive("", 0755), -1);
    EXPECT_EQ(OrvanFSUtils::mkdir_recursive(nullptr, 0755), -1);
}

TEST_F(FsUtils, EmptyingAFolderRemovesAllItsContents)
{
    fs::create_directories(folder / "host_sw/Orvan_FW/patch");
    write_file(folder / "host_sw/Orvan_FW/patch/file", "x");
    write_file(folder / "upgrade_delete_ver_ready.txt", "done");
    write_file(folder / ".hidden", "x");
    EXPECT_EQ(OrvanFSUtils::delete_files_in_dir(folder.path().c_str()), 0);
    EXPECT_THAT(folder.names(), IsEmpty());
    EXPECT_TRUE(fs::is_directory(folder.path())) << "the folder itself remains";
    EXPECT_EQ(OrvanFSUtils::delete_files_in_dir((folder.path() + "/").c_str()), 0) << "empty is valid";
}

TEST_F(FsUtils, EmptyingAFolderRemovesItsFoldersBeforeItsFiles)
{
    // Names in both orders, so that neither alphabetical nor disk order is right by chance.
    for (int i = 0; i < 40; ++i) {
        const std::string name = std::to_string(i * 7 % 40);
        if (i % 2 == 0) {
            fs::create_directories(folder / (name + "/below"));
        } else if (i % 3 == 0) {
            fs::create_directory_symlink("0", folder / name);
        } else {
            write_file(folder / name, "done");
        }
    }
    const orvan_common::UniqueFd watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    ASSERT_GE(inotify_add_watch(watch.get(), folder.path().c_str(), IN_DELETE), 0);
    InterposedCalls calls;
    EXPECT_EQ(OrvanFSUtils::delete_files_in_dir(folder.path().c_str()), 0);
    EXPECT_THAT(calls.calls, ElementsAre("fsync folder"));

    std::string gone; // F for a folder, . for anything else
    alignas(inotify_event) char events[16384];
    const ssize_t size = ::read(watch.get(), events, sizeof events);
    for (ssize_t at = 0; at < size;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
        gone += (event->mask & IN_ISDIR) != 0 ? 'F' : '.';
        at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    EXPECT_EQ(gone, std::string(20, 'F') + std::string(20, '.'));
}

TEST_F(FsUtils, EmptyingAFolderDoesNotFollowLinks)
{
    TempFolder elsewhere;
    write_file(elsewhere / "keep", "x");
    fs::create_directory_symlink(elsewhere.path(), folder / "link");
    EXPECT_EQ(OrvanFSUtils::delete_files_in_dir(folder.path().c_str()), 0);
    EXPECT_THAT(folder.names(), IsEmpty());
    EXPECT_THAT(elsewhere.names(), ElementsAre("keep"));
}

TEST_F(FsUtils, EmptyingFailsWithoutAFolder)
{
    write_file(path, "x");
    EXPECT_LT(OrvanFSUtils::delete_files_in_dir(path.c_str()), 0);
    EXPECT_LT(OrvanFSUtils::delete_files_in_dir((folder / "none").c_str()), 0);
    EXPECT_LT(OrvanFSUtils::delete_files_in_dir(""), 0);
    EXPECT_LT(OrvanFSUtils::delete_files_in_dir(nullptr), 0);
    EXPECT_THAT(folder.names(), ElementsAre("file"));
}

TEST_F(FsUtils, OneEntryThatCannotBeRemovedDoesNotProtectTheOthers)
{
    for (const char* name : {"a", "b", "c"}) {
        fs::create_directory(folder / name);
    }
    const std::string first = fs::directory_iterator(folder.path())->path().filename().string();
    // A folder on which a file system is mounted cannot be removed.
    if (const std::string reason = folder.mount_small(4096, first); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    EXPECT_LT(OrvanFSUtils::delete_files_in_dir(folder.path().c_str()), 0);
    EXPECT_THAT(folder.names(), ElementsAre(first));
}

} // namespace
