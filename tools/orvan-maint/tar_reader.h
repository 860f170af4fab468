/**
 * Tar archives as GNU tar unpacks them: POSIX.1-2001 ustar and pax, and GNU's long names; plain or gzip.
 */
#ifndef ORVAN_MAINT_TAR_READER_H
#define ORVAN_MAINT_TAR_READER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <archive.h>

#include "gzip.h"

namespace orvan_maint {

struct TarEntry {
    enum class Kind { kFile, kFolder, kLink, kOther }; /**< kLink: symbolic; kOther: hard links, too */

    std::string name; /**< as in the archive */
    Kind kind = Kind::kFile;
    std::string target; /**< of a link */
    uint64_t size = 0;  /**< of a file's contents */
};

class TarReader {
public:
    /** Data that is not gzip is read unchanged.
     *  @param bytes outlive the reader
     *  @param what names the archive in error messages */
    TarReader(std::string_view bytes, std::string what);
    TarReader(const TarReader&) = delete;
    TarReader& operator=(const TarReader&) = delete;

    /** The next entry; skips the rest of the previous one's contents. Throws Failure when it is not an
     * archive, or damaged. False at the end. */
    bool next(TarEntry& entry);

    /** The contents of the entry that next() has returned. */
    std::string contents();

private:
    static la_ssize_t give_bytes(archive* archive, void* self, const void** bytes);
    std::string_view checked_header() const;
    [[noreturn]] void refuse(const std::string& why) const;
    [[noreturn]] void refuse_header() const;
    [[noreturn]] void refuse_early_end() const;

    std::string m_what;
    Unpacked m_unpacked;
    std::string_view m_bytes; /**< of the plain archive */
    std::unique_ptr<archive, decltype(&archive_read_free)> m_archive;
    bool m_given = false;
    bool m_past_end = false; /**< a read went past the end */
    bool m_first = true;
    uint64_t m_size = 0; /**< of the entry's contents */
};

} // namespace orvan_maint

#endif
