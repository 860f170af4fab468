#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "temp_folder.h"
#include <orvan_fs_utils.h>

namespace fs = std::filesystem;

namespace {

class FindFile : public ::testing::Test {
protected:
    // The found path, or "-" when nothing was.
    std::string find(const std::string& dir, const char* word, int kind)
    {
        char out[1024] = "untouched";
        if (OrvanFSUtils::findFirstFileContaining(dir.c_str(), word, out, sizeof out, kind)) {
            return out;
        }
        EXPECT_STREQ(out, "untouched");
        return "-";
    }
    std::string find(const char* word, int kind) { return find(folder.path(), word, kind); }

    // Makes one entry, and the other when the file system distinguishes them.
    void make_older(const std::string& earlier, const std::string& later,
                    const std::function<void(const std::string&)>& make)
    {
        make(earlier);
        const std::string clock = folder / "clock";
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        do {
            write_file(clock, "");
        } while (changed(clock) <= changed(folder / earlier) && std::chrono::steady_clock::now() < deadline);
        fs::remove(clock);
        make(later);
        ASSERT_GT(changed(folder / later), changed(folder / earlier));
    }
    static std::pair<time_t, long> changed(const std::string& path)
    {
        struct stat info = {};
        EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
        return {info.st_ctim.tv_sec, info.st_ctim.tv_nsec};
    }

    TempFolder folder;
};

TEST_F(FindFile, ReturnsTheFullPathOfAnEntryWithTheWordAnywhereInItsName)
{
    write_file(folder / "xx_ovx_module_1.2.3.tar.gz", "");
    for (const char* word : {"ovx_module", "xx", ".gz", "xx_ovx_module_1.2.3.tar.gz", ""}) {
        EXPECT_EQ(find(word, FS_FIND_FILE), folder / "xx_ovx_module_1.2.3.tar.gz") << word;
    }
    EXPECT_EQ(find("OVX", FS_FIND_FILE), "-");
    EXPECT_EQ(find("ovx_modules", FS_FIND_FILE), "-");
}

TEST_F(FindFile, KindChoosesAmongFilesAndFolders)
{
    write_file(folder / "b_word", "");
    fs::create_directory(folder / "a_word"); // the first by age and by name
    EXPECT_EQ(find("word", FS_FIND_ANY), folder / "a_word");
    EXPECT_EQ(find("word", FS_FIND_FILE), folder / "b_word");
    EXPECT_EQ(find("word", FS_FIND_DIR), folder / "a_word");
    EXPECT_EQ(find("word", 3), "-");
    EXPECT_EQ(FS_FIND_ANY, 0);
    EXPECT_EQ(FS_FIND_FILE, 1);
    EXPECT_EQ(FS_FIND_DIR, 2);
}

TEST_F(FindFile, LinkCountsAsItsTarget)
{
    write_file(folder / "target", "");
    fs::create_symlink(folder / "target", folder / "link_to_file");
    fs::create_symlink(folder / "nothing", folder / "broken");
    EXPECT_EQ(find("link", FS_FIND_FILE), folder / "link_to_file");
    EXPECT_EQ(find("link", FS_FIND_DIR), "-");
    EXPECT_EQ(find("broken", FS_FIND_FILE), "-");
    EXPECT_EQ(find("broken", FS_FIND_ANY), folder / "broken");
}

TEST_F(FindFile, OfSeveralTheLatestIsTaken)
{
    for (const auto& [earlier, later] : {std::pair{"a_word", "b_word"}, {"d_word", "c_word"}}) {
        make_older(earlier, later, [this](const std::string& name) { write_file(folder / name, ""); });
        EXPECT_EQ(find("word", FS_FIND_FILE), folder / later);
    }
    for (const auto& [earlier, later] : {std::pair{"a_folder", "b_folder"}, {"d_folder", "c_folder"}}) {
        make_older(earlier, later, [this](const std::string& name) { fs::create_directory(folder / name); });
        EXPECT_EQ(find("folder", FS_FIND_DIR), folder / later);
    }
}

TEST_F(FindFile, TimesRestoredFromAnArchiveDoNotCount)
{
    make_older("a_word", "b_word", [this](const std::string& name) {
        write_file(folder / name, "");
        const time_t restored = name == "a_word" ? 2'000'000'000 : 1'000'000'000;
        const timespec times[] = {{restored, 0}, {restored, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, (folder / name).c_str(), times, 0), 0);
    });
    EXPECT_EQ(find("word", FS_FIND_FILE), folder / "b_word");
}

TEST_F(FindFile, ALinkHasItsOwnAge)
{
    write_file(folder / "target", "");
    make_older("a_link", "b_link",
               [this](const std::string& name) { fs::create_symlink("target", folder / name); });
    EXPECT_EQ(find("link", FS_FIND_FILE), folder / "b_link");
}

TEST_F(FindFile, AmongEquallyNewFilesTheFirstByNameIsTaken)
{
    // One file has one age, whatever it is called.
    write_file(folder / "word99", "");
    for (int i = 98; i >= 10; --i) {
        fs::create_hard_link(folder / "word99", folder / ("word" + std::to_string(i)));
    }
    EXPECT_EQ(find("word", FS_FIND_FILE), folder / "word10");
}

TEST_F(FindFile, FoldersBelowAreNotSearched)
{
    fs::create_directory(folder / "below");
    write_file(folder / "below/word", "");
    EXPECT_EQ(find("word", FS_FIND_ANY), "-");
}

TEST_F(FindFile, DotAndDotDotDoNotCount)
{
    EXPECT_EQ(find(".", FS_FIND_ANY), "-");
    EXPECT_EQ(find("", FS_FIND_DIR), "-");
}

TEST_F(FindFile, ASlashAtTheEndOfTheFolderIsNotDoubled)
{
    write_file(folder / "word", "");
    EXPECT_EQ(find(folder.path() + "/", "word", FS_FIND_FILE), folder / "word");
}

TEST_F(FindFile, APathThatDoesNotFitIsNotFound)
{
    write_file(folder / "word", "");
    const std::string path = folder / "word";
    std::string out(path.size() + 1, '?');
    EXPECT_FALSE(OrvanFSUtils::findFirstFileContaining(folder.path().c_str(), "word", out.data(), path.size(),
                                                       FS_FIND_FILE));
    EXPECT_EQ(out, std::string(path.size() + 1, '?'));
    EXPECT_TRUE(OrvanFSUtils::findFirstFileContaining(folder.path().c_str(), "word", out.data(),
                                                      path.size() + 1, FS_FIND_FILE));
    EXPECT_STREQ(out.c_str(), path.c_str());
}

TEST_F(FindFile, NothingIsFoundWithoutAFolderOrAWord)
{
    char out[64];
    EXPECT_EQ(find(folder / "missing", "word", FS_FIND_ANY), "-");
    EXPECT_EQ(find("", "word", FS_FIND_ANY), "-");
    write_file(folder / "file", "");
    EXPECT_EQ(find(folder / "file", "file", FS_FIND_ANY), "-");
    const char* dir = folder.path().c_str();
    EXPECT_FALSE(OrvanFSUtils::findFirstFileContaining(nullptr, "file", out, sizeof out, FS_FIND_ANY));
    EXPECT_FALSE(OrvanFSUtils::findFirstFileContaining(dir, nullptr, out, sizeof out, FS_FIND_ANY));
    EXPECT_FALSE(OrvanFSUtils::findFirstFileContaining(dir, "file", nullptr, 64, FS_FIND_ANY));
    EXPECT_FALSE(OrvanFSUtils::findFirstFileContaining(dir, "file", out, 0, FS_FIND_ANY));
}

} // namespace
