#include "tar_writer.h"

#include "failure.h"
#include "tar_format.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace orvan_maint {
namespace {

/// Octal digits with leading zeros, and a NUL.
template <size_t size>
void put_number(char (&field)[size], uint64_t number)
{
    field[size - 1] = '\0';
    for (size_t at = size - 1; at-- > 0; number /= 8)
        field[at] = static_cast<char>('0' + number % 8);
}

template <size_t size>
void put_text(char (&field)[size], const std::string& text)
{
    std::memcpy(field, text.data(), std::min(text.size(), size));
}

void fill_block(std::string& bytes)
{
    bytes.resize((bytes.size() + kTarBlock - 1) / kTarBlock * kTarBlock, '\0');
}

} // namespace

void TarWriter::add(char type, const std::string& name, const std::string& target, std::string_view contents,
                    unsigned mode, int64_t time)
{
    static const std::string kLongLink = "././@LongLink";
    if (name.size() > sizeof TarHeader::name) {
        add(kTarLongName, kLongLink, "", std::string_view(name.c_str(), name.size() + 1), 0644, 0);
    }
    if (target.size() > sizeof TarHeader::linkname) {
        add(kTarLongTarget, kLongLink, "", std::string_view(target.c_str(), target.size() + 1), 0644, 0);
    }
    TarHeader header{};
    put_text(header.name, name);
    put_number(header.mode, mode);
    put_number(header.uid, 0);
    put_number(header.gid, 0);
    put_number(header.size, contents.size());
    put_number(header.mtime, static_cast<uint64_t>(std::max<int64_t>(time, 0)));
    header.typeflag = type;
    put_text(header.linkname, target);
    std::memcpy(header.magic, "ustar ", sizeof header.magic); // GNU's, for its long names
    std::memcpy(header.version, " ", sizeof header.version);
    put_text(header.uname, "root");
    put_text(header.gname, "root");
    std::snprintf(header.chksum, sizeof header.chksum, "%06o", tar_sum(header));
    header.chksum[7] = ' ';
    m_bytes.append(reinterpret_cast<const char*>(&header), sizeof header);
    m_bytes.append(contents);
    fill_block(m_bytes);
}

void TarWriter::add_folder(const std::string& name, unsigned mode, int64_t time)
{
    add(kTarFolder, name + "/", "", {}, mode, time);
}

void TarWriter::add_file(const std::string& name, std::string_view contents, unsigned mode, int64_t time)
{
    add(kTarFile, name, "", contents, mode, time);
}

void TarWriter::add_symbolic_link(const std::string& name, const std::string& target, int64_t time)
{
    add(kTarSymbolicLink, name, target, {}, 0777, time);
}

std::string TarWriter::finish()
{
    m_bytes.append(2 * kTarBlock, '\0');
    return std::exchange(m_bytes, {});
}

std::string gzip(std::string_view bytes)
{
    constexpr int kGzip = 16; // on top of the window's bits
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, MAX_WBITS + kGzip, 8, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        throw Failure(kExitBadFile, "there is no memory to compress the package");
    }
    std::string packed(deflateBound(&stream, bytes.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
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

} // namespace orvan_maint
