#include "crc32_utils.h"

namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320;

} // namespace

constexpr Crc32Utils::Crc32Utils() : m_crc32_table{}
{
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kReflectedPolynomial : 0);
        }
        m_crc32_table[byte] = remainder;
    }
}

Crc32Utils* Crc32Utils::getInstance()
{
    static constinit Crc32Utils instance;
    return &instance;
}

uint32_t Crc32Utils::crc32_init() const
{
    return UINT32_MAX;
}

uint32_t Crc32Utils::calculate_crc32(uint32_t crc, const uint8_t* data, size_t length) const
{
    for (size_t i = 0; i < length; ++i) {
        crc = (crc >> 8) ^ m_crc32_table[(crc ^ data[i]) & 0xFF];
    }
    return crc;
}

uint32_t Crc32Utils::crc32_signoff(uint32_t crc) const
{
    return ~crc;
}
