/**
 * CRC-32 in pieces.
 */
#ifndef CRC32_UTILS_H
#define CRC32_UTILS_H

#include <cstddef>
#include <cstdint>

/**
 * CRC-32/ISO-HDLC (as in Ethernet and zlib): reflected polynomial 0xEDB88320, start value and
 * final inversion with all bits set. The CRC of "123456789" is 0xCBF43926.
 *
 * @code
 * uint32_t crc = crc32->crc32_init();
 * crc = crc32->calculate_crc32(crc, first, first_length);
 * crc = crc32->calculate_crc32(crc, second, second_length);
 * crc = crc32->crc32_signoff(crc);
 * @endcode
 *
 * The object is constant: any thread may use it at any time, static destructors included.
 */
class Crc32Utils {
public:
    /** The single object; never null, never destroyed. */
    static Crc32Utils* getInstance();

    Crc32Utils(const Crc32Utils&) = delete;
    Crc32Utils& operator=(const Crc32Utils&) = delete;

    /** The initial running value. */
    uint32_t crc32_init() const;

    /**
     * Updates the CRC with more bytes.
     *
     * @param crc    running value
     * @param data   bytes; may be null when `length` is 0
     * @param length their number
     * @return the new running value
     */
    uint32_t calculate_crc32(uint32_t crc, const uint8_t* data, size_t length) const;

    /** The final CRC of a running value. */
    uint32_t crc32_signoff(uint32_t crc) const;

private:
    constexpr Crc32Utils();

    uint32_t m_crc32_table[256];
};

#endif
