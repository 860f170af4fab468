#ifndef ORVAN_MAINT_GZIP_H
#define ORVAN_MAINT_GZIP_H

#include <cstddef>
#include <string>
#include <string_view>

namespace orvan_maint {

/** Throws Failure when there is no memory for it. */
std::string gzip(std::string_view bytes);

bool is_gzip(std::string_view bytes);

struct Unpacked {
    enum class End { kWhole, kDamaged, kTooLarge };

    std::string bytes; /**< as far as they could be had */
    End end = End::kWhole;
};

/** Checks the sums, too. As gunzip does, it goes on with a second gzip right after the first and passes over
 *  anything else there.
 *  @param most bytes to unpack to at most */
Unpacked gunzip(std::string_view bytes, size_t most);

} // namespace orvan_maint

#endif
