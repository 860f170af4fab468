/**
 * What the process writes to standard output or standard error, through stdio or straight to the descriptor.
 */
#ifndef ORVAN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
#define ORVAN_TESTS_SUPPORT_OUTPUT_CAPTURE_H

#include <string>

namespace orvan_test {

/**
 * Redirects a descriptor while it lives, then restores it.
 *
 *     OutputCapture errors(STDERR_FILENO);
 *     SCPI_Reset(&context);
 *     EXPECT_EQ(errors.text(), "**Reset\r\n");
 */
class OutputCapture {
public:
    /** @param fd STDOUT_FILENO or STDERR_FILENO */
    explicit OutputCapture(int fd);
    ~OutputCapture();
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    /** Everything written so far. */
    std::string text() const;

private:
    int m_fd;
    int m_saved;
    int m_file;
};

} // namespace orvan_test

#endif
