/**
 * orvan-db run in the test's process, on a private shared memory object.
 */
#ifndef ORVAN_TESTS_ORVAN_DB_BENCH_H
#define ORVAN_TESTS_ORVAN_DB_BENCH_H

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "orvan-db/command_line.h"
#include "support/output_capture.h"
#include <dataorvan.h>

namespace orvan_test {

/** Shared memory as a service keeps it. */
class SharedRecords {
public:
    explicit SharedRecords(size_t channels) : m_name("/orvan-db-test-" + std::to_string(::getpid()))
    {
        m_fd = ::shm_open(m_name.c_str(), O_RDWR | O_CREAT, 0600);
        cut_to(channels * sizeof(ORVAN_CONFIG));
    }
    ~SharedRecords()
    {
        remove();
        ::close(m_fd);
    }
    SharedRecords(const SharedRecords&) = delete;
    SharedRecords& operator=(const SharedRecords&) = delete;

    const char* name() const { return m_name.c_str(); }
    void cut_to(size_t bytes) { EXPECT_EQ(ftruncate(m_fd, static_cast<off_t>(bytes)), 0); }
    void remove() { ::shm_unlink(m_name.c_str()); }

    template <typename T>
    void put(int channel, int tag, const T& value)
    {
        const auto at =
            static_cast<size_t>(channel - 1) * sizeof(ORVAN_CONFIG) + OrvanData::orvanMap[tag].pos;
        EXPECT_EQ(pwrite(m_fd, &value, sizeof value, static_cast<off_t>(at)),
                  static_cast<ssize_t>(sizeof value));
    }

    /** As many bytes as the element has. */
    void put_bytes(int channel, int tag, const char* bytes)
    {
        const OrvanElementData& element = OrvanData::orvanMap[tag];
        const auto at = static_cast<size_t>(channel - 1) * sizeof(ORVAN_CONFIG) + element.pos;
        EXPECT_EQ(pwrite(m_fd, bytes, element.size, static_cast<off_t>(at)),
                  static_cast<ssize_t>(element.size));
    }

private:
    std::string m_name;
    int m_fd;
};

/** A text field. */
struct Text {
    char bytes[32];
};

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

inline Outcome run_on(const char* object, std::vector<std::string> arguments, int stop = -1)
{
    arguments.insert(arguments.begin(), "orvan-db");
    std::vector<const char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    std::fflush(stdout);
    OutputCapture out(STDOUT_FILENO);
    OutputCapture err(STDERR_FILENO);
    const int status = orvan_db::run(static_cast<int>(argv.size()), argv.data(), object, stop);
    std::fflush(stdout);
    return {status, out.text(), err.text()};
}

inline std::vector<std::string> lines_of(const std::string& text)
{
    std::istringstream all(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(all, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace orvan_test

#endif
