#ifndef ORVAN_MAINT_GZIP_H
#define ORVAN_MAINT_GZIP_H

#include <cstddef>
#include <string>
#include <string_view>

namespace orvan_maint {

/** Throws Failure when out of memory. */
std::string gzip(std::string_view bytes);

bool is_gzip(std::string_view bytes);

struct Unpacked {
    enum class End { kWhole, kDamaged, kTooLarge };

    std::string bytes; /**< as many as could be decompressed */
    End end = End::kWhole;
};

/** Verifies the checksums. Like gunzip, it continues with a second gzip right after the first and ignores
 * anything else there.
 *  @param most most bytes to decompress to */
Unpacked gunzip(std::string_view bytes, size_t most);

} // namespace orvan_maint

#endif
