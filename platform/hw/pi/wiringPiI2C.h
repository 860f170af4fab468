#ifndef ORVAN_HW_WIRINGPI_I2C_H
#define ORVAN_HW_WIRINGPI_I2C_H

// The I2C part of wiringPi that the library calls; see wiringPi.h. Any thread.

#ifdef __cplusplus
extern "C" {
#endif

/** Opens the bus for one 7-bit device address. Result: a descriptor, closed with close(2), or negative. */
int wiringPiI2CSetup(int devId);

/** SMBus receive byte and send byte. Result: the byte or 0; negative on failure. */
int wiringPiI2CRead(int fd);
int wiringPiI2CWrite(int fd, int data);

/** SMBus read byte and read word; the word's low byte comes first. Result: the value, or negative on failure.
 */
int wiringPiI2CReadReg8(int fd, int reg);
int wiringPiI2CReadReg16(int fd, int reg);

/** SMBus write byte and write word; the word's low byte is sent first. Result: 0, or negative on failure. */
int wiringPiI2CWriteReg8(int fd, int reg, int data);
int wiringPiI2CWriteReg16(int fd, int reg, int data);

#ifdef __cplusplus
}
#endif

#endif
