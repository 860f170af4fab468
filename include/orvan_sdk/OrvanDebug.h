/**
 * A small debug logger for developers and the service process: to the console, to a file or through a
 * callback. The operational log goes to syslog instead.
 */
#ifndef ORVAN_SDK_ORVAN_DEBUG_H
#define ORVAN_SDK_ORVAN_DEBUG_H

#include <iosfwd>
#include <string>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec {

/** Receives one line, without a line end. */
using OrvanDebugCallback = void (*)(const char* line);

/**
 * All static, and with no lock: set it up before other threads log. Lines of different threads can interleave
 * on the console; in a file each is appended whole.
 *
 * | Mode | Output                                                                  |
 * |------|-------------------------------------------------------------------------|
 * | 0    | standard output for `Log`, standard error for `Err`                     |
 * | 1    | appended to the log file, which is opened and closed for each line      |
 * | 2    | the callback; dropped while there is none                               |
 * | 4    | nothing                                                                 |
 */
class ORVAN_API OrvanDebug {
public:
    /**
     * Writes "[date time]" immediately followed by `msg`.
     *
     * @param force false drops the line. True overrides nothing: a log status of 0 still drops it.
     */
    static void Log(const std::string& msg, bool force);

    /** Writes "[ORVAN.ERR] " and `msg`, whatever the log status. */
    static void Err(const std::string& msg);

    /** @param mode 0, 1, 2 or 4; any other value becomes 4. Initially 1 */
    static void SetLogMode(int mode);
    static int GetLogMode();

    /** @param status 0 silences `Log`, any other value enables it. Initially 1. @return 0 */
    static int SetLogStatus(int status);
    static int GetLogStatus();

    /**
     * Sets the file of mode 1, initially "./orvan_log.txt", and truncates or creates it. A file that can't be
     * opened is not reported, here or later, and its lines are lost.
     */
    static void SetLogFile(const std::string& name);

    /** Replaces the callback of mode 2; null is ignored. */
    static void RegisterCallback(OrvanDebugCallback fn);

    /** Local time, "2024-02-29 17:05:09". */
    static std::string currentDateTime();

private:
    static void put(const std::string& line, std::ostream& console);

    static int debugMethod;
    static OrvanDebugCallback cb;
    static std::string outputFileName;
    static int log_status;
};

} // namespace HaldeElec

#endif
