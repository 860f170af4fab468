/**
 * The entry into the instrument's one SCPI parser, its user record, and the interface callbacks
 * other than those for replies.
 *
 * All clients share one context, one input buffer, one transmit buffer and one user record.
 */
#ifndef ORVAN_SDK_SCPI_PARSER_H
#define ORVAN_SDK_SCPI_PARSER_H

#include <cstddef>
#include <cstdint>

#include "orvan_sdk/orvan_api.h"
#include <scpi/types.h>

class Scpi_Orvanx;

/** Known to older clients; no reply of this instrument contains it. */
#define SCPI_GENERAL_ERR_MSG "Invalid Command"

/** Maximum number of sub-commands in a bypass run. */
inline constexpr int kBypassMaxItems = 64;

/** Size of the buffer for a set command's parameter text, including the NUL. */
inline constexpr size_t kBypassParamSize = 128;

/** One forwarded sub-command of the open run. */
struct bypassItem_t {
    int32_t tag;                  /**< element of the channel record, ODT_NO_TAG for none */
    int is_query;                 /**< 1 when the header ends in "?" */
    int param_len;                /**< characters in `param`; 0 for a query */
    char param[kBypassParamSize]; /**< parameter text of a set, truncated to 127 characters, NUL-terminated */
};

/**
 * The user record of the SCPI context: handlers reach the rest of the system through it, never
 * through a global. One per process; it belongs to the thread inside SCPI_Input, except `socket`
 * and `deviceType`, which ScpiParser::setCallerSocket writes from outside without a lock.
 */
typedef struct user_context {
    int socket;      /**< descriptor that replies go to; 0 until the first setCallerSocket */
    int deviceType;  /**< second argument of setCallerSocket */
    void* ptrParser; /**< the Scpi_Orvanx; not owned */
    void* ptrDevice; /**< the device, null until setDevicePtr; not owned */
    int bypass_accum_active;
    char* bypass_accum_buf; /**< text of the open run; heap, freed when the run closes */
    size_t bypass_accum_len;
    size_t bypass_accum_cap;
    int had_error_line;      /**< a "-ERR" was seen in this reply */
    int binary_block_active; /**< the reply in the transmit buffer is an arbitrary block */
    int adding_ok;           /**< replies end with the success word; always 1 */
    int bypass_item_count;
    bypassItem_t bypass_items[kBypassMaxItems];
} userContext_t;

/**
 * Entry point of the parser. Scpi_Orvanx owns the single object and relays the service process's calls.
 *
 * Any client thread may call setCallerSocket, sendCommandToNewScpiParser and connection_abort, but the
 * reply goes to the socket that the user record holds when the line ends: set another
 * client only when no message is being executed.
 */
class ORVAN_API ScpiParser {
public:
    /**
     * Builds `scpi_context` with the command table, the callbacks, the buffers and a zeroed user record
     * whose `ptrParser` is the argument. Called once, before any client exists.
     */
    void init_new_scpi(Scpi_Orvanx* ptrParser);

    /** Hands the device to the handlers; nothing happens before init_new_scpi. */
    void setDevicePtr(void* ptrDevice);

    /** Sets the client that the next bytes come from and replies go to. @return 1; -1 before init_new_scpi
     */
    int setCallerSocket(int socket, int deviceArch);

    /**
     * Takes bytes from the current client, in any pieces. Every program message that they complete is
     * executed, and its reply sent, on this thread before the call returns.
     *
     * Waits while another client is within a message (see scpi_lease.h). Of several messages in one call
     * the lease covers only the first; with several clients, pass them one per call.
     *
     * The buffer must hold a NUL, ";", CR or LF within or immediately after its `valread` bytes (see
     * isCommand).
     *
     * @return true if a message was executed without error and no incomplete one is left
     */
    scpi_bool_t sendCommandToNewScpiParser(char* buffer, int valread);

    /** Reports the loss of a client. Its incomplete message is dropped, and its lease ends. */
    void connection_abort(int sd);

    /** True if the peer of the socket is 127.0.0.1, is not IPv4, or cannot be determined. */
    bool isInternalMessage(int fd);

    /**
     * True when the first line holds a unit of at least one character without a "?", parameters included.
     *
     * A unit ends only at a NUL, ";", CR or LF: the buffer must contain one or be immediately followed by
     * one. `bufferSize` only determines whether another unit follows.
     */
    bool isCommand(const char* cmdBuffer, int bufferSize);

    /**
     * True when the last message that executed without error came from outside the instrument and held a
     * command that is not a query.
     */
    bool isExternalCommand() { return m_cmdExternal; }

private:
    bool m_cmdExternal = false;
};

/** `error` callback: puts "-ERR <number>, \"<text>\"" into the reply, both for the number narrowed to signed
 *  16 bits. Info texts are omitted. @return 0 */
ORVAN_API int SCPI_Error(scpi_t* context, int_fast16_t err);

/**
 * `control` callback: writes "**SRQ: ..." or "**CTRL ..." straight to the caller's socket, bypassing the
 * reply's framing. A failing write is ignored. @return SCPI_RES_OK
 */
ORVAN_API scpi_result_t SCPI_Control(scpi_t* context, scpi_ctrl_name_t ctrl, scpi_reg_val_t val);

/**
 * `reset` callback: drops the bytes of an incomplete message and prints "**Reset" to standard error. It
 * resets neither instrument nor channel records. @return SCPI_RES_OK
 */
ORVAN_API scpi_result_t SCPI_Reset(scpi_t* context);

#endif
