#include "tar_reader.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include <archive_entry.h>

#include "failure.h"
#include "frame.h"

namespace orvan_maint {
namespace {

// Of all that an archive unpacks to.
constexpr uint64_t kMostBytes = uint64_t{1} << 30;

// POSIX.1-2001 pax, ustar Interchange Format; the types with GNU's two for long names.
constexpr size_t kBlock = 512;
constexpr size_t kNameLength = 100;
constexpr size_t kSizeAt = 124;
constexpr size_t kSizeLength = 12;
constexpr size_t kSumAt = 148;
constexpr size_t kSumLength = 8;
constexpr size_t kTypeAt = 156;
constexpr char kHardLink = '1';
constexpr std::string_view kPaxTypes = "xg";
constexpr std::string_view kExtensionTypes = "xgKL";
constexpr std::string_view kEntryTypes("\00001234567", 9);

// Octal digits and spaces, up to a NUL; or, with the highest bit set, a binary number. libarchive uses the
// leading digits.
bool is_number(std::string_view field)
{
    field = field.substr(0, field.find('\0'));
    field.remove_prefix(std::min(field.find_first_not_of(' '), field.size()));
    field = field.substr(0, field.find(' '));
    return field.find_first_not_of("01234567") == std::string_view::npos || (field[0] & 0x80) != 0;
}

// Lines of "length keyword=value\n"; the length is the whole line's.
bool is_pax(std::string_view text)
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
        if (line.find('=') == std::string_view::npos ||
            (line.starts_with("size=") &&
             line.find_first_not_of("0123456789", 5) != std::string_view::npos)) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

TarEntry::Kind kind_of(archive_entry* entry)
{
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
        return TarEntry::Kind::kFile;
    case AE_IFDIR:
        return TarEntry::Kind::kFolder;
    case AE_IFLNK:
        return TarEntry::Kind::kLink;
    default:
        return TarEntry::Kind::kOther;
    }
}

std::string text_of(const char* text)
{
    return text == nullptr ? "" : text;
}

} // namespace

// libarchive does not verify the checksums of a gzip; an instrument refuses a file that fails them.
TarReader::TarReader(std::string_view bytes, std::string what)
    : m_what(std::move(what)), m_bytes(bytes), m_archive(archive_read_new(), &archive_read_free)
{
    if (is_gzip(bytes)) {
        m_unpacked = gunzip(bytes, kMostBytes);
        m_bytes = m_unpacked.bytes;
    }
    // libarchive is only to accept an uncompressed tar archive. What it does not recognise here, next()
    // refuses.
    if (m_archive == nullptr || archive_read_support_format_tar(m_archive.get()) != ARCHIVE_OK) {
        refuse("needs more memory than there is");
    }
    archive_read_open(m_archive.get(), this, nullptr, &give_bytes, nullptr);
}

la_ssize_t TarReader::give_bytes(archive*, void* self, const void** bytes)
{
    auto& reader = *static_cast<TarReader*>(self);
    if (std::exchange(reader.m_given, true) || reader.m_bytes.empty()) {
        reader.m_past_end = true;
        return 0;
    }
    *bytes = reader.m_bytes.data();
    return static_cast<la_ssize_t>(reader.m_bytes.size());
}

bool TarReader::next(TarEntry& entry)
{
    archive_entry* found = nullptr;
    const int result = archive_read_next_header(m_archive.get(), &found);
    // A name that is not UTF-8, or not representable in the locale, is only a warning; it is used unchanged.
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN && result != ARCHIVE_EOF) {
        refuse_header();
    }
    const std::string_view header = checked_header();
    if (header.empty() && result != ARCHIVE_EOF) {
        refuse("is damaged");
    }
    entry = {};
    // libarchive skips unknown types, or turns them into files.
    if (!header.empty() && kEntryTypes.find(header[kTypeAt]) == std::string_view::npos) {
        entry.name = header.substr(0, std::min(header.find('\0'), kNameLength));
        entry.kind = TarEntry::Kind::kOther;
    } else if (result == ARCHIVE_EOF) {
        if (m_first) {
            refuse("is not a tar archive, or an empty one");
        }
        if (m_unpacked.end != Unpacked::End::kWhole) {
            refuse_early_end();
        }
        return false;
    } else {
        entry.name = text_of(archive_entry_pathname(found));
        entry.kind = header[kTypeAt] == kHardLink ? TarEntry::Kind::kOther : kind_of(found);
        entry.target = text_of(archive_entry_symlink(found));
        entry.size =
            entry.kind == TarEntry::Kind::kFile ? static_cast<uint64_t>(archive_entry_size(found)) : 0;
    }
    m_first = false;
    m_size = entry.size;
    if (m_size > kMostBytes) {
        refuse("unpacks to more than " + std::to_string(kMostBytes) + " bytes");
    }
    return true;
}

std::string TarReader::contents()
{
    std::string bytes(static_cast<size_t>(m_size), '\0');
    const la_ssize_t count = archive_read_data(m_archive.get(), bytes.data(), bytes.size());
    if (count < 0 || static_cast<uint64_t>(count) != m_size) {
        refuse_early_end();
    }
    return bytes;
}

// Skips the pax and GNU extension headers before an entry's header, which is returned; empty at the end.
std::string_view TarReader::checked_header() const
{
    auto at = static_cast<size_t>(archive_read_header_position(m_archive.get()));
    for (;;) {
        const std::string_view header = m_bytes.substr(std::min(at, m_bytes.size()), kBlock);
        if (header.size() < kBlock) {
            return {};
        }
        const std::string_view size_field = header.substr(kSizeAt, kSizeLength);
        if (!is_number(size_field) || !is_number(header.substr(kSumAt, kSumLength))) {
            refuse("is damaged");
        }
        if (kExtensionTypes.find(header[kTypeAt]) == std::string_view::npos) {
            return header;
        }
        const size_t digits = std::min(size_field.find_first_not_of(' '), kSizeLength);
        size_t size = 0;
        const auto [end, error] =
            std::from_chars(size_field.data() + digits, size_field.data() + kSizeLength, size, 8);
        at += kBlock;
        const bool has_keywords = kPaxTypes.find(header[kTypeAt]) != std::string_view::npos;
        if (error != std::errc() || size > m_bytes.size() - at ||
            (has_keywords && !is_pax(m_bytes.substr(at, size)))) {
            refuse("is damaged");
        }
        at += (size + kBlock - 1) / kBlock * kBlock;
    }
}

void TarReader::refuse_header() const
{
    if (m_bytes.empty() && m_unpacked.end == Unpacked::End::kWhole) {
        refuse("is not a tar archive, or an empty one");
    }
    if (archive_format(m_archive.get()) == 0) {
        refuse("is not a tar archive, plain or gzip");
    }
    if (m_past_end) {
        refuse_early_end();
    }
    refuse("is damaged");
}

void TarReader::refuse(const std::string& why) const
{
    throw Failure(kExitBadFile, printable(m_what) + " " + why);
}

void TarReader::refuse_early_end() const
{
    if (m_unpacked.end == Unpacked::End::kTooLarge) {
        refuse("unpacks to more than " + std::to_string(kMostBytes) + " bytes");
    }
    refuse("is damaged: it ends within an entry");
}

} // namespace orvan_maint
