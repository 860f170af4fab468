#include "tar_writer.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include <archive_entry.h>

#include "failure.h"

namespace orvan_maint {
namespace {

la_ssize_t append(archive*, void* bytes, const void* data, size_t size)
{
    static_cast<std::string*>(bytes)->append(static_cast<const char*>(data), size);
    return static_cast<la_ssize_t>(size);
}

} // namespace

TarWriter::TarWriter() : m_archive(archive_write_new(), &archive_write_free)
{
    if (m_archive == nullptr) {
        throw Failure(kExitBadFile, "out of memory making the package");
    }
    check(archive_write_set_format_gnutar(m_archive.get()));
    check(archive_write_set_bytes_in_last_block(m_archive.get(), 1));
    check(archive_write_open(m_archive.get(), &m_bytes, nullptr, &append, nullptr));
}

void TarWriter::add(unsigned type, const std::string& name, const std::string& target,
                    std::string_view contents, unsigned mode, int64_t time)
{
    const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                              &archive_entry_free);
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), type);
    archive_entry_set_perm(entry.get(), static_cast<mode_t>(mode));
    archive_entry_set_mtime(entry.get(), static_cast<time_t>(std::max<int64_t>(time, 0)), 0);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(contents.size()));
    archive_entry_set_uname(entry.get(), "root");
    archive_entry_set_gname(entry.get(), "root");
    if (type == AE_IFLNK) {
        archive_entry_set_symlink(entry.get(), target.c_str());
    }
    check(archive_write_header(m_archive.get(), entry.get()));
    if (!contents.empty()) {
        check(archive_write_data(m_archive.get(), contents.data(), contents.size()));
    }
}

void TarWriter::add_folder(const std::string& name, unsigned mode, int64_t time)
{
    add(AE_IFDIR, name, "", {}, mode, time);
}

void TarWriter::add_file(const std::string& name, std::string_view contents, unsigned mode, int64_t time)
{
    add(AE_IFREG, name, "", contents, mode, time);
}

void TarWriter::add_symbolic_link(const std::string& name, const std::string& target, int64_t time)
{
    add(AE_IFLNK, name, target, {}, 0777, time);
}

std::string TarWriter::finish()
{
    check(archive_write_close(m_archive.get()));
    return std::exchange(m_bytes, {});
}

void TarWriter::check(la_ssize_t result) const
{
    if (result < ARCHIVE_OK) {
        const char* const error = archive_error_string(m_archive.get());
        throw Failure(kExitBadFile, std::string("the package cannot be made: ") + (error ? error : ""));
    }
}

} // namespace orvan_maint
