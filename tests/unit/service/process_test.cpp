#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <future>
#include <signal.h>
#include <thread>

#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "service/process.h"

using namespace orvan_service;

namespace {

bool readable(int fd)
{
    pollfd waiting{fd, POLLIN, 0};
    return ::poll(&waiting, 1, 0) == 1;
}

} // namespace

TEST(Process, TheDescriptorLimitIsRaisedToTheHardLimitWithinABound)
{
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlim_t expected = std::min<rlim_t>(limit.rlim_max, 4096);
    limit.rlim_cur = 32;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(raise_descriptor_limit(), expected);
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, expected);
    limit.rlim_max = limit.rlim_cur = 100;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(raise_descriptor_limit(), 100u);
}

TEST(Process, AThreadWithoutAStackSizeGetsThatOfTheProcess)
{
    limit_thread_stacks();
    size_t size = 0;
    std::thread([&] {
        pthread_attr_t attributes;
        ::pthread_getattr_np(::pthread_self(), &attributes);
        ::pthread_attr_getstacksize(&attributes, &size);
        ::pthread_attr_destroy(&attributes);
    }).join();
    EXPECT_EQ(size, kThreadStack);
}

TEST(Process, ABrokenPipeIsAnErrorOfWrite)
{
    ignore_broken_pipes();
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    EXPECT_EQ(::write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    ::close(ends[1]);
}

TEST(Process, TheLogMaskDropsMessagesBelowTheLevel)
{
    open_log(LOG_NOTICE, false);
    EXPECT_EQ(::setlogmask(0), LOG_UPTO(LOG_NOTICE));
    open_log(LOG_DEBUG, false);
    EXPECT_EQ(::setlogmask(0), LOG_UPTO(LOG_DEBUG));
}

TEST(StopRequest, EachSignalMakesItReadableForGood)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        const StopRequest stop;
        EXPECT_FALSE(readable(stop.descriptor()));
        ASSERT_EQ(::raise(signal), 0);
        EXPECT_TRUE(readable(stop.descriptor()));
        EXPECT_TRUE(readable(stop.descriptor()));
        ASSERT_EQ(::raise(signal), 0); // a second one does no harm
    }
}

TEST(StopRequest, RestoresTheSignalsOnDestruction)
{
    {
        const StopRequest stop;
    }
    EXPECT_EXIT(::raise(SIGTERM), ::testing::KilledBySignal(SIGTERM), "");
}

// A program that the library starts must be stoppable.
TEST(StopRequest, TheSignalsAreNotBlocked)
{
    const StopRequest stop;
    sigset_t blocked;
    ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &blocked), 0);
    EXPECT_EQ(::sigismember(&blocked, SIGTERM), 0);
    EXPECT_EQ(::sigismember(&blocked, SIGINT), 0);
}

class LeaveDeathTest : public ::testing::Test {
protected:
    LeaveDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// As syslog() does with the stream in which it composes a line.
TEST_F(LeaveDeathTest, DoesNotWaitForAStreamLockedByAnotherThread)
{
    EXPECT_EXIT(
        {
            ::alarm(20);
            std::FILE* const busy = std::tmpfile();
            std::promise<void> held;
            std::thread([&] {
                ::flockfile(busy);
                held.set_value();
                ::pause();
            }).detach();
            held.get_future().wait();
            leave(3);
        },
        ::testing::ExitedWithCode(3), "");
}

TEST_F(LeaveDeathTest, FlushesStandardOutput)
{
    EXPECT_EXIT(
        {
            ::dup2(STDERR_FILENO, STDOUT_FILENO); // where the test captures
            std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
            std::fputs("printed", stdout);
            leave(3);
        },
        ::testing::ExitedWithCode(3), "printed");
}
