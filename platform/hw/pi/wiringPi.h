#ifndef ORVAN_HW_WIRINGPI_H
#define ORVAN_HW_WIRINGPI_H

// The part of wiringPi that the library calls, declared here so that it compiles where the package is not
// installed. Pins use wiringPi's numbering.

#ifdef __cplusplus
extern "C" {
#endif

#define INPUT 0
#define OUTPUT 1

#define LOW 0
#define HIGH 1

#define INT_EDGE_FALLING 1
#define INT_EDGE_RISING 2

/** Initialises GPIO access. Must precede every other pin function; may be called again. Result: 0. */
int wiringPiSetup(void);

/** mode: INPUT or OUTPUT. A pin that becomes an output drives the level last written to it. */
void pinMode(int pin, int mode);

/** value: LOW or HIGH. */
void digitalWrite(int pin, int value);

/** Result: LOW or HIGH. */
int digitalRead(int pin);

/**
 * Calls `function` on a separate thread at each edge, INT_EDGE_FALLING or INT_EDGE_RISING. A second call
 * for the same pin replaces the first. Result: negative on failure.
 */
int wiringPiISR(int pin, int mode, void (*function)(void));

/** Four process-wide mutexes, key 0 to 3; not recursive. Unlocked only by the thread that locked them. */
void piLock(int key);
void piUnlock(int key);

#ifdef __cplusplus
}
#endif

#endif
