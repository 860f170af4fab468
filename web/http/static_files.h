#ifndef ORVAN_WEB_STATIC_FILES_H
#define ORVAN_WEB_STATIC_FILES_H

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "http/exchange.h"

namespace orvan_web {

/**
 * The files of the page. They are read once, at start, and served from memory: no request ever becomes a path
 * of the file system.
 */
class StaticFiles {
public:
    /**
     * Reads a folder and those in it. Hidden files, and those whose suffix is not known, are left out.
     *
     * @return how many files it has
     * @throws std::runtime_error with a text for the user
     */
    size_t add_folder(const std::filesystem::path& folder);

    /** Reads one file, to be served as `path`.
     *  @throws std::runtime_error with a text for the user */
    void add_file(const std::string& path, const std::filesystem::path& file);

    /** Whether there is a file; "/" is "/index.html". */
    bool has(std::string_view path) const { return find(path) != nullptr; }

    /** The file, compressed if the client takes that, or 304 if it has it already.
     *  @param request for a path that has() is true for */
    Response reply(const Request& request) const;

private:
    struct File {
        std::string type;
        std::string tag; /**< without quotation marks */
        std::string body;
        std::string compressed; /**< as gzip; empty if that is not smaller */
    };

    const File* find(std::string_view path) const;

    std::map<std::string, File, std::less<>> m_files;
};

/** Whether an Accept-Encoding allows gzip. */
bool accepts_gzip(std::string_view accept_encoding);

} // namespace orvan_web

#endif
