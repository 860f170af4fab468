#include <cstdio>

#include <syslog.h>

#include "dataorvan.h"
#include "modules/module_request.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace {

constexpr size_t kValueSize = 256;
constexpr size_t kCommandSize = 512;

} // namespace

std::string get_scpi_pattern(const scpi_command_t* commands, int32_t targetTag)
{
    while (commands->pattern != nullptr && commands->tag != targetTag) {
        ++commands;
    }
    std::string header;
    if (commands->pattern == nullptr) {
        return header;
    }
    bool optional = false;
    for (const char* p = commands->pattern; *p != '\0'; ++p) {
        if (*p == '[') {
            optional = true;
        } else if (*p == ']') {
            optional = false;
        } else if (!optional) {
            header += *p;
        }
    }
    return header;
}

void Scpi_Orvanx::scpi_cmds_pass(int ch, SendOnInit targetPriority)
{
    const auto* const record = reinterpret_cast<const char*>(get_channelDB(ch));
    for (int tag = 0; OrvanData::orvanMap[tag].pos != UINT32_MAX; ++tag) {
        const OrvanElementData& row = OrvanData::orvanMap[tag];
        if (row.send != targetPriority) {
            continue;
        }
        const std::string pattern = get_scpi_pattern(scpi_commands, tag);
        if (pattern.empty()) {
            continue;
        }
        char valBuffer[kValueSize];
        if (!format_element_value(record, row, valBuffer, sizeof valBuffer)) {
            continue;
        }
        char cmdBuffer[kCommandSize];
        const int length =
            std::snprintf(cmdBuffer, sizeof cmdBuffer, "%s %s\r\n", pattern.c_str(), valBuffer);
        if (length <= 0 || length >= static_cast<int>(sizeof cmdBuffer)) {
            continue;
        }
        const std::string reply =
            HaldeElec::Orvan::request_module(*this, ch, {cmdBuffer, static_cast<size_t>(length)});
        ::syslog(LOG_INFO, "command %s sent: %s", pattern.c_str(),
                 checkOrvanReply(reply) ? "OK" : reply.c_str());
    }
}
