#include "tar_reader.h"

#include "failure.h"
#include "frame.h"
#include "tar_format.h"

#include <sys/mman.h>
#include <unique_fd.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

namespace orvan_maint {
namespace {

// Of names and keywords; and of all that an archive unpacks to.
constexpr uint64_t kLongestText = 1 << 20;
constexpr uint64_t kMostBytes = uint64_t{1} << 30;

UniqueFd file_of(std::string_view bytes)
{
    UniqueFd fd(memfd_create("archive", MFD_CLOEXEC));
    for (size_t done = 0; fd && done < bytes.size();) {
        const ssize_t count = write(fd.get(), bytes.data() + done, bytes.size() - done);
        if (count <= 0) {
            return UniqueFd();
        }
        done += static_cast<size_t>(count);
    }
    if (fd) {
        lseek(fd.get(), 0, SEEK_SET);
    }
    return fd;
}

template <size_t size>
std::string text_of(const char (&field)[size])
{
    return {field, strnlen(field, size)};
}

// Octal digits among spaces, or with the highest bit of the first byte set, a binary number.
template <size_t size>
bool number_of(const char (&field)[size], uint64_t& number)
{
    number = 0;
    if ((field[0] & 0x80) != 0) {
        for (size_t i = 0; i < size; ++i) {
            const auto byte = static_cast<unsigned char>(i == 0 ? field[i] & 0x7F : field[i]);
            if (number >> 56 != 0) {
                return false;
            }
            number = number << 8 | byte;
        }
        return true;
    }
    std::string digits = text_of(field);
    digits.erase(0, digits.find_first_not_of(' '));
    digits.erase(std::min(digits.find(' '), digits.size()));
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 8);
    return digits.empty() || (error == std::errc() && end == digits.data() + digits.size());
}

bool is_zero(const TarHeader& header)
{
    const auto* const bytes = reinterpret_cast<const char*>(&header);
    return std::all_of(bytes, bytes + sizeof header, [](char c) { return c == '\0'; });
}

TarEntry::Kind kind_of(const TarHeader& header, const std::string& name)
{
    switch (header.typeflag) {
    case '\0':
    case kTarFile:
    case kTarContiguousFile:
        // Of the time before there were types.
        return name.ends_with('/') ? TarEntry::Kind::kFolder : TarEntry::Kind::kFile;
    case kTarSymbolicLink:
        return TarEntry::Kind::kLink;
    case kTarFolder:
        return TarEntry::Kind::kFolder;
    default:
        return TarEntry::Kind::kOther;
    }
}

std::string name_of(const TarHeader& header)
{
    const bool is_ustar = std::memcmp(header.magic, "ustar\0", sizeof header.magic) == 0;
    const std::string prefix = is_ustar ? text_of(header.prefix) : std::string();
    return prefix.empty() ? text_of(header.name) : prefix + "/" + text_of(header.name);
}

// What pax and GNU say of the next entry; empty for nothing.
struct Extras {
    std::string name;
    std::string target;
    std::string size;
};

// Lines of "length keyword=value\n", the length that of the line.
bool read_pax(std::string_view text, Extras& extras)
{
    while (!text.empty()) {
        size_t length = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
        const auto digits = static_cast<size_t>(end - text.data());
        if (error != std::errc() || length > text.size() || length < digits + 2 || text[digits] != ' ' ||
            text[length - 1] != '\n') {
            return false;
        }
        const std::string_view line = text.substr(digits + 1, length - digits - 2);
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            return false;
        }
        const std::string_view key = line.substr(0, equals);
        const std::string_view value = line.substr(equals + 1);
        if (key == "path") {
            extras.name = value;
        } else if (key == "linkpath") {
            extras.target = value;
        } else if (key == "size") {
            extras.size = value;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace

TarReader::TarReader(std::string_view bytes, std::string what) : m_what(std::move(what))
{
    UniqueFd fd = file_of(bytes);
    m_file = fd ? gzdopen(fd.get(), "rb") : nullptr;
    if (m_file == nullptr) {
        refuse("there is no memory to read it");
    }
    fd.release();
}

TarReader::~TarReader()
{
    if (m_file != nullptr) {
        gzclose(m_file);
    }
}

// What packs the archive has a sum at its end, and an instrument unpacks nothing that fails it.
void TarReader::finish()
{
    char rest[16 * kTarBlock];
    int count = 0;
    while ((count = gzread(m_file, rest, sizeof rest)) > 0) {
        m_total += static_cast<uint64_t>(count);
        if (m_total > kMostBytes) {
            refuse("unpacks to more than " + std::to_string(kMostBytes) + " bytes");
        }
    }
    int error = Z_OK;
    gzerror(m_file, &error);
    if (count < 0 || error != Z_OK) {
        refuse("is damaged: it ends amid an entry");
    }
}

bool TarReader::next(TarEntry& entry)
{
    Extras extras;
    for (;;) {
        skip(std::exchange(m_left, 0));
        TarHeader header;
        if (!read(&header, sizeof header) || is_zero(header)) {
            if (m_first) {
                refuse("is no tar archive, or an empty one");
            }
            finish();
            return false;
        }
        uint64_t sum = 0;
        if (!number_of(header.chksum, sum) || sum != tar_sum(header) || !number_of(header.size, m_size)) {
            refuse(m_first ? "is no tar archive, plain or gzip" : "is damaged");
        }
        m_first = false;
        if (header.typeflag == kTarLongName) {
            extras.name = read_text(m_size);
            extras.name.resize(strnlen(extras.name.data(), extras.name.size()));
            continue;
        }
        if (header.typeflag == kTarLongTarget) {
            extras.target = read_text(m_size);
            extras.target.resize(strnlen(extras.target.data(), extras.target.size()));
            continue;
        }
        if (header.typeflag == kTarPax || header.typeflag == kTarPaxForAll) {
            Extras for_all;
            if (!read_pax(read_text(m_size), header.typeflag == kTarPax ? extras : for_all)) {
                refuse("is damaged");
            }
            continue;
        }
        if (!extras.size.empty()) {
            const char* const end = extras.size.data() + extras.size.size();
            const auto [at, error] = std::from_chars(extras.size.data(), end, m_size);
            if (error != std::errc() || at != end) {
                refuse("is damaged");
            }
        }
        entry.name = extras.name.empty() ? name_of(header) : extras.name;
        entry.target = extras.target.empty() ? text_of(header.linkname) : extras.target;
        entry.kind = kind_of(header, entry.name);
        if (entry.kind == TarEntry::Kind::kFolder || entry.kind == TarEntry::Kind::kLink) {
            m_size = 0;
        }
        entry.size = m_size;
        if (m_size > kMostBytes) {
            refuse("unpacks to more than " + std::to_string(kMostBytes) + " bytes");
        }
        m_left = (m_size + kTarBlock - 1) / kTarBlock * kTarBlock;
        return true;
    }
}

std::string TarReader::contents()
{
    std::string bytes = read_text(m_size);
    m_left = 0;
    return bytes;
}

bool TarReader::read(void* data, size_t size)
{
    const int count = gzread(m_file, data, static_cast<unsigned>(size));
    int error = Z_OK;
    gzerror(m_file, &error);
    if (count == 0 && error == Z_OK) {
        return false;
    }
    if (count != static_cast<int>(size)) {
        refuse(m_first ? "is no tar archive, plain or gzip" : "is damaged: it ends amid an entry");
    }
    m_total += size;
    if (m_total > kMostBytes) {
        refuse("unpacks to more than " + std::to_string(kMostBytes) + " bytes");
    }
    return true;
}

void TarReader::skip(uint64_t size)
{
    char block[64 * kTarBlock];
    while (size > 0) {
        const size_t part = static_cast<size_t>(std::min<uint64_t>(size, sizeof block));
        if (!read(block, part)) {
            refuse("is damaged: it ends amid an entry");
        }
        size -= part;
    }
}

// With what fills the last block.
std::string TarReader::read_text(uint64_t size)
{
    if (size > (m_left != 0 ? kMostBytes : kLongestText)) {
        refuse("is damaged");
    }
    std::string bytes(static_cast<size_t>(size), '\0');
    if (!bytes.empty() && !read(bytes.data(), bytes.size())) {
        refuse("is damaged: it ends amid an entry");
    }
    skip((kTarBlock - size % kTarBlock) % kTarBlock);
    return bytes;
}

void TarReader::refuse(const std::string& why) const
{
    throw Failure(kExitBadFile, printable(m_what) + " " + why);
}

} // namespace orvan_maint
