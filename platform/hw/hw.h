#ifndef ORVAN_HW_H
#define ORVAN_HW_H

// The complete hardware interface, together with wiringPi's own functions (<wiringPi.h>, <wiringPiI2C.h>).
// On the instrument it is implemented by pi/hw_pi.cpp, elsewhere by the simulated board. File system
// paths, network interfaces and commands are not part of it: they are used directly.
//
// Every function may be called from any thread.

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Opens a spidev node, such as "/dev/spidev0.1".
 * flags: as open(2) takes them, O_RDWR. Result: a descriptor, or -1 with errno set.
 */
int hw_spi_open(const char* path, int flags);

/**
 * One request of <linux/spi/spidev.h> on a descriptor from hw_spi_open.
 * request: SPI_IOC_RD/WR_MODE, _BITS_PER_WORD (arg: uint8_t*), SPI_IOC_RD/WR_MAX_SPEED_HZ (arg: uint32_t*,
 * Hz) or SPI_IOC_MESSAGE(n) (arg: n spi_ioc_transfer). Mode, word size and clock belong to the node and
 * stay. Result: 0, for a message the number of bytes clocked, or -1 with errno set.
 */
int hw_spi_ioctl(int fd, unsigned long request, void* arg);

/** Closes a descriptor from hw_spi_open. Result: 0, or -1 with errno set. */
int hw_spi_close(int fd);

/**
 * Waits at least `us` microseconds. Every hardware delay (relay and multiplexer settling, reset pulses,
 * polls of a busy chip) and every pause of a background thread uses it, even for seconds. Signals do not
 * cut it short.
 */
void hw_delay_us(uint64_t us);

/**
 * Whether module addresses (192.168.7.1 and up) lead to this process's own modules: true on the
 * instrument, elsewhere only in a sandbox. Must not run concurrently with setenv.
 */
bool hw_may_reach_modules(void);

/**
 * Opens the control socket of the board, if it has one and the environment names a path for it; a path
 * that cannot be used is reported on standard error. Call it once per process.
 */
void hw_control_open(void);

/** Closes the socket and removes its path. Does nothing if none is open. */
void hw_control_close(void);

#ifdef __cplusplus
}
#endif

#endif
