#include "orvan_sdk/scpi-parser/scpi_parser.h"

#include <array>
#include <cstdio>
#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_lease.h"
#include "orvan_sdk/scpi-parser/scpi_reply.h"
#include "parser_library.h"

scpi_t scpi_context;
char scpi_input_buffer[kScpiInputBufferSize];
scpi_error_t scpi_error_queue_data[kScpiErrorQueueSize];

namespace {

// The four fields of "*IDN?" (IEEE 488.2 10.14).
using Identity = std::array<const char*, 4>;

// Without a settings record: as the portable leaves the factory.
constexpr Identity kFactoryIdentity = {"Halde Electronics Ltd.", "OVX3651P", "230000", "01.0.001"};

// Pointers into the live record, so that a change shows in the next query.
Identity live_identity()
{
    using HaldeElec::Orvan::CPersistentData;
    CPersistentData* const data = CPersistentData::GetInstance();
    if (data == nullptr) {
        return kFactoryIdentity;
    }
    const auto* const settings = data->getSettings();
    return {settings->description, settings->modelName, settings->serialNum, settings->fwVersion};
}

userContext_t* user_record(const scpi_t& context)
{
    return static_cast<userContext_t*>(context.user_context);
}

bool ends_unit(char c)
{
    return c == '\0' || c == ';' || c == '\r' || c == '\n';
}

} // namespace

void ScpiParser::init_new_scpi(Scpi_Orvanx* ptrParser)
{
    static userContext_t userInfo;

    const Identity identity = live_identity();
    SCPI_Init(&scpi_context, scpi_commands, &scpi_interface, scpi_units_def, identity[0], identity[1],
              identity[2], identity[3], scpi_input_buffer, kScpiInputBufferSize, scpi_error_queue_data,
              kScpiErrorQueueSize);
    userInfo = {};
    userInfo.adding_ok = 1;
    userInfo.ptrParser = ptrParser;
    scpi_context.user_context = &userInfo;
    ::syslog(LOG_INFO, "ScpiParser::init_new_scpi done");
}

void ScpiParser::setDevicePtr(void* ptrDevice)
{
    if (userContext_t* u = user_record(scpi_context)) {
        u->ptrDevice = ptrDevice;
    }
}

int ScpiParser::setCallerSocket(int socket, int deviceArch)
{
    userContext_t* u = user_record(scpi_context);
    if (u == nullptr) {
        return -1;
    }
    u->socket = socket;
    u->deviceType = deviceArch;
    return 1;
}

scpi_bool_t ScpiParser::sendCommandToNewScpiParser(char* buffer, int valread)
{
    // Read before acquiring the lease: it is this caller's socket, whoever holds the lease now.
    const int fd = user_record(scpi_context)->socket;
    log_send(buffer, static_cast<size_t>(valread), fd);
    scpi_lease_acquire(fd);
    const scpi_bool_t executed = HaldeElec::Orvan::hand_in(SCPI_Input, &scpi_context, buffer, valread);
    if (executed) {
        m_cmdExternal = isCommand(buffer, valread) && !isInternalMessage(fd);
    } else {
        scpi_watchdog_pet_owner(fd);
    }
    return executed;
}

void ScpiParser::connection_abort(int sd)
{
    scpi_lease_abort_if_owner(sd);
}

bool ScpiParser::isInternalMessage(int fd)
{
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) != 0 || peer.ss_family != AF_INET) {
        return true;
    }
    return ntohl(reinterpret_cast<const sockaddr_in&>(peer).sin_addr.s_addr) == INADDR_LOOPBACK;
}

bool ScpiParser::isCommand(const char* cmdBuffer, int bufferSize)
{
    const char* const end = cmdBuffer + bufferSize;
    const char* p = cmdBuffer;
    for (;;) {
        const char* const unit = p;
        bool query = false;
        for (; !ends_unit(*p); ++p) {
            query = query || *p == '?';
        }
        if (p != unit && !query) {
            return true;
        }
        if (p >= end || *p != ';') {
            return false;
        }
        ++p;
    }
}

int SCPI_Error(scpi_t* context, int_fast16_t err)
{
    const auto number = static_cast<int16_t>(err);
    char line[128] = {};
    std::snprintf(line, sizeof line, "-ERR %d, \"%s\"", number, SCPI_ErrorTranslate(number));
    SCPI_Write(context, line, std::strlen(line));
    return 0;
}

scpi_result_t SCPI_Control(scpi_t* context, scpi_ctrl_name_t ctrl, scpi_reg_val_t val)
{
    char line[128] = {};
    if (ctrl == SCPI_CTRL_SRQ) {
        std::snprintf(line, sizeof line, "**SRQ: 0x%X (%d)\r\n", val, val);
    } else {
        std::snprintf(line, sizeof line, "**CTRL %02x: 0x%X (%d)\r\n", static_cast<unsigned>(ctrl), val, val);
    }
    if (const userContext_t* u = user_record(*context)) {
        [[maybe_unused]] const ssize_t ignored = ::write(u->socket, line, std::strlen(line));
    }
    return SCPI_RES_OK;
}

scpi_result_t SCPI_Reset(scpi_t* context)
{
    scpi_buffer_t& input = context->buffer;
    if (input.position < input.length) {
        input.data[input.position] = '\0';
    }
    input.position = 0;
    std::fputs("**Reset\r\n", stderr);
    return SCPI_RES_OK;
}
