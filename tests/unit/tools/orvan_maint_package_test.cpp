// Packages: GNU tar unpacks those of orvan-maint; those an instrument could not use are refused.
#include <cstdio>
#include <cstdlib>
#include <functional>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "orvan-maint/failure.h"
#include "orvan-maint/gzip.h"
#include "orvan-maint/package.h"
#include "orvan-maint/tar_reader.h"
#include "orvan-maint/tar_writer.h"
#include "test_folder.h"

using namespace orvan_maint;
using namespace orvan_test;

namespace {

const Platform& benchtop()
{
    return *find_platform("benchtop");
}

std::string names_in(const std::string& bytes)
{
    TarReader reader(bytes, "archive");
    std::string names;
    for (TarEntry entry; reader.next(entry);) {
        names += (names.empty() ? "" : " ") + entry.name;
    }
    return names;
}

std::string complaint_of(const std::function<void()>& call)
{
    try {
        call();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, kExitBadFile);
        return failure.what();
    }
    return "";
}

bool run_shell(const std::string& command)
{
    return std::system(command.c_str()) == 0;
}

/** A controller's archive with patch/ in it. */
std::string controller()
{
    TarWriter writer;
    writer.add_folder("patch", 0755, 0);
    writer.add_file("patch/install.sh", "#!/bin/sh\n", 0755, 0);
    return writer.finish();
}

/** An entry of an archive to be checked. */
struct Item {
    char kind; // f file, d folder, l link, p pipe
    std::string name;
    std::string contents; // or target
};

std::string archive_of(const std::vector<Item>& items)
{
    TarWriter writer;
    for (const Item& item : items) {
        if (item.kind == 'd') {
            writer.add_folder(item.name, 0755, 0);
        } else if (item.kind == 'l') {
            writer.add_symbolic_link(item.name, item.contents, 0);
        } else {
            writer.add_file(item.name, item.contents, 0644, 0);
        }
    }
    return writer.finish();
}

const std::string kFolder = "Orvan_Benchtop_FW_2.0";

const std::vector<Item> kGood = {
    {'d', kFolder, ""},
    {'f', kFolder + "/ovx_module_2.0.bin", "module"},
    {'f', kFolder + "/benchtop_fw_2.0.tar", controller()},
};

} // namespace

TEST(MaintTar, ReadsArchivesOfGnuTar)
{
    const TestFolder folder;
    const std::string long_name = std::string(90, 'a') + "/" + std::string(120, 'b');
    folder.put("in/short", "1");
    folder.put("in/" + long_name, std::string(1000, 'x'));
    for (const char* const format : {"gnu", "pax", "posix"}) {
        for (const char* const packed : {"", "z"}) {
            const std::string file = folder.path("archive");
            ASSERT_TRUE(run_shell("tar -C " + folder.path("in") + " --format " + format + " --sort=name -c" +
                                  packed + "f " + file + " short " + std::string(90, 'a')));
            EXPECT_EQ(names_in(folder.get("archive")), "short " + std::string(90, 'a') + "/ " + long_name)
                << format << packed;
        }
    }
    const std::string split = std::string(90, 'a') + "/" + std::string(90, 'b');
    folder.put("ustar/" + split, "1");
    ASSERT_TRUE(run_shell("tar -C " + folder.path("ustar") + " --format ustar -cf " + folder.path("archive") +
                          " " + split));
    EXPECT_EQ(names_in(folder.get("archive")), split);
}

TEST(MaintTar, NamesOfAnyBytesAreReadUnchanged)
{
    const TestFolder folder;
    const std::string name = "\xC3\xBC \xFF";
    folder.put("in/" + name, "1");
    std::filesystem::create_symlink(name, folder.path("in/link"));
    for (const char* const format : {"gnu", "pax", "ustar"}) {
        ASSERT_TRUE(run_shell("cd " + folder.path("in") + " && tar --sort=name --format " + format +
                              " -cf ../archive *"));
        const std::string bytes = folder.get("archive");
        EXPECT_EQ(names_in(bytes), "link " + name) << format;
        TarReader reader(bytes, "archive");
        TarEntry entry;
        ASSERT_TRUE(reader.next(entry));
        EXPECT_EQ(entry.target, name) << format;
    }
}

TEST(MaintTar, ContentsAreThoseOfTheLastEntryFound)
{
    const std::string bytes = archive_of({{'f', "a", "first"}, {'f', "b", ""}, {'f', "c", "third"}});
    TarReader reader(bytes, "archive");
    TarEntry entry;
    ASSERT_TRUE(reader.next(entry));
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(reader.contents(), "");
    ASSERT_TRUE(reader.next(entry));
    EXPECT_EQ(reader.contents(), "third");
    EXPECT_FALSE(reader.next(entry));
}

TEST(MaintTar, WritesArchivesThatGnuTarUnpacks)
{
    const TestFolder folder;
    const std::string long_name = std::string(60, 'a') + "/" + std::string(80, 'b');
    TarWriter writer;
    writer.add_folder(std::string(60, 'a'), 0750, 1'000'000'000);
    writer.add_file(long_name, std::string(1234, 'y'), 0711, 1'000'000'000);
    writer.add_symbolic_link("link", std::string(140, 't'), 0);
    writer.add_file("empty", "", 0644, 0);
    folder.put("archive", gzip(writer.finish()));
    std::filesystem::create_directory(folder.path("out"));
    ASSERT_TRUE(run_shell("tar -xf " + folder.path("archive") + " -C " + folder.path("out")));
    EXPECT_EQ(folder.get("out/" + long_name), std::string(1234, 'y'));
    EXPECT_EQ(std::filesystem::read_symlink(folder.path("out/link")), std::string(140, 't'));
    EXPECT_TRUE(std::filesystem::exists(folder.path("out/empty")));
    struct stat info {};
    ASSERT_EQ(stat(folder.path("out/" + long_name).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0711U);
    EXPECT_EQ(info.st_mtime, 1'000'000'000);
}

TEST(MaintTar, TruncatedOrDamagedArchivesFailWithAReason)
{
    const std::string plain = archive_of(kGood);
    const std::string packed = gzip(plain);
    for (const std::string& bytes : {plain, packed}) {
        for (size_t length = 0; length < bytes.size(); length += 37) {
            try {
                names_in(bytes.substr(0, length));
            } catch (const Failure& failure) {
                EXPECT_EQ(failure.code, kExitBadFile);
            }
        }
        for (size_t at = 0; at < std::min<size_t>(bytes.size(), 3000); at += 11) {
            std::string damaged = bytes;
            damaged[at] = static_cast<char>(damaged[at] ^ 0x5A);
            try {
                names_in(damaged);
            } catch (const Failure& failure) {
                EXPECT_EQ(failure.code, kExitBadFile);
            }
        }
    }
    std::string other_name = plain;
    other_name[512] = 'o';
    EXPECT_EQ(complaint_of([&] { names_in(other_name); }), "archive is damaged");
    EXPECT_EQ(complaint_of([&] { names_in(plain.substr(0, 700)); }),
              "archive is damaged: it ends within an entry");
    EXPECT_EQ(complaint_of([&] { names_in(packed.substr(0, packed.size() / 2)); }),
              "archive is damaged: it ends within an entry");
    for (size_t cut = 1; cut <= 8; ++cut) {
        EXPECT_EQ(complaint_of([&] { names_in(packed.substr(0, packed.size() - cut)); }),
                  "archive is damaged: it ends within an entry")
            << cut;
    }
}

TEST(MaintTar, GzipChecksumErrorsAreNoticed)
{
    const std::string packed = gzip(archive_of(kGood));
    for (size_t back = 1; back <= 8; ++back) {
        std::string damaged = packed;
        damaged[damaged.size() - back] = static_cast<char>(damaged[damaged.size() - back] ^ 1);
        EXPECT_EQ(complaint_of([&] { names_in(damaged); }), "archive is damaged: it ends within an entry")
            << back;
    }
}

TEST(MaintTar, AGzipMayHaveSeveralMembers)
{
    const std::string plain = archive_of(kGood);
    const std::string two = gzip(plain.substr(0, 700)) + gzip(plain.substr(700));
    EXPECT_EQ(names_in(two), names_in(plain));
    EXPECT_EQ(names_in(two + "what follows is passed over"), names_in(plain));
    EXPECT_EQ(complaint_of([&] { names_in(two.substr(0, two.size() - 1)); }),
              "archive is damaged: it ends within an entry");
}

TEST(MaintTar, AGzipIsUnpackedToNoMoreThanItsLimit)
{
    const std::string packed = gzip(std::string(200'000, 'x'));
    EXPECT_EQ(gunzip(packed, 200'000).end, Unpacked::End::kWhole);
    const Unpacked cut = gunzip(packed, 199'999);
    EXPECT_EQ(cut.end, Unpacked::End::kTooLarge);
    EXPECT_EQ(cut.bytes, std::string(199'999, 'x'));
}

TEST(MaintPackage, ValidPackagesAreDescribed)
{
    for (const std::string& bytes : {archive_of(kGood), gzip(archive_of(kGood))}) {
        const Package package = check_package(bytes, "p", benchtop());
        EXPECT_EQ(package.folder, kFolder);
        EXPECT_EQ(package.module_name, "ovx_module_2.0.bin");
        EXPECT_EQ(package.module_size, 6U);
        EXPECT_EQ(package.controller_name, "benchtop_fw_2.0.tar");
        EXPECT_EQ(package.controller_files, 1U);
    }
}

TEST(MaintPackage, UnusualNamesCauseAWarning)
{
    const std::string taken = ": next to what a refused update has left on the instrument, which of them it "
                              "takes depends on its clock";
    EXPECT_EQ(warnings_of(check_package(archive_of(kGood), "p", benchtop()), benchtop()),
              (std::vector<std::string>{
                  "Orvan_Benchtop_FW_2.0 is not called Orvan_Benchtop_FW" + taken,
                  "ovx_module_2.0.bin is not called ovx_module" + taken,
                  "benchtop_fw_2.0.tar is not called benchtop_fw.tar" + taken,
              }));
    const TestFolder folder;
    folder.put("patch/x", "x");
    const std::string built = build_package(benchtop(), folder.put("module", "m"), folder.path("patch"));
    EXPECT_EQ(warnings_of(check_package(built, "p", benchtop()), benchtop()), std::vector<std::string>{});
}

TEST(MaintPackage, NamesMayStartWithADotAndFoldersAreNotListed)
{
    const std::string bytes = archive_of({
        {'f', "./" + kFolder + "/ovx_module", "module"},
        {'f', "./" + kFolder + "/benchtop_fw", controller()},
        {'f', "./" + kFolder + "/notes.txt", ""},
        {'f', "./readme about benchtop_fw and ovx_module", ""},
    });
    EXPECT_EQ(check_package(bytes, "p", benchtop()).folder, kFolder);
}

TEST(MaintPackage, MayHoldSeveralPlatforms)
{
    std::vector<Item> items = kGood;
    items.push_back({'f', "Orvan_Portable_FW/ovx_module", "other"});
    items.push_back({'f', "Orvan_Portable_FW/portable_fw.tar", controller()});
    const std::string bytes = archive_of(items);
    EXPECT_EQ(platforms_in(bytes, "p").size(), 2U);
    EXPECT_EQ(check_package(bytes, "p", benchtop()).module_size, 6U);
    EXPECT_EQ(check_package(bytes, "p", *find_platform("portable")).module_size, 5U);
    EXPECT_EQ(complaint_of([&] { check_package(bytes, "p", *find_platform("ksr7000")); }),
              "p has no folder with Orvan_Ksr7000_FW in its name");
}

namespace {

struct Bad {
    const char* name;
    std::vector<Item> items;
    std::string complaint;
};

std::vector<Item> good_and(const Item& item)
{
    std::vector<Item> items = kGood;
    items.push_back(item);
    return items;
}

std::vector<Item> good_with(size_t index, const Item& item)
{
    std::vector<Item> items = kGood;
    items[index] = item;
    return items;
}

const std::string kModule = kFolder + "/ovx_module_2.0.bin";
const std::string kController = kFolder + "/benchtop_fw_2.0.tar";
const std::string kInner = "p: benchtop_fw_2.0.tar ";

const Bad kBad[] = {
    {"AbsoluteName", good_and({'f', "/etc/passwd", ""}), "p has an absolute name: /etc/passwd"},
    {"NameThatLeadsOut", good_and({'f', kFolder + "/../../x", ""}),
     "p has a name that leads out of it: " + kFolder + "/../../x"},
    {"LinkToAnAbsoluteName", good_and({'l', "x", "/etc"}), "p has a link that leads out of it: x -> /etc"},
    {"LinkThatLeadsOut", good_and({'l', kFolder + "/x", "../../y"}),
     "p has a link that leads out of it: " + kFolder + "/x -> ../../y"},
    {"NoFolder", {{'f', "ovx_module", "m"}}, "p has no folder with Orvan_Benchtop_FW in its name"},
    {"FileForAFolder",
     {{'f', kFolder, "m"}},
     "p has no folder with Orvan_Benchtop_FW in its name: " + kFolder + " is none"},
    {"TwoFolders", good_and({'d', "Orvan_Benchtop_FW", ""}),
     "p has more than one name with Orvan_Benchtop_FW in it: Orvan_Benchtop_FW, " + kFolder},
    {"NoModule", {kGood[0], kGood[2]}, "p has no file with ovx_module in its name in " + kFolder},
    {"TwoModules", good_and({'f', kFolder + "/old_ovx_module", "m"}),
     "p has more than one name with ovx_module in it in " + kFolder + ": old_ovx_module, ovx_module_2.0.bin"},
    {"FolderForAModule", good_with(1, {'d', kModule, ""}),
     "p has no file with ovx_module in its name in " + kFolder + ": ovx_module_2.0.bin is none"},
    {"LinkForAModule", good_with(1, {'l', kModule, "benchtop_fw_2.0.tar"}),
     "p has no file with ovx_module in its name in " + kFolder + ": ovx_module_2.0.bin is none"},
    {"EmptyModule", good_with(1, {'f', kModule, ""}), "p has an empty ovx_module_2.0.bin"},
    {"NoController", {kGood[0], kGood[1]}, "p has no file with benchtop_fw in its name in " + kFolder},
    {"TwoControllers", good_and({'f', kFolder + "/benchtop_fw.tar", "m"}),
     "p has more than one name with benchtop_fw in it in " + kFolder +
         ": benchtop_fw.tar, benchtop_fw_2.0.tar"},
    {"OneForBoth",
     {kGood[0], {'f', kFolder + "/ovx_module_benchtop_fw", "m"}},
     "p has one file for the modules' software and the controller's: " + kFolder + "/ovx_module_benchtop_fw"},
    {"ControllerNoArchive", good_with(2, {'f', kController, std::string(2000, 'x')}),
     kInner + "is not a tar archive, plain or gzip"},
    {"ControllerEmpty", good_with(2, {'f', kController, ""}),
     kInner + "is not a tar archive, or an empty one"},
    {"ControllerWithoutPatch", good_with(2, {'f', kController, archive_of({{'d', "other", ""}})}),
     kInner + "has no folder patch"},
    {"ControllerWithAFilePatch", good_with(2, {'f', kController, archive_of({{'f', "patch", ""}})}),
     kInner + "has no folder patch"},
    {"ControllerThatLeadsOut", good_with(2, {'f', kController, archive_of({{'f', "patch/../../x", ""}})}),
     kInner.substr(0, kInner.size() - 1) + " has a name that leads out of it: patch/../../x"},
    {"NameForAShell", good_with(1, {'f', kFolder + "/ovx_module;reboot", "m"}),
     "p has a name that the instrument cannot use, 'ovx_module;reboot'; letters, digits and . _ + - will do"},
    {"FolderWithASpace",
     {{'d', "Orvan_Benchtop_FW 2", ""}},
     "p has a name that the instrument cannot use, 'Orvan_Benchtop_FW 2'; letters, digits and . _ + - will "
     "do"},
    {"SameNameTwice", good_and(kGood[1]), "p holds " + kModule + " twice"},
    {"SomethingBelowAFile", good_and({'f', kModule + "/x", ""}),
     "p has something below " + kModule + ", which is not a folder"},
};

class MaintBadPackage : public testing::TestWithParam<Bad> {};

} // namespace

TEST_P(MaintBadPackage, IsRefusedWithItsReason)
{
    EXPECT_EQ(complaint_of([] { check_package(archive_of(GetParam().items), "p", benchtop()); }),
              GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(With, MaintBadPackage, testing::ValuesIn(kBad),
                         [](const auto& bad) { return bad.param.name; });

TEST(MaintPackage, NonArchivesAreRefused)
{
    const auto complaint = [](const std::string& bytes) {
        return complaint_of([&bytes] { check_package(bytes, "p\x1b", benchtop()); });
    };
    EXPECT_EQ(complaint("hello"), "p\\x1B is not a tar archive, plain or gzip");
    EXPECT_EQ(complaint(std::string(5000, 'x')), "p\\x1B is not a tar archive, plain or gzip");
    EXPECT_EQ(complaint(gzip(std::string(5000, 'x'))), "p\\x1B is not a tar archive, plain or gzip");
    EXPECT_EQ(complaint(std::string(10240, '\0')), "p\\x1B is not a tar archive, or an empty one");
}

TEST(MaintPackage, HardLinksAndPipesAreRefused)
{
    const TestFolder folder;
    folder.put("in/a", "1");
    ASSERT_TRUE(run_shell("cd " + folder.path("in") +
                          " && ln a b && tar -cf ../links a b && mkfifo p && tar -cf ../pipe p"));
    EXPECT_EQ(complaint_of([&] { platforms_in(folder.get("links"), "p"); }),
              "p has an entry that is not a file, folder or symbolic link: b");
    EXPECT_EQ(complaint_of([&] { platforms_in(folder.get("pipe"), "p"); }),
              "p has an entry that is not a file, folder or symbolic link: p");
}

namespace {

/** The archive with other bytes in a header, and the matching checksum. */
std::string with_field(std::string bytes, size_t header, size_t at, const std::string& field)
{
    bytes.replace(header + at, field.size(), field);
    bytes.replace(header + 148, 8, 8, ' ');
    unsigned sum = 0;
    for (size_t i = header; i < header + 512; ++i) {
        sum += static_cast<unsigned char>(bytes[i]);
    }
    char digits[8];
    std::snprintf(digits, sizeof digits, "%06o", sum);
    return bytes.replace(header + 148, 7, digits, 7);
}

std::string with_type(const std::string& bytes, size_t header, char type)
{
    return with_field(bytes, header, 156, {type});
}

std::string with_size(const std::string& bytes, size_t header, std::string size)
{
    size.resize(12, '\0');
    return with_field(bytes, header, 124, size);
}

} // namespace

// GNU multi-volume parts, labels, directory listings and sparse files; vendor extensions; unassigned types.
TEST(MaintPackage, OtherEntryTypesAreRefused)
{
    const std::string bytes = archive_of({{'f', "a", ""}, {'f', "b", ""}, {'f', "c", ""}});
    for (const char type : std::string("01234567")) {
        const bool is_refused = std::string("1346").find(type) != std::string::npos;
        EXPECT_EQ(complaint_of([&] { platforms_in(with_type(bytes, 512, type), "p"); }),
                  is_refused ? "p has an entry that is not a file, folder or symbolic link: b" : "")
            << type;
    }
    for (const char type : std::string("DMNSVXAz89")) {
        EXPECT_EQ(complaint_of([&] { platforms_in(with_type(bytes, 512, type), "p"); }),
                  "p has an entry that is not a file, folder or symbolic link: b")
            << type;
    }
    for (const char type : std::string("DMNSVz89")) {
        EXPECT_EQ(complaint_of([&] { platforms_in(with_type(bytes, 1024, type), "p"); }),
                  "p has an entry that is not a file, folder or symbolic link: c")
            << type;
    }
}

// A reader that stops at the first invalid digit would read other sizes.
TEST(MaintPackage, NonOctalNumbersAreRefused)
{
    const std::string bytes = archive_of({{'f', "a", ""}, {'f', "b", "x"}});
    for (const char* const good : {"00000000001", "          1", "1", "1 garbage"}) {
        EXPECT_EQ(complaint_of([&] { platforms_in(with_size(bytes, 512, good), "p"); }), "") << good;
    }
    EXPECT_EQ(complaint_of(
                  [&] { platforms_in(with_size(bytes, 512, "\x80" + std::string(10, '\0') + "\1"), "p"); }),
              "");
    for (const char* const bad : {"00000000001x", "0x1", "8", "-1"}) {
        EXPECT_EQ(complaint_of([&] { platforms_in(with_size(bytes, 512, bad), "p"); }), "p is damaged")
            << bad;
    }
}

TEST(MaintPackage, DamagedExtensionsAreRefused)
{
    for (const char type : std::string("xg")) {
        for (const char* const good : {"", "11 path=ab\n", "10 size=0\n11 path=ab\n"}) {
            EXPECT_EQ(
                complaint_of([&] {
                    platforms_in(with_type(archive_of({{'f', "a", good}, {'f', "b", ""}}), 0, type), "p");
                }),
                "")
                << type << good;
        }
        for (const char* const bad : {"path=ab\n", "10 path=ab\n", "12 path=ab\n", "11 path:ab\n",
                                      "11path=ab\n", "10 size=x\n", "4294967297 a=b\n"}) {
            EXPECT_EQ(
                complaint_of([&] {
                    platforms_in(with_type(archive_of({{'f', "a", bad}, {'f', "b", ""}}), 0, type), "p");
                }),
                "p is damaged")
                << type << bad;
        }
    }
}

TEST(MaintPackage, TooLargeForADownloadIsRefused)
{
    EXPECT_EQ(complaint_of([] { check_package(std::string(67'107'841, 'x'), "p", benchtop()); }),
              "p has 67107841 bytes; a download has at most 67106816");
}
