/**
 * Software packages, of the form that an instrument unpacks.
 *
 *     Orvan_Benchtop_FW/             a folder with the platform's word in its name
 *         ...ovx_module...           the modules' software
 *         ...benchtop_fw...          a tar archive with the controller's files
 *             patch/                 what the controller installs
 *
 * The instrument takes one name that has the word in it, and hands names to a shell; so each word may
 * stand in one name only, and names have no characters that mean something there.
 */
#ifndef ORVAN_MAINT_PACKAGE_H
#define ORVAN_MAINT_PACKAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "models.h"

namespace orvan_maint {

/** The word in the name of the modules' software, and the name that build_package() gives it. */
inline constexpr const char* kModuleName = "ovx_module";

/** The name that build_package() gives to the archive with the controller's files. */
std::string controller_name(const Platform& platform);

/** What a package holds for a platform. */
struct Package {
    std::string folder;
    std::string module_name;
    uint64_t module_size = 0;
    std::string controller_name;
    size_t controller_files = 0; /**< below patch/ */
};

/** Throws Failure, which tells what is wrong, when the instrument could not use it.
 *  @param what names the package in complaints */
Package check_package(std::string_view bytes, const std::string& what, const Platform& platform);

/** The platforms that have a folder in it. */
std::vector<const Platform*> platforms_in(std::string_view bytes, const std::string& what);

/** The package as it is sent: a plain archive packed with gzip, whose sum lets an instrument notice when it
 *  was damaged on its way; tar by itself looks at no file's contents. */
std::string packed(std::string bytes);

/**
 * What to warn of when a package has other names than build_package() gives. Next to what a refused update
 * has left under another name, the instrument goes by its clock, which may be wrong; the same name is
 * overwritten.
 *
 * @return a text for each such name
 */
std::vector<std::string> warnings_of(const Package& package, const Platform& platform);

/**
 * Makes a package. Its names are always the same, so that what an earlier update has left on the instrument
 * is overwritten and no second candidate.
 *
 * @param module file with the modules' software
 * @param patch  folder with the controller's files
 */
std::string build_package(const Platform& platform, const std::string& module, const std::string& patch);

} // namespace orvan_maint

#endif
