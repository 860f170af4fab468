#include "orvan_sdk/scpi-parser/scpi_reply.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "orvan_sdk/scpi-parser/scpi-bypass.h"
#include "orvan_sdk/scpi-parser/scpi_error_observer.h"
#include "orvan_sdk/scpi-parser/scpi_lease.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"
#include "orvan_sdk/scpi-parser/scpi_progress.h"

namespace {

constexpr std::string_view kErrorWord = "-ERR";
constexpr std::string_view kOkAlone = "+OK";
constexpr std::string_view kOkAfterText = ";+OK";
constexpr std::string_view kLineEnd = "\r\n";

std::atomic<ScpiErrorObserver> g_error_observer = nullptr;

char txBuffer[2048];
size_t g_txOffset = 0;

userContext_t* user_record(scpi_t* context)
{
    return context == nullptr ? nullptr : static_cast<userContext_t*>(context->user_context);
}

size_t room()
{
    return sizeof txBuffer - g_txOffset;
}

void put(const char* data, size_t len)
{
    std::memcpy(txBuffer + g_txOffset, data, len);
    g_txOffset += len;
}

void put_if_it_fits(std::string_view word)
{
    if (word.size() <= room()) {
        put(word.data(), word.size());
    }
}

// Returns the number of bytes sent.
size_t write_buffer(int fd)
{
    size_t sent = 0;
    while (sent < g_txOffset) {
        const ssize_t n = ::write(fd, txBuffer + sent, g_txOffset - sent);
        if (n >= 0) {
            sent += static_cast<size_t>(n);
            scpi_note_progress();
        } else if (errno == EPIPE) {
            std::fputs("socket closed unexpectedly. aborting\n", stderr);
            break;
        } else if (errno != EINTR) {
            std::fprintf(stderr, "Failed to send reply: %s\n", std::strerror(errno));
            break;
        }
    }
    return sent;
}

void clear_buffer()
{
    g_txOffset = 0;
    std::memset(txBuffer, 0, sizeof txBuffer);
}

void set_cork(int fd, int on)
{
    if (::setsockopt(fd, IPPROTO_TCP, TCP_CORK, &on, sizeof on) != 0) {
        std::fprintf(stderr, "setsockopt(TCP_CORK=%d) failed: %s\n", on, std::strerror(errno));
    }
}

} // namespace

void scpi_observe_errors(ScpiErrorObserver observer)
{
    g_error_observer = observer;
}

size_t SCPI_Write(scpi_t* context, const char* data, size_t len)
{
    userContext_t* u = user_record(context);
    if (u == nullptr || data == nullptr || len == 0) {
        return 0;
    }
    if (std::string_view(data, len) == kLineEnd) {
        return len;
    }
    if (has_token(data, len, kErrorWord.data(), kErrorWord.size())) {
        u->had_error_line = 1;
        if (const ScpiErrorObserver observer = g_error_observer) {
            observer(u->socket, data, len);
        }
    }
    if (data[0] == '#' && context->arbitrary_remaining != 0) {
        u->binary_block_active = 1;
    }

    // Text without room for its separator does not fit.
    if (g_txOffset != 0 && room() != 0 && u->binary_block_active == 0 && data[0] != ',' &&
        txBuffer[g_txOffset - 1] != ',') {
        put(";", 1);
    }
    size_t taken = 0;
    while (taken < len) {
        const size_t n = std::min(room(), len - taken);
        put(data + taken, n);
        taken += n;
        if (u->binary_block_active != 0) {
            if (room() == 0 && SCPI_FlushRaw(context) == 0) {
                break;
            }
        } else if (n == 0) {
            // Nothing may be sent before the success word, so a full text reply blocks here forever. The call
            // keeps the compiler from assuming that the loop ends.
            std::this_thread::yield();
        }
    }
    scpi_note_progress();
    return taken;
}

size_t SCPI_FlushRaw(scpi_t* context)
{
    const userContext_t* u = user_record(context);
    if (u == nullptr || g_txOffset == 0) {
        return 0;
    }
    log_send(txBuffer, g_txOffset, u->socket);
    const size_t sent = write_buffer(u->socket);
    if (sent == g_txOffset) {
        clear_buffer();
    }
    return sent;
}

scpi_result_t SCPI_Flush(scpi_t* context)
{
    userContext_t* u = user_record(context);
    if (u == nullptr) {
        return SCPI_RES_OK;
    }
    // Clears had_error_line as well: the success word ends every reply, one with error lines too.
    end_bypass_run(u);
    if (g_txOffset != 0 && u->binary_block_active == 0 && txBuffer[g_txOffset - 1] == ';') {
        --g_txOffset;
    }
    if (u->had_error_line == 0 && u->adding_ok != 0) {
        put_if_it_fits(g_txOffset != 0 ? kOkAfterText : kOkAlone);
    }
    put_if_it_fits(kLineEnd);

    set_cork(u->socket, 1);
    log_send(txBuffer, g_txOffset, u->socket);
    write_buffer(u->socket);
    set_cork(u->socket, 0);

    clear_buffer();
    u->had_error_line = 0;
    u->binary_block_active = 0;
    scpi_lease_release(u->socket);
    return SCPI_RES_OK;
}

int has_token(const char* buf, size_t len, const char* tok, size_t toklen)
{
    if (buf == nullptr || tok == nullptr || toklen == 0) {
        return 0;
    }
    return ::memmem(buf, len, tok, toklen) != nullptr;
}

void log_send(const char* buf, size_t len, int socket_fd)
{
    if (buf == nullptr || len == 0) {
        ::syslog(LOG_INFO, "sending (empty) soc:%02d len:0", socket_fd);
        return;
    }
    if (buf[0] != '#') {
        size_t shown = len;
        while (shown != 0 && (buf[shown - 1] == '\r' || buf[shown - 1] == '\n')) {
            --shown;
        }
        ::syslog(LOG_INFO, "sending \"%.*s\" soc:%02d len:%zu",
                 static_cast<int>(std::min<size_t>(shown, INT_MAX)), buf, socket_fd, len);
        return;
    }
    const int digits = len >= 2 && std::isdigit(static_cast<unsigned char>(buf[1])) ? buf[1] - '0' : -1;
    if (digits >= 0 && len >= static_cast<size_t>(digits) + 2) {
        char number[16] = {};
        std::memcpy(number, buf + 2, static_cast<size_t>(digits));
        ::syslog(LOG_INFO, "sending #<%d digits> len=%d <binary data> soc:%02d total=%zu", digits,
                 std::atoi(number), socket_fd, len);
        return;
    }
    ::syslog(LOG_INFO, "sending <binary block> soc:%02d len:%zu", socket_fd, len);
}
