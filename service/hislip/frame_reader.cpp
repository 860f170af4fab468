#include "frame_reader.h"

#include <algorithm>
#include <cstring>

namespace orvan_service::hislip {
namespace {

constexpr size_t kBuffer = 4096;

} // namespace

std::span<char> FrameReader::space()
{
    m_buffer.resize(kBuffer);
    if (m_begin != 0) { // less than a header is left
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    return std::span(m_buffer).subspan(m_end);
}

FrameReader::Next FrameReader::next(Header& header)
{
    const std::span<const char> bytes(m_buffer.data() + m_begin, m_end - m_begin);
    // What cannot become a header is refused at once: its sender may never send the rest.
    if ((!bytes.empty() && bytes[0] != 'H') || (bytes.size() > 1 && bytes[1] != 'S')) {
        return Next::kBad;
    }
    const std::optional<Header> decoded = decode_header(bytes);
    if (!decoded) {
        return Next::kNeedMore;
    }
    header = *decoded;
    m_left = header.length;
    m_begin += kHeaderSize;
    return Next::kHeader;
}

std::string_view FrameReader::piece(size_t most)
{
    const auto count = static_cast<size_t>(std::min<uint64_t>({m_left, m_end - m_begin, most}));
    const std::string_view piece(m_buffer.data() + m_begin, count);
    m_begin += count;
    m_left -= count;
    return piece;
}

} // namespace orvan_service::hislip
