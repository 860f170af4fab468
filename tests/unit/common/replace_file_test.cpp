#include <cerrno>
#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "interposed_calls.h"
#include "temp_folder.h"
#include <orvan_fs_utils.h>

namespace fs = std::filesystem;

namespace {

using ::testing::ElementsAre;

bool replace(const std::string& path, const std::string& contents)
{
    return OrvanFSUtils::replaceFile(path.c_str(), contents.data(), contents.size());
}

bool save(const std::string& path, const std::string& contents)
{
    return OrvanFSUtils::saveBufferToFile(path.c_str(), contents.data(), contents.size());
}

class ReplaceFile : public ::testing::Test {
protected:
    TempFolder folder;
    std::string path = folder / "fpga_image.bin";
};

TEST_F(ReplaceFile, CreatesOrReplacesTheWholeFile)
{
    const std::string image("\0\r\n\xFF image", 10);
    EXPECT_TRUE(replace(path, image));
    EXPECT_EQ(read_file(path), image);
    EXPECT_TRUE(replace(path, "short"));
    EXPECT_EQ(read_file(path), "short");
    EXPECT_TRUE(OrvanFSUtils::replaceFile(path.c_str(), nullptr, 0));
    EXPECT_EQ(read_file(path), "");
    EXPECT_THAT(folder.names(), ElementsAre("fpga_image.bin"));
}

TEST_F(ReplaceFile, FileIsReadableByAllWhateverTheMask)
{
    const mode_t mask = ::umask(077);
    EXPECT_TRUE(replace(path, "x"));
    ::umask(mask);
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644u);
}

TEST_F(ReplaceFile, RenamesOnlyOnceTheContentsAreOnTheDisk)
{
    InterposedCalls calls;
    EXPECT_TRUE(replace(path, "x"));
    EXPECT_THAT(calls.calls, ElementsAre("write", "fsync file", "rename", "fsync folder"));
}

TEST_F(ReplaceFile, ContinuesAfterSignalsAndShortWrites)
{
    {
        InterposedCalls calls;
        calls.interrupt = true;
        calls.most_bytes = 3;
        // Not the rename, which no signal interrupts.
        calls.failing = "rename";
        calls.failure = EXDEV;
        EXPECT_FALSE(replace(path, "0123456789"));
    }
    {
        InterposedCalls calls;
        calls.most_bytes = 3;
        EXPECT_TRUE(replace(path, "0123456789"));
    }
    EXPECT_EQ(read_file(path), "0123456789");
    EXPECT_THAT(folder.names(), ElementsAre("fpga_image.bin"));
}

TEST_F(ReplaceFile, AFailureAtAnyStepKeepsTheFormerFileAndLeavesNoDraft)
{
    ASSERT_TRUE(replace(path, "former"));
    for (const char* step : {"write", "fsync file", "rename"}) {
        {
            InterposedCalls calls;
            calls.failing = step;
            calls.failure = EIO;
            EXPECT_FALSE(replace(path, "new")) << step;
            EXPECT_EQ(errno, EIO) << step;
        }
        EXPECT_EQ(read_file(path), "former") << step;
        EXPECT_THAT(folder.names(), ElementsAre("fpga_image.bin")) << step;
    }
}

TEST_F(ReplaceFile, AFolderThatCannotBeSyncedIsNoFailureOnlyWhereItNeverCan)
{
    InterposedCalls calls;
    calls.failing = "fsync folder";
    calls.failure = EINVAL;
    EXPECT_TRUE(replace(path, "x"));
    calls.failure = EIO;
    EXPECT_FALSE(replace(path, "x"));
}

TEST_F(ReplaceFile, UnfinishedFilesNameMatchesNoSearch)
{
    InterposedCalls calls;
    EXPECT_TRUE(replace(path, "x"));
    const fs::path unfinished = calls.renamed_from;
    EXPECT_EQ(unfinished.parent_path(), folder.path());
    EXPECT_THAT(unfinished.filename().string(), ::testing::MatchesRegex("\\.new-......"));
}

TEST_F(ReplaceFile, LinkIsReplacedAndItsTargetKept)
{
    write_file(folder / "target", "kept");
    fs::create_symlink(folder / "target", path);
    EXPECT_TRUE(replace(path, "new"));
    EXPECT_FALSE(fs::is_symlink(path));
    EXPECT_EQ(read_file(path), "new");
    EXPECT_EQ(read_file(folder / "target"), "kept");
}

TEST_F(ReplaceFile, TakesAPathWithoutAFolder)
{
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    EXPECT_TRUE(replace("fpga_image.bin", "x"));
    EXPECT_TRUE(save("fpga_image.bin", "y"));
    fs::current_path(before);
    EXPECT_EQ(read_file(path), "y");
}

TEST_F(ReplaceFile, FailsWhereNoFileCanBeCreated)
{
    fs::create_directory(path);
    EXPECT_FALSE(replace(path, "x"));
    EXPECT_FALSE(replace(folder / "none/file", "x"));
    EXPECT_FALSE(replace("", "x"));
    EXPECT_FALSE(OrvanFSUtils::replaceFile(nullptr, "x", 1));
    EXPECT_FALSE(OrvanFSUtils::replaceFile((folder / "null").c_str(), nullptr, 1));
    EXPECT_THAT(folder.names(), ElementsAre("fpga_image.bin"));
}

TEST_F(ReplaceFile, AFullDiskKeepsTheFormerFile)
{
    if (const std::string reason = folder.mount_small(4 * 4096); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    ASSERT_TRUE(replace(path, "former"));
    EXPECT_FALSE(save(path, std::string(4 * 4096, 'x')));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(read_file(path), "former");
    EXPECT_THAT(folder.names(), ElementsAre("fpga_image.bin"));
    EXPECT_TRUE(save(path, std::string(2 * 4096, 'x'))) << "no room was lost";
}

TEST_F(ReplaceFile, SavingCreatesMissingFolders)
{
    EXPECT_TRUE(save(folder / "upgrade/orvanx/ovx_module_1.2.3.tar.gz", "image"));
    EXPECT_EQ(read_file(folder / "upgrade/orvanx/ovx_module_1.2.3.tar.gz"), "image");
}

TEST_F(ReplaceFile, SavingFailsWhereAFolderCannotBeCreated)
{
    write_file(folder / "orvanx", "a file");
    EXPECT_FALSE(save(folder / "orvanx/image", "x"));
    EXPECT_FALSE(OrvanFSUtils::saveBufferToFile(nullptr, "x", 1));
    EXPECT_THAT(folder.names(), ElementsAre("orvanx"));
}

} // namespace
