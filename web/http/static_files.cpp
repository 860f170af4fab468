#include "http/static_files.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <zlib.h>

namespace orvan_web {
namespace {

struct Type {
    std::string_view suffix;
    std::string_view type;
    bool compressible;
};

constexpr std::array kTypes{
    Type{".html", "text/html; charset=utf-8", true},
    Type{".css", "text/css; charset=utf-8", true},
    Type{".js", "text/javascript; charset=utf-8", true},
    Type{".mjs", "text/javascript; charset=utf-8", true},
    Type{".json", "application/json", true},
    Type{".webmanifest", "application/manifest+json", true},
    Type{".svg", "image/svg+xml", true},
    Type{".txt", "text/plain; charset=utf-8", true},
    Type{".png", "image/png", false},
    Type{".ico", "image/vnd.microsoft.icon", false},
    Type{".woff2", "font/woff2", false},
};

const Type* type_of(const std::filesystem::path& file)
{
    const std::string suffix = file.extension();
    for (const Type& type : kTypes) {
        if (type.suffix == suffix) {
            return &type;
        }
    }
    return nullptr;
}

std::string gzip(const std::string& body)
{
    constexpr int kGzipFormat = 15 + 16;
    z_stream stream{};
    if (::deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipFormat, 9, Z_DEFAULT_STRATEGY) != Z_OK) {
        return {};
    }
    std::string result(::deflateBound(&stream, body.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(body.data()));
    stream.avail_in = static_cast<uInt>(body.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    const int outcome = ::deflate(&stream, Z_FINISH);
    result.resize(outcome == Z_STREAM_END ? stream.total_out : 0);
    ::deflateEnd(&stream);
    return result.size() < body.size() ? result : std::string();
}

std::string tag_of(const std::string& body)
{
    const auto sum = ::crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()));
    char text[32];
    std::snprintf(text, sizeof text, "%08lx-%zx", static_cast<unsigned long>(sum), body.size());
    return text;
}

std::string_view trimmed(std::string_view text)
{
    const size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(" \t") + 1);
}

// Calls `found` with each item of a comma-separated list until it returns true.
template <typename Found>
bool any_item(std::string_view list, Found found)
{
    while (!list.empty()) {
        const size_t end = std::min(list.find(','), list.size());
        if (found(trimmed(list.substr(0, end)))) {
            return true;
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

} // namespace

bool accepts_gzip(std::string_view accept_encoding)
{
    return any_item(accept_encoding, [](std::string_view item) {
        const size_t end = std::min(item.find(';'), item.size());
        const std::string_view weight = trimmed(item.substr(std::min(end + 1, item.size())));
        // "q=0", with up to three decimals that are all 0, forbids it.
        const bool forbidden =
            weight.starts_with("q=0") && weight.find_first_not_of("0.", 2) == std::string_view::npos;
        return trimmed(item.substr(0, end)) == "gzip" && !forbidden;
    });
}

size_t StaticFiles::add_folder(const std::filesystem::path& folder)
{
    using Iterator = std::filesystem::recursive_directory_iterator;
    size_t count = 0;
    try {
        for (auto entry = Iterator(folder); entry != Iterator(); ++entry) {
            const auto& path = entry->path();
            if (path.filename().string().starts_with('.')) {
                entry.disable_recursion_pending();
            } else if (entry->is_regular_file() && type_of(path) != nullptr) {
                add_file('/' + path.lexically_relative(folder).string(), path);
                ++count;
            }
        }
    } catch (const std::filesystem::filesystem_error& error) {
        throw std::runtime_error("cannot read " + folder.string() + ": " + error.code().message());
    }
    return count;
}

void StaticFiles::add_file(const std::string& path, const std::filesystem::path& file)
{
    const Type* const type = type_of(file);
    if (type == nullptr) {
        throw std::runtime_error("not a type of file that is served: " + file.string());
    }
    std::ifstream stream(file, std::ios::binary);
    std::string body(std::istreambuf_iterator<char>(stream), {});
    if (!stream) {
        throw std::runtime_error("cannot read " + file.string());
    }
    m_files[path] = {std::string(type->type), tag_of(body), body, type->compressible ? gzip(body) : ""};
}

const StaticFiles::File* StaticFiles::find(std::string_view path) const
{
    const auto found = m_files.find(path == "/" ? "/index.html" : path);
    return found == m_files.end() ? nullptr : &found->second;
}

Response StaticFiles::reply(const Request& request) const
{
    const File& file = *find(request.path);
    const bool compress = !file.compressed.empty() && accepts_gzip(request.header("accept-encoding"));
    const std::string tag = '"' + file.tag + (compress ? "-gzip" : "") + '"';
    Response response{200, file.type, {}, {{"Cache-Control", "no-cache"}, {"ETag", tag}}};
    if (!file.compressed.empty()) {
        response.headers.emplace_back("Vary", "Accept-Encoding");
    }
    const std::string known = request.header("if-none-match");
    if (any_item(known,
                 [&](std::string_view item) { return item == tag || item == "*" || item == "W/" + tag; })) {
        response.status = 304;
        return response;
    }
    if (compress) {
        response.headers.emplace_back("Content-Encoding", "gzip");
    }
    response.body = compress ? file.compressed : file.body;
    return response;
}

} // namespace orvan_web
