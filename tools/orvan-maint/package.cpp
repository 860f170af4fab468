#include "package.h"

#include <algorithm>
#include <map>
#include <utility>

#include "blocks.h"
#include "failure.h"
#include "frame.h"
#include "gzip.h"
#include "tar_reader.h"

namespace orvan_maint {
namespace {

constexpr const char* kPatchFolder = "patch";

// The longest path that the instrument has room for, less its own part.
constexpr size_t kLongestName = 200;

struct Entry {
    TarEntry::Kind kind;
    uint64_t size;
};

/** By path, without leading "./" and trailing "/". */
using Listing = std::map<std::string, Entry>;

[[noreturn]] void refuse(const std::string& what, const std::string& why)
{
    throw Failure(kExitBadFile, printable(what) + " " + why);
}

// Empty for the folder itself.
std::string plain_path(const std::string& what, const std::string& name)
{
    if (name.starts_with('/')) {
        refuse(what, "has an absolute name: " + printable(name));
    }
    std::string path;
    for (size_t begin = 0; begin <= name.size();) {
        const size_t end = std::min(name.find('/', begin), name.size());
        const std::string part = name.substr(begin, end - begin);
        if (part == "..") {
            refuse(what, "has a name that leads out of it: " + printable(name));
        }
        if (!part.empty() && part != ".") {
            path += (path.empty() ? "" : "/") + part;
        }
        begin = end + 1;
    }
    return path;
}

// A link's target is relative to the folder of the link.
bool leads_out(const std::string& link, const std::string& target)
{
    if (target.starts_with('/')) {
        return true;
    }
    auto depth = std::count(link.begin(), link.end(), '/');
    for (size_t begin = 0; begin <= target.size();) {
        const size_t end = std::min(target.find('/', begin), target.size());
        const std::string_view part = std::string_view(target).substr(begin, end - begin);
        if (part == "..") {
            --depth;
        } else if (!part.empty() && part != ".") {
            ++depth;
        }
        if (depth < 0) {
            return true;
        }
        begin = end + 1;
    }
    return false;
}

void add_entry(Listing& listing, const std::string& what, const std::string& path, const Entry& entry)
{
    for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const Entry& parent =
            listing.try_emplace(path.substr(0, slash), Entry{TarEntry::Kind::kFolder, 0}).first->second;
        if (parent.kind != TarEntry::Kind::kFolder) {
            refuse(what,
                   "has something below " + printable(path.substr(0, slash)) + ", which is not a folder");
        }
    }
    const auto [known, is_new] = listing.try_emplace(path, entry);
    if (!is_new && (known->second.kind != entry.kind || entry.kind != TarEntry::Kind::kFolder)) {
        refuse(what, "holds " + printable(path) + " twice");
    }
}

Listing list(std::string_view bytes, const std::string& what)
{
    Listing listing;
    TarReader reader(bytes, what);
    for (TarEntry entry; reader.next(entry);) {
        const std::string path = plain_path(what, entry.name);
        if (entry.kind == TarEntry::Kind::kOther) {
            refuse(what,
                   "has an entry that is not a file, folder or symbolic link: " + printable(entry.name));
        }
        if (entry.kind == TarEntry::Kind::kLink && leads_out(path, entry.target)) {
            refuse(what, "has a link that leads out of it: " + printable(entry.name) + " -> " +
                             printable(entry.target));
        }
        if (!path.empty()) {
            add_entry(listing, what, path, {entry.kind, entry.size});
        }
    }
    return listing;
}

std::string contents_of(std::string_view bytes, const std::string& what, const std::string& path)
{
    TarReader reader(bytes, what);
    for (TarEntry entry; reader.next(entry);) {
        if (entry.kind == TarEntry::Kind::kFile && plain_path(what, entry.name) == path) {
            return reader.contents();
        }
    }
    return {};
}

bool is_plain_name(const std::string& name)
{
    static const std::string kPlain = "._+-";
    return name.size() <= kLongestName && std::all_of(name.begin(), name.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                      kPlain.find(c) != std::string::npos;
           });
}

/** The names directly in a folder, "" for the top level, that contain the word. */
std::vector<std::string> names_with(const Listing& listing, const std::string& folder, const char* word)
{
    std::vector<std::string> names;
    const std::string begin = folder.empty() ? "" : folder + "/";
    for (const auto& [path, entry] : listing) {
        if (path.starts_with(begin) && path.find('/', begin.size()) == std::string::npos &&
            path.find(word, begin.size()) != std::string::npos) {
            names.push_back(path.substr(begin.size()));
        }
    }
    return names;
}

/** The path of the only name that contains the word. */
std::string only_one(const Listing& listing, const std::string& what, const std::string& folder,
                     const char* word, TarEntry::Kind kind)
{
    const std::vector<std::string> names = names_with(listing, folder, word);
    const std::string kind_name = kind == TarEntry::Kind::kFolder ? "folder" : "file";
    const std::string sought = kind_name + " with " + word + " in its name";
    const std::string where = folder.empty() ? "" : " in " + folder;
    if (names.empty()) {
        refuse(what, "has no " + sought + where);
    }
    if (names.size() > 1) {
        refuse(what, "has more than one name with " + std::string(word) + " in it" + where + ": " +
                         printable(names[0]) + ", " + printable(names[1]));
    }
    std::string path = folder.empty() ? names[0] : folder + "/" + names[0];
    if (listing.at(path).kind != kind) {
        refuse(what, "has no " + sought + where + ": " + printable(names[0]) + " is none");
    }
    if (!is_plain_name(names[0])) {
        refuse(what, "has a name that the instrument cannot use, '" + printable(names[0]) +
                         "'; letters, digits and . _ + - will do");
    }
    return path;
}

} // namespace

Package check_package(std::string_view bytes, const std::string& what, const Platform& platform)
{
    if (bytes.size() > kLargestDownload) {
        refuse(what, "has " + std::to_string(bytes.size()) + " bytes; a download has at most " +
                         std::to_string(kLargestDownload));
    }
    const Listing listing = list(bytes, what);
    Package package;
    package.folder = only_one(listing, what, "", platform.folder, TarEntry::Kind::kFolder);
    const std::string module = only_one(listing, what, package.folder, kModuleName, TarEntry::Kind::kFile);
    const std::string controller =
        only_one(listing, what, package.folder, platform.controller, TarEntry::Kind::kFile);
    if (module == controller) {
        refuse(what, "has one file for the modules' software and the controller's: " + printable(module));
    }
    package.module_name = module.substr(package.folder.size() + 1);
    package.controller_name = controller.substr(package.folder.size() + 1);
    package.module_size = listing.at(module).size;
    if (package.module_size == 0) {
        refuse(what, "has an empty " + package.module_name);
    }

    const std::string nested = what + ": " + package.controller_name;
    const Listing files = list(contents_of(bytes, what, controller), nested);
    const auto patch = files.find(kPatchFolder);
    if (patch == files.end() || patch->second.kind != TarEntry::Kind::kFolder) {
        refuse(nested, "has no folder patch");
    }
    const std::string below = std::string(kPatchFolder) + "/";
    package.controller_files =
        static_cast<size_t>(std::count_if(files.begin(), files.end(), [&](const auto& file) {
            return file.first.starts_with(below) && file.second.kind != TarEntry::Kind::kFolder;
        }));
    return package;
}

std::vector<const Platform*> platforms_in(std::string_view bytes, const std::string& what)
{
    const Listing listing = list(bytes, what);
    std::vector<const Platform*> found;
    for (const Platform& platform : kPlatforms) {
        if (!names_with(listing, "", platform.folder).empty()) {
            found.push_back(&platform);
        }
    }
    return found;
}

std::string controller_name(const Platform& platform)
{
    return std::string(platform.controller) + ".tar";
}

std::string packed(std::string bytes)
{
    return is_gzip(bytes) ? std::move(bytes) : gzip(bytes);
}

std::vector<std::string> warnings_of(const Package& package, const Platform& platform)
{
    std::vector<std::string> warnings;
    for (const auto& [name, usual] : {std::pair{package.folder, std::string(platform.folder)},
                                      {package.module_name, kModuleName},
                                      {package.controller_name, controller_name(platform)}}) {
        if (name != usual) {
            warnings.push_back(name + " is not called " + usual +
                               ": next to what a refused update has left on the instrument, which of them it "
                               "takes depends on its clock");
        }
    }
    return warnings;
}

} // namespace orvan_maint
