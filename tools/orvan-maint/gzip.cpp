#include "gzip.h"

#include <algorithm>

#include <zlib.h>

#include "failure.h"

namespace orvan_maint {
namespace {

constexpr int kGzipOnly = MAX_WBITS + 16;

void set_input(z_stream& stream, std::string_view bytes)
{
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
}

} // namespace

std::string gzip(std::string_view bytes)
{
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipOnly, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        throw Failure(kExitBadFile, "out of memory compressing the package");
    }
    std::string packed(deflateBound(&stream, bytes.size()), '\0');
    set_input(stream, bytes);
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    const int result = deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) {
        throw Failure(kExitBadFile, "the package cannot be compressed");
    }
    return packed;
}

bool is_gzip(std::string_view bytes)
{
    return bytes.starts_with("\x1f\x8b"); // RFC 1952 2.3.1
}

Unpacked gunzip(std::string_view bytes, size_t most)
{
    z_stream stream{};
    if (inflateInit2(&stream, kGzipOnly) != Z_OK) {
        throw Failure(kExitBadFile, "out of memory unpacking the package");
    }
    set_input(stream, bytes);
    Unpacked unpacked;
    char part[1 << 16];
    int result = Z_OK;
    do {
        stream.next_out = reinterpret_cast<Bytef*>(part);
        stream.avail_out = sizeof part;
        result = inflate(&stream, Z_NO_FLUSH);
        const size_t room = most - unpacked.bytes.size();
        const size_t count = sizeof part - stream.avail_out;
        unpacked.bytes.append(part, std::min(count, room));
        if (count > room) {
            unpacked.end = Unpacked::End::kTooLarge;
            break;
        }
        if (result == Z_STREAM_END && is_gzip(bytes.substr(bytes.size() - stream.avail_in))) {
            result = inflateReset(&stream);
        }
    } while (result == Z_OK);
    inflateEnd(&stream);
    if (result != Z_STREAM_END && unpacked.end == Unpacked::End::kWhole) {
        unpacked.end = Unpacked::End::kDamaged;
    }
    return unpacked;
}

} // namespace orvan_maint
