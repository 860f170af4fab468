#ifndef ORVAN_MAINT_TAR_WRITER_H
#define ORVAN_MAINT_TAR_WRITER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <archive.h>

namespace orvan_maint {

/** Makes a tar archive in memory, as GNU tar does; all entries belong to root. Throws Failure when out of
 * memory. */
class TarWriter {
public:
    TarWriter();
    TarWriter(const TarWriter&) = delete;
    TarWriter& operator=(const TarWriter&) = delete;

    void add_folder(const std::string& name, unsigned mode, int64_t time);
    void add_file(const std::string& name, std::string_view contents, unsigned mode, int64_t time);
    void add_symbolic_link(const std::string& name, const std::string& target, int64_t time);

    /** The archive with its end; nothing can be added after it. */
    std::string finish();

private:
    void add(unsigned type, const std::string& name, const std::string& target, std::string_view contents,
             unsigned mode, int64_t time);
    void check(la_ssize_t result) const;

    std::string m_bytes;
    std::unique_ptr<archive, decltype(&archive_write_free)> m_archive;
};

} // namespace orvan_maint

#endif
