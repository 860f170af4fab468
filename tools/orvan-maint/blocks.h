#ifndef ORVAN_MAINT_BLOCKS_H
#define ORVAN_MAINT_BLOCKS_H

#include <string>
#include <string_view>

#include "frame.h"

namespace orvan_maint {

/** Block numbers have 16 bits and start at 1; the one after the last marks the end. */
inline constexpr size_t kMostBlocks = 0xFFFE;
inline constexpr size_t kLargestDownload = kMostBlocks * HaldeElec::Orvan::FRMDATALEN;

/** The bytes of a download, split into blocks. The caller keeps owning them. */
class Blocks {
public:
    /** @param bytes 1 to kLargestDownload of them */
    explicit Blocks(std::string_view bytes) : m_bytes(bytes) {}

    /** The number of the block that marks the end. */
    size_t end() const;
    size_t bytes() const { return m_bytes.size(); }
    /** Bytes before a block. */
    size_t bytes_before(size_t block) const;

    /** Puts a block into a frame.
     *  @param block 1 to end()
     *  @return bytes of `data` used */
    size_t put(size_t block, HALDE_PACKET& frame) const;

private:
    std::string_view m_bytes;
};

/** The whole of a regular file of 1 to kLargestDownload bytes; throws Failure. */
std::string read_download(const std::string& path);

} // namespace orvan_maint

#endif
