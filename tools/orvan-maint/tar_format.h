/**
 * The header of an entry in a tar archive.
 */
#ifndef ORVAN_MAINT_TAR_FORMAT_H
#define ORVAN_MAINT_TAR_FORMAT_H

#include <cstddef>

namespace orvan_maint {

inline constexpr size_t kTarBlock = 512;

/** POSIX.1-2001 pax, ustar Interchange Format. */
struct TarHeader {
    char name[100];
    char mode[8];
    char uid[8];
    char gid[8];
    char size[12];
    char mtime[12];
    char chksum[8];
    char typeflag;
    char linkname[100];
    char magic[6];
    char version[2];
    char uname[32];
    char gname[32];
    char devmajor[8];
    char devminor[8];
    char prefix[155];
    char unused[12];
};
static_assert(sizeof(TarHeader) == kTarBlock);

/** The sum of the header's bytes with spaces in the place of the sum. */
inline unsigned tar_sum(TarHeader header)
{
    for (char& c : header.chksum) {
        c = ' ';
    }
    unsigned sum = 0;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&header);
    for (size_t i = 0; i < sizeof header; ++i) {
        sum += bytes[i];
    }
    return sum;
}

inline constexpr char kTarFile = '0';
inline constexpr char kTarSymbolicLink = '2';
inline constexpr char kTarFolder = '5';
inline constexpr char kTarContiguousFile = '7';
inline constexpr char kTarLongName = 'L';   /**< GNU: contents are the next entry's name */
inline constexpr char kTarLongTarget = 'K'; /**< GNU: the next entry's link */
inline constexpr char kTarPax = 'x';        /**< contents are keywords of the next entry */
inline constexpr char kTarPaxForAll = 'g';

} // namespace orvan_maint

#endif
