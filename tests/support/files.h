#ifndef ORVAN_TESTS_SUPPORT_FILES_H
#define ORVAN_TESTS_SUPPORT_FILES_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvan_test {

/** The whole file; empty when there is none. */
inline std::string read_file(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Makes the folders that are missing, too. */
inline void write_file(const std::filesystem::path& path, const std::string& contents)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

} // namespace orvan_test

#endif
