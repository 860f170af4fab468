#include "support/output_capture.h"

#include <cstdio>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace orvan_test {

OutputCapture::OutputCapture(int fd)
    : m_fd(fd), m_saved(::dup(fd)), m_file(::memfd_create("captured-output", MFD_CLOEXEC))
{
    std::fflush(nullptr);
    if (m_saved < 0 || m_file < 0 || ::dup2(m_file, m_fd) < 0) {
        throw std::runtime_error("cannot capture a descriptor");
    }
}

OutputCapture::~OutputCapture()
{
    std::fflush(nullptr);
    ::dup2(m_saved, m_fd);
    ::close(m_saved);
    ::close(m_file);
}

std::string OutputCapture::text() const
{
    std::fflush(nullptr);
    std::string all;
    char piece[4096];
    ssize_t n;
    while ((n = ::pread(m_file, piece, sizeof piece, static_cast<off_t>(all.size()))) > 0) {
        all.append(piece, static_cast<size_t>(n));
    }
    return all;
}

} // namespace orvan_test
