/**
 * A stand-in for `sudo`, through which the library reaches the machine's network set-up and its reboot.
 */
#ifndef ORVAN_TESTS_SUPPORT_STAND_INS_H
#define ORVAN_TESTS_SUPPORT_STAND_INS_H

#include <string>
#include <vector>

namespace orvan_test {

/**
 * While it lives, PATH contains only a folder with the stand-in, so that a shell finds no real command at
 * all. The constructor ends the process unless a shell does find the stand-in. One at a time, made before
 * other threads run.
 */
class StandIns {
public:
    StandIns();
    ~StandIns();
    StandIns(const StandIns&) = delete;
    StandIns& operator=(const StandIns&) = delete;

    /** The command lines so far, "sudo reboot". */
    std::vector<std::string> calls() const;

    /** Exit status of the calls from now on; 0 at first. */
    void exit_with(int status);

private:
    std::string file(const char* name) const { return m_folder + "/" + name; }

    std::string m_folder;
    std::string m_path;
};

} // namespace orvan_test

#endif
