#include "channel_records/records.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvan_records {

Records read_records(const char* object)
{
    constexpr size_t kMostChannels = 4;

    const int fd = ::shm_open(object, O_RDONLY, 0);
    if (fd < 0) {
        return {};
    }
    Records records(kMostChannels);
    auto* const place = reinterpret_cast<char*>(records.data());
    size_t taken = 0;
    ssize_t count = 0;
    while (taken < sizeof(ORVAN_CONFIG) * kMostChannels &&
           ((count = ::read(fd, place + taken, sizeof(ORVAN_CONFIG) * kMostChannels - taken)) > 0 ||
            (count < 0 && errno == EINTR))) {
        taken += count > 0 ? static_cast<size_t>(count) : 0;
    }
    ::close(fd);
    records.resize(taken / sizeof(ORVAN_CONFIG));
    return records;
}

} // namespace orvan_records
