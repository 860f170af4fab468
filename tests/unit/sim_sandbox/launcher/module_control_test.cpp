#include <filesystem>
#include <string>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "module_control.h"
#include "sockets.h"

using namespace orvan_launcher;

TEST(ModuleControl, ALogIsReadToItsEndEvenIfItsFirstPartEndsWithALine)
{
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("orvan-control-" + std::to_string(::getpid()));
    const int listener = listen_unix(path);
    ASSERT_GE(listener, 0);
    std::thread module([&] {
        const int client = ::accept(listener, nullptr, nullptr);
        char command[64];
        EXPECT_EQ(recv(client, command, sizeof command, 0), 4);
        EXPECT_EQ(send(client, "ok 2\nfirst\n", 11, MSG_NOSIGNAL), 11);
        EXPECT_EQ(recv(client, command, sizeof command, 0), 0); // its side is closed
        EXPECT_EQ(send(client, "second\n", 7, MSG_NOSIGNAL), 7);
        ::close(client);
    });
    EXPECT_EQ(ask_module(path, "log"), "ok 2\nfirst\nsecond\n");
    module.join();
    ::close(listener);
    std::filesystem::remove(path);
}
