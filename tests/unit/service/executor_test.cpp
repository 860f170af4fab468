// What the executor waits for; turns are tested with the server.
#include <filesystem>
#include <fstream>
#include <signal.h>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "service/executor.h"
#include "service_fixture.h"

using namespace orvan_service;
using namespace orvan_test;
namespace fs = std::filesystem;

namespace {

/** Descriptors watched by the process's epoll instances. */
int waited_for()
{
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone) != "anon_inode:[eventpoll]") {
            continue;
        }
        std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
        for (std::string line; std::getline(info, line);) {
            count += line.starts_with("tfd:") ? 1 : 0;
        }
    }
    return count;
}

} // namespace

// A program that the library starts has copies of the descriptors until exec.
TEST(Executor, StopsWaitingForAnEndedSessionWhoseDescriptorAChildHolds)
{
    RecordingSink sink;
    RunningServer server(sink);
    const int none = waited_for();
    TestClient client(server.port());
    EXPECT_EQ(client.ask("a\n"), "a;+OK\r\n");
    EXPECT_EQ(waited_for(), none + 1);
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    ASSERT_GT(child, 0);
    client.finish_sending();
    EXPECT_TRUE(client.sees_end());
    EXPECT_TRUE(eventually([&] { return server.server().clients() == 0; }));
    EXPECT_EQ(waited_for(), none);
    EXPECT_EQ(TestClient(server.port()).ask("b\n"), "b;+OK\r\n");
    ::kill(child, SIGKILL);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}
