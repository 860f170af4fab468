// Drives the library's stored setups on the controller, next to the service:
//
//     orvan-setup-driver "modules 4 20" "load 0" "ch 2 :FREQ 2e9" "store 3" "recall 3"
//
// Each argument is a step. Its result is a line on standard output; the library logs to standard error.
#include <csignal>
#include <cstdio>
#include <sstream>
#include <string>

#include <syslog.h>

#include "orvan_sandbox/guard.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/Portable/OrvanConnPortable.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "support/loopback.h"

using namespace HaldeElec::Orvan;

namespace {

constexpr int kNoDebugLog = 4;

Scpi_Orvanx* g_orvanx;

// A SCPI line for a channel, as a client sends it.
std::string ask(int channel, const std::string& line)
{
    const orvan_test::TcpPair client;
    g_orvanx->setSelectedChannel(channel);
    g_orvanx->setCallerSocket(client.server(), 0);
    std::string message = line + "\n";
    g_orvanx->sendScpiToNewParser(message.data(), static_cast<int>(message.size()));
    const std::string reply = orvan_test::read_until(client.client(), "\n");
    return reply.substr(0, reply.find('\r'));
}

// @return the step's result; "?" for an unknown step
std::string run_step(const std::string& step)
{
    std::istringstream words(step);
    std::string word;
    int first = 0;
    words >> word >> first >> std::ws;
    if (word == "modules") { // how many, and seconds to wait for them
        int seconds = 0;
        words >> seconds;
        g_orvanx->setNumberofChannels(first);
        g_orvanx->setSelectedChannel(1);
        g_orvanx->wait_for_channels_ready(first, seconds);
        std::string live;
        for (int channel = 1; channel <= first; ++channel) {
            live += g_orvanx->m_isLive[channel - 1] ? "1" : "0";
        }
        return live;
    }
    if (word == "believe") { // marks a channel live without asking its module
        g_orvanx->m_isLive[first - 1] = true;
        return "live";
    }
    if (word == "ch") {
        std::string line;
        std::getline(words, line);
        return ask(first, line);
    }
    if (word == "set") { // an element of a channel's record, by its tag
        int tag = 0;
        std::string value;
        words >> tag >> value;
        return std::to_string(g_orvanx->update_db(first, tag, value.data(), value.size() + 1));
    }
    if (word == "restore") {
        g_orvanx->set_powerOnRestore(first != 0);
        return "set";
    }
    const int result = word == "load"     ? g_orvanx->load_database(first)
                       : word == "store"  ? g_orvanx->database_store(first)
                       : word == "recall" ? g_orvanx->database_recall(first)
                       : word == "clear"  ? g_orvanx->database_clear(first)
                                          : 1;
    return result > 0 ? "?" : std::to_string(result);
}

} // namespace

int main(int argc, char** argv)
{
    if (!orvan_sandbox::in_sandbox()) {
        std::fputs("orvan-setup-driver: it would reach for real module addresses\n", stderr);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    ::openlog("library", LOG_PERROR, LOG_USER);
    setlogmask(LOG_UPTO(LOG_INFO));
    HaldeElec::OrvanDebug::SetLogMode(kNoDebugLog); // it would create its file in the current folder
    // Settings in memory: their EEPROM is never accessed.
    OrvanConnPortable bus;
    CPersistentData::Init(&bus, g_portableModelsTable);
    g_orvanx = Scpi_Orvanx::getInstance();
    for (int i = 1; i < argc; ++i) {
        std::printf("%s: %s\n", argv[i], run_step(argv[i]).c_str());
    }
    // Never destroyed: the destructor would remove the service's records.
    std::fflush(stdout);
    std::_Exit(0);
}
