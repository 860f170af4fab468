#ifndef ORVAN_HW_H
#define ORVAN_HW_H

// The whole seam to the machine, beside wiringPi's own functions (<wiringPi.h>, <wiringPiI2C.h>).
// On the instrument pi/hw_pi.cpp stands behind it, elsewhere the simulated board. File system paths,
// network interfaces and commands are no part of it: they are used as they are.
//
// Every function may be called from any thread.

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Opens a spidev node, "/dev/spidev0.1" and the like.
 * flags: as open(2) takes them, O_RDWR. Result: a descriptor, or -1 with errno set.
 */
int hw_spi_open(const char* path, int flags);

/**
 * One request of <linux/spi/spidev.h> on a descriptor of hw_spi_open.
 * request: SPI_IOC_RD/WR_MODE, _BITS_PER_WORD (arg: uint8_t*), SPI_IOC_RD/WR_MAX_SPEED_HZ (arg: uint32_t*,
 * Hz) or SPI_IOC_MESSAGE(n) (arg: n spi_ioc_transfer). Mode, word size and clock belong to the node and
 * stay. Result: 0, for a message the number of bytes clocked, or -1 with errno set.
 */
int hw_spi_ioctl(int fd, unsigned long request, void* arg);

/** Closes a descriptor of hw_spi_open. Result: 0, or -1 with errno set. */
int hw_spi_close(int fd);

/**
 * Waits at least `us` microseconds. Every wait that shapes hardware (relay and multiplexer settling, reset
 * pulses, polls of a busy chip) or paces a background thread goes through here, also one of seconds. A
 * signal does not cut it short.
 */
void hw_delay_us(uint64_t us);

/**
 * Whether module addresses (192.168.7.1 and up) lead to modules of this process's own: true on the
 * instrument, elsewhere only in a sandbox. Not beside a setenv of another thread.
 */
bool hw_may_reach_modules(void);

/**
 * Opens the control socket of the board, where the board has one and the environment names a path for it; a
 * path that cannot be used is reported on standard error. Once in a process.
 */
void hw_control_open(void);

/** Closes the socket and removes its path. Does nothing where none is open. */
void hw_control_close(void);

#ifdef __cplusplus
}
#endif

#endif
