/**
 * Tar archives as GNU tar unpacks them: POSIX.1-2001 ustar and pax, and GNU's long names; plain or gzip.
 */
#ifndef ORVAN_MAINT_TAR_READER_H
#define ORVAN_MAINT_TAR_READER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <zlib.h>

namespace orvan_maint {

struct TarEntry {
    enum class Kind { kFile, kFolder, kLink, kOther }; /**< kLink: symbolic; kOther: hard links, too */

    std::string name; /**< as it stands in the archive */
    Kind kind = Kind::kFile;
    std::string target; /**< of a link */
    uint64_t size = 0;  /**< of a file's contents */
};

class TarReader {
public:
    /** What is no gzip is read as it is.
     *  @param what names the archive in complaints */
    TarReader(std::string_view bytes, std::string what);
    ~TarReader();
    TarReader(const TarReader&) = delete;
    TarReader& operator=(const TarReader&) = delete;

    /** The next entry; what was left of the contents of the one before is passed over. Throws Failure when it
     *  is no archive, or a damaged one. False at the end. */
    bool next(TarEntry& entry);

    /** The contents of the entry that next() has given. */
    std::string contents();

private:
    /** False when the archive is at its end instead; what ends amid it is damaged. */
    bool read(void* data, size_t size);
    void skip(uint64_t size);
    void finish();
    std::string read_text(uint64_t size);
    [[noreturn]] void refuse(const std::string& why) const;

    gzFile m_file = nullptr;
    std::string m_what;
    bool m_first = true;
    uint64_t m_size = 0;
    uint64_t m_left = 0; ///< of the entry's contents with what fills its last block
    uint64_t m_total = 0;
};

} // namespace orvan_maint

#endif
