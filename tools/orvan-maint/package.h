/**
 * Software packages in the form that an instrument unpacks.
 *
 *     Orvan_Benchtop_FW/             a folder with the platform's word in its name
 *         ...ovx_module...           the modules' software
 *         ...benchtop_fw...          a tar archive with the controller's files
 *             patch/                 what the controller installs
 *
 * The instrument takes a name that contains the word, and passes names to a shell; so each word may be in one
 * name only, and names must not contain shell metacharacters.
 */
#ifndef ORVAN_MAINT_PACKAGE_H
#define ORVAN_MAINT_PACKAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "models.h"

namespace orvan_maint {

/** The word in the name of the modules' software, and the name that build_package() uses. */
inline constexpr const char* kModuleName = "ovx_module";

/** The name that build_package() uses for the archive with the controller's files. */
std::string controller_name(const Platform& platform);

/** What a package contains for a platform. */
struct Package {
    std::string folder;
    std::string module_name;
    uint64_t module_size = 0;
    std::string controller_name;
    size_t controller_files = 0; /**< below patch/ */
};

/** Throws Failure, with the reason, when the instrument could not use it.
 *  @param what names the package in error messages */
Package check_package(std::string_view bytes, const std::string& what, const Platform& platform);

/** The platforms that have a folder in it. */
std::vector<const Platform*> platforms_in(std::string_view bytes, const std::string& what);

/** The package as sent: an uncompressed archive is compressed with gzip, whose checksum lets an instrument
 * detect damage in transit; tar does not check file contents. */
std::string packed(std::string bytes);

/**
 * Warnings about names in a package that build_package() would not use. If a refused update has left files
 * under another name, the instrument chooses by time stamps, and its clock may be wrong; the same name is
 * overwritten.
 *
 * @return a text for each such name
 */
std::vector<std::string> warnings_of(const Package& package, const Platform& platform);

/**
 * Makes a package. Its names are always the same, so that it overwrites what an earlier update has left on
 * the instrument.
 *
 * @param module file with the modules' software
 * @param patch  folder with the controller's files
 */
std::string build_package(const Platform& platform, const std::string& module, const std::string& patch);

} // namespace orvan_maint

#endif
