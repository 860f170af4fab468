#include "orvan_sdk/OrvanDebug.h"

#include <ctime>
#include <fstream>
#include <iostream>

namespace HaldeElec {
namespace {

enum Mode { kConsole = 0, kFile = 1, kCallback = 2, kNothing = 4 };

} // namespace

int OrvanDebug::debugMethod = kFile;
OrvanDebugCallback OrvanDebug::cb = nullptr;
std::string OrvanDebug::outputFileName = "./orvan_log.txt";
int OrvanDebug::log_status = 1;

void OrvanDebug::put(const std::string& line, std::ostream& console)
{
    switch (debugMethod) {
    case kConsole:
        console << line << std::endl;
        break;
    case kFile:
        std::ofstream(outputFileName, std::ios::app) << line + '\n';
        break;
    case kCallback:
        if (cb != nullptr) {
            cb(line.c_str());
        }
        break;
    default:
        break;
    }
}

void OrvanDebug::Log(const std::string& msg, bool force)
{
    const std::string line = "[" + currentDateTime() + "]" + msg;
    if (force && log_status != 0) {
        put(line, std::cout);
    }
}

void OrvanDebug::Err(const std::string& msg)
{
    put("[ORVAN.ERR] " + msg, std::cerr);
}

void OrvanDebug::SetLogMode(int mode)
{
    debugMethod = mode == kConsole || mode == kFile || mode == kCallback ? mode : kNothing;
}

int OrvanDebug::GetLogMode()
{
    return debugMethod;
}

int OrvanDebug::SetLogStatus(int status)
{
    log_status = status;
    return 0;
}

int OrvanDebug::GetLogStatus()
{
    return log_status;
}

void OrvanDebug::SetLogFile(const std::string& name)
{
    outputFileName = name;
    std::ofstream emptied(outputFileName, std::ios::trunc);
}

void OrvanDebug::RegisterCallback(OrvanDebugCallback fn)
{
    if (fn != nullptr) {
        cb = fn;
    }
}

std::string OrvanDebug::currentDateTime()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[32] = {};
    std::strftime(text, sizeof text, "%F %T", &local);
    return text;
}

} // namespace HaldeElec
