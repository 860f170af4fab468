/**
 * The front panel's keypad: key events become single bytes, each delivered over a separate TCP connection to
 * the front-panel program on this controller.
 *
 * A key code is `col * 16 + row`. Keys report their press; those of columns 8 and 9 also their release, with
 * the same code. A code that cannot be delivered is lost: nothing is resent.
 */
#ifndef ORVAN_SDK_I2C_KEYBOARD_H
#define ORVAN_SDK_I2C_KEYBOARD_H

#include <cstddef>
#include <cstdint>

#include "orvan_sdk/orvan_api.h"

/** Limit of queued codes; any more are silently dropped. */
inline constexpr size_t MAX_CMD_QUEUE_SIZE = 100;

inline constexpr char LOCALHOST[] = "127.0.0.1";

/** TCP port of the front-panel program. */
inline constexpr uint16_t KB_PORT = 8888;

/** The code that send_remote_code queues; no key has it. */
inline constexpr uint8_t KB_REMOTE_CODE = 0xFF;

/**
 * Starts the sender thread, which runs until the process ends, and the interrupt of the keypad controller.
 * Call it once per process, after wiringPiSetup.
 *
 * Without a keypad controller, or if configuring it fails, the sender idles.
 *
 * @return 0; -1 when the sender thread cannot be created. When the interrupt cannot be set up it
 * prints "Unable to setup ISR: %s" with the text of errno to standard error, and the process ends before
 * -1 is returned: the sender's thread object is destroyed while it is joinable.
 */
ORVAN_API int kb_setup();

/**
 * Takes one event from the keypad controller and queues its code. Runs on the interrupt thread. Also call
 * it once after kb_setup: an event from before the interrupt was set up holds its line low, and no edge
 * follows.
 */
ORVAN_API void i2cIRQhandler();

/** Queues KB_REMOTE_CODE as if it were a key's code. Any thread. */
ORVAN_API void send_remote_code();

/** The sender: delivers the queued codes in order, forever. The argument is not used. */
ORVAN_API void kb_sender(int);

/**
 * Sends bytes to KB_PORT over a short-lived connection. Connecting and sending each take at most 30 ms.
 *
 * @param address dotted IPv4 address
 * @param message `sz` bytes
 * @return 0, or 1 on failure; a socket whose timeouts cannot be set is left open
 */
ORVAN_API int kb_socket_sender(const char* address, uint8_t* message, uint32_t sz);

#endif
