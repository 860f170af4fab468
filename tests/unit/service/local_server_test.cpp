// The files of the Unix sockets, and who may connect.
#include <cerrno>
#include <list>

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "local_fixture.h"
#include "service/local/local_socket.h"
#include "support/files.h"

using namespace orvan_service;
using namespace orvan_test;

namespace {

/** The machine's one group besides those of this process; none while null. */
group* g_group = nullptr;

/** A socket file that nobody listens on. */
void leave_socket(const std::filesystem::path& path)
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path.string().copy(name.sun_path, sizeof name.sun_path - 1);
    const orvan_common::UniqueFd left(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(left.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
}

std::string refusal_of(const std::filesystem::path& folder, const std::string& name = "s.sock")
{
    try {
        const LocalSocket socket(folder, name);
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

mode_t mode_of(const std::filesystem::path& path)
{
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

} // namespace

TEST(LocalSocket, MakesItsFolderAndIsForItsGroup)
{
    const PrivateFolder folder;
    const mode_t mask = ::umask(077);
    const LocalSocket socket(folder.path() / "run", "s.sock");
    ::umask(mask);
    EXPECT_EQ(socket.path(), folder.path() / "run/s.sock");
    EXPECT_EQ(mode_of(folder.path() / "run/s.sock"), 0660u);
}

extern "C" group* getgrnam(const char* name)
{
    return g_group != nullptr && std::string_view(name) == g_group->gr_name ? g_group : nullptr;
}

TEST(LocalSocket, IsForTheGroupOfTheProgramsThatMayConnect)
{
    const PrivateFolder folder;
    char name[] = "orvan";
    group users{};
    users.gr_name = name;
    // Only root may give a file to any group, and in a namespace only to one that is known there.
    constexpr gid_t kOther = 1;
    write_file(folder.path() / "probe", "");
    users.gr_gid = ::chown((folder.path() / "probe").c_str(), -1u, kOther) == 0 ? kOther : ::getegid();
    g_group = &users;
    const LocalSocket socket(folder.path(), "s.sock");
    g_group = nullptr;
    struct stat status {};
    ASSERT_EQ(::lstat(socket.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, users.gr_gid);
}

TEST(LocalSocket, ReplacesOneThatNobodyListensOn)
{
    const PrivateFolder folder;
    leave_socket(folder.path() / "s.sock");
    LocalSocket socket(folder.path(), "s.sock");
    const LocalClient client(folder.path() / "s.sock");
    EXPECT_TRUE(socket.accept());
}

TEST(LocalSocket, LeavesOneInUseToItsProcess)
{
    const PrivateFolder folder;
    LocalSocket first(folder.path(), "s.sock");
    EXPECT_EQ(refusal_of(folder.path()),
              "cannot listen on " + (folder.path() / "s.sock").string() + ": Address already in use");
    const LocalClient client(folder.path() / "s.sock");
    EXPECT_TRUE(eventually([&] { return static_cast<bool>(first.accept()); }));
}

TEST(LocalSocket, LeavesOtherFilesAlone)
{
    const PrivateFolder folder;
    write_file(folder.path() / "s.sock", "text");
    EXPECT_NE(refusal_of(folder.path()), "");
    EXPECT_EQ(read_file(folder.path() / "s.sock"), "text");
}

TEST(LocalSocket, RefusesANameThatIsTooLong)
{
    const PrivateFolder folder;
    EXPECT_NE(refusal_of(folder.path(), std::string(108, 's')).find("File name too long"), std::string::npos);
    EXPECT_NE(refusal_of(folder.path() / "no/such").find("No such file or directory"), std::string::npos);
}

TEST(LocalSocket, RemovesItsFileButNotThatOfAnother)
{
    const PrivateFolder folder;
    LocalSocket first(folder.path(), "s.sock");
    first.end();
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "s.sock"));
    EXPECT_LT(first.waiting().fd, 0);

    LocalSocket second(folder.path(), "s.sock");
    std::filesystem::remove(folder.path() / "s.sock");
    leave_socket(folder.path() / "s.sock");
    second.end();
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "s.sock"));
}

TEST_F(LocalTest, TheSocketIsGoneAtTheEnd)
{
    EXPECT_EQ(log.count(LOG_NOTICE, "local clients: listening on " + socket.string()), 1u);
    EXPECT_TRUE(std::filesystem::exists(socket));
    server.end();
    EXPECT_FALSE(std::filesystem::exists(socket));
}

TEST_F(LocalTest, WithoutASocketTheRestWorks)
{
    RunningLocal second(socket.parent_path(), instrument);
    EXPECT_EQ(log.count(LOG_WARNING,
                        "no local clients: cannot listen on " + socket.string() + ": Address already in use"),
              1u);
    LocalClient client(socket);
    EXPECT_EQ(client.ask(":A?\n"), ":A?\n");
}

TEST_F(LocalTest, OneClientTooManyIsRefused)
{
    std::list<LocalClient> clients;
    for (size_t i = 0; i < LocalServer::kMostClients; ++i) {
        EXPECT_EQ(clients.emplace_back(socket).ask(":A?\n"), ":A?\n");
    }
    LocalClient refused(socket);
    EXPECT_EQ(refused.rest(), "");
    EXPECT_EQ(log.count(LOG_WARNING, "local client refused: Too many clients"), 1u);
    clients.pop_front();
    EXPECT_TRUE(eventually([&] { return server.executor().sessions() < LocalServer::kMostClients; }));
    LocalClient next(socket);
    EXPECT_EQ(next.ask(":B?\n"), ":B?\n");
}

// A client may time out during a long command and connect again, any number of times.
TEST_F(LocalTest, AClientThatLeftDuringACommandNeedsNoPlace)
{
    instrument.shut();
    LocalClient busy(socket);
    busy.send(":BUSY\n");
    ASSERT_TRUE(eventually([&] { return instrument.at_work() == 1; }));
    for (size_t i = 0; i < 2 * LocalServer::kMostClients; ++i) {
        LocalClient client(socket);
        client.send(":A?\n");
        ASSERT_TRUE(eventually([&] { return server.executor().sessions() == i + 2; }));
    }
    LocalClient client(socket);
    client.send(":B?\n");
    instrument.open();
    EXPECT_EQ(client.line(), ":B?\n");
    EXPECT_EQ(log.count(LOG_WARNING, "local client refused: Too many clients"), 0u);
}
