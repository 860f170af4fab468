/**
 * A private folder for a test, and file helpers for it.
 */
#ifndef TESTS_COMMON_TEMP_FOLDER_H
#define TESTS_COMMON_TEMP_FOLDER_H

#include <cstddef>
#include <string>
#include <vector>

#include "support/files.h"

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return m_path; }
    /** Path of an entry. */
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    /** Names of the entries, sorted. */
    std::vector<std::string> names() const;

    /**
     * Mounts a small file system over the folder, or over one in it, in a mount namespace of
     * this process.
     *
     * @return empty, or why the machine refuses
     */
    std::string mount_small(size_t bytes, const std::string& name = "");
    /** Makes the small file system read-only. */
    bool make_read_only();

private:
    std::string m_path;
    std::string m_mounted;
};

using orvan_test::read_file;
using orvan_test::write_file;

#endif
