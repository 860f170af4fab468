// orvan-maint pack: GNU tar unpacks its output as an instrument does.
#include <cstdlib>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "orvan_maint_bench.h"

using namespace orvan_test;

namespace {

bool run_shell(const std::string& command)
{
    return std::system(command.c_str()) == 0;
}

struct Parts {
    Parts()
    {
        module = folder.put("module-2.bin", std::string(5000, 'm'));
        folder.put("patch/bin/orvan-service", "program");
        folder.put("patch/install.sh", "#!/bin/sh\n");
        std::filesystem::permissions(folder.path("patch/install.sh"), std::filesystem::perms::owner_all);
        std::filesystem::create_symlink("orvan-service", folder.path("patch/bin/service"));
    }
    MaintOutcome pack(std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments = {
            "pack",    folder.path("package"), "--platform", "benchtop", "--module", module,
            "--patch", folder.path("patch")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run_maint(arguments);
    }

    TestFolder folder;
    std::string module;
};

} // namespace

TEST(MaintPack, CreatesAPackageThatAnInstrumentUnpacks)
{
    Parts parts;
    const MaintOutcome outcome = parts.pack();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("for a benchtop, with 5000 bytes of software for the modules and 3 files"),
              std::string::npos)
        << outcome.out;
    const TestFolder& folder = parts.folder;
    const std::string out = folder.path("out");
    std::filesystem::create_directory(out);
    ASSERT_TRUE(run_shell("tar -xf " + folder.path("package") + " -C " + out));
    ASSERT_TRUE(
        run_shell("tar -xf " + out + "/Orvan_Benchtop_FW/benchtop_fw.tar -C " + out + "/Orvan_Benchtop_FW"));
    EXPECT_EQ(folder.get("out/Orvan_Benchtop_FW/ovx_module"), std::string(5000, 'm'));
    EXPECT_TRUE(run_shell("diff -r --no-dereference " + folder.path("patch") + " " + out +
                          "/Orvan_Benchtop_FW/patch"));
    EXPECT_EQ(std::filesystem::status(out + "/Orvan_Benchtop_FW/patch/install.sh").permissions(),
              std::filesystem::perms::owner_all);
}

TEST(MaintPack, SameInputMakesTheSameOutput)
{
    Parts parts;
    ASSERT_EQ(parts.pack().status, 0);
    const std::string first = parts.folder.get("package");
    ASSERT_EQ(parts.pack({"--force"}).status, 0);
    EXPECT_TRUE(parts.folder.get("package") == first);
}

TEST(MaintPack, KeepsAnExistingFile)
{
    Parts parts;
    parts.folder.put("package", "precious");
    const MaintOutcome outcome = parts.pack();
    EXPECT_EQ(outcome.status, 3);
    EXPECT_NE(outcome.err.find("already exists; --force replaces it"), std::string::npos);
    EXPECT_EQ(parts.folder.get("package"), "precious");
}

TEST(MaintPack, RefusesMissingEmptyOrEscapingFiles)
{
    Parts parts;
    const auto complaint = [&parts](const std::string& module, const std::string& patch) {
        const MaintOutcome outcome = run_maint({"pack", parts.folder.path("package"), "--platform",
                                                "benchtop", "--module", module, "--patch", patch});
        EXPECT_EQ(outcome.status, 3);
        EXPECT_FALSE(std::filesystem::exists(parts.folder.path("package")));
        return outcome.err;
    };
    const std::string patch = parts.folder.path("patch");
    EXPECT_NE(complaint("/nowhere", patch).find("/nowhere: No such file or directory"), std::string::npos);
    EXPECT_NE(complaint(patch, patch).find("patch: is not a file"), std::string::npos);
    EXPECT_NE(complaint(parts.folder.put("empty", ""), patch).find("empty: is empty"), std::string::npos);
    EXPECT_NE(complaint(parts.module, "/nowhere").find("there is no such folder"), std::string::npos);
    EXPECT_NE(complaint(parts.module, parts.module).find("there is no such folder"), std::string::npos);
    std::filesystem::create_directory(parts.folder.path("bare"));
    EXPECT_NE(complaint(parts.module, parts.folder.path("bare")).find("bare is empty"), std::string::npos);
    std::filesystem::create_symlink("/etc/passwd", patch + "/passwd");
    EXPECT_NE(
        complaint(parts.module, patch).find("has a link that leads out of it: patch/passwd -> /etc/passwd"),
        std::string::npos);
    std::filesystem::remove(patch + "/passwd");
    ASSERT_EQ(mkfifo((patch + "/pipe").c_str(), 0600), 0);
    EXPECT_NE(complaint(parts.module, patch).find("pipe is not a file, folder or link"), std::string::npos);
}

TEST(MaintPack, AnUnwritablePlaceIsReported)
{
    Parts parts;
    const MaintOutcome outcome =
        run_maint({"pack", parts.folder.path("nowhere/package"), "--platform", "benchtop", "--module",
                   parts.module, "--patch", parts.folder.path("patch")});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_NE(outcome.err.find("nowhere/package cannot be written: No such file or directory"),
              std::string::npos)
        << outcome.err;
}
