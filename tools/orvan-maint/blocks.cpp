#include "blocks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "failure.h"
#include <unique_fd.h>

namespace orvan_maint {

using namespace HaldeElec::Orvan;

size_t Blocks::end() const
{
    return (m_bytes.size() + FRMDATALEN - 1) / FRMDATALEN + 1;
}

size_t Blocks::bytes_before(size_t block) const
{
    return std::min((block - 1) * FRMDATALEN, m_bytes.size());
}

size_t Blocks::put(size_t block, HALDE_PACKET& frame) const
{
    const std::string_view data = m_bytes.substr(bytes_before(block), FRMDATALEN);
    put_block(frame, static_cast<uint16_t>(block));
    put_size(frame, data.empty() ? EOD : static_cast<uint16_t>(data.size()));
    std::memset(frame.data, 0, sizeof frame.data);
    std::memcpy(frame.data, data.data(), data.size());
    return data.size();
}

std::string read_download(const std::string& path)
{
    const auto refuse = [&path](const std::string& why) { return Failure(kExitBadFile, path + ": " + why); };
    const orvan_common::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (!fd || ::fstat(fd.get(), &info) != 0) {
        throw refuse(std::strerror(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        throw refuse("is not a file");
    }
    if (info.st_size == 0) {
        throw refuse("is empty");
    }
    if (static_cast<size_t>(info.st_size) > kLargestDownload) {
        throw refuse("has " + std::to_string(info.st_size) + " bytes; a download has at most " +
                     std::to_string(kLargestDownload));
    }
    std::string bytes(static_cast<size_t>(info.st_size), '\0');
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::read(fd.get(), bytes.data() + done, bytes.size() - done);
        if (count <= 0) {
            throw refuse(count < 0 ? std::strerror(errno) : "was truncated while it was read");
        }
        done += static_cast<size_t>(count);
    }
    return bytes;
}

} // namespace orvan_maint
