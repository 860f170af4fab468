#ifndef ORVAN_TESTS_TEST_FOLDER_H
#define ORVAN_TESTS_TEST_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace orvan_test {

/** A temporary folder. */
class TestFolder {
public:
    TestFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "orvan-maint-XXXXXX").string();
        m_path = mkdtemp(name.data());
    }
    ~TestFolder() { std::filesystem::remove_all(m_path); }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    std::string path(const std::string& name = {}) const { return (m_path / name).string(); }
    std::string put(const std::string& name, const std::string& contents) const
    {
        std::filesystem::create_directories((m_path / name).parent_path());
        std::ofstream(m_path / name, std::ios::binary) << contents;
        return path(name);
    }
    std::string get(const std::string& name) const
    {
        std::ifstream file(m_path / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path m_path;
};

} // namespace orvan_test

#endif
