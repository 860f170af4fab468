#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "hw/hw.h"

int hw_spi_open(const char* path, int flags)
{
    return ::open(path, flags);
}

int hw_spi_ioctl(int fd, unsigned long request, void* arg)
{
    return ::ioctl(fd, request, arg);
}

int hw_spi_close(int fd)
{
    return ::close(fd);
}

void hw_delay_us(uint64_t us)
{
    std::this_thread::sleep_for(std::chrono::microseconds(us));
}

bool hw_may_reach_modules()
{
    return true;
}

void hw_control_open() {}

void hw_control_close() {}
