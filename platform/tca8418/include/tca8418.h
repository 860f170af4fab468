#ifndef ORVAN_TCA8418_H
#define ORVAN_TCA8418_H

// Driver of the keypad controller TCA8418: key events of a matrix of up to 8 rows and 10 columns.
//
// A descriptor is one of wiringPiI2CSetup(0x34). There is no state between calls and no lock: only one
// caller at a time per controller.

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets the controller up for a matrix on ROW0.. and COL0.. and enables its key event interrupt. Events
 * already in its FIFO remain. The interrupt output falls once for each pending event: when one is read and
 * others remain, it rises and falls again.
 *
 * rows: 1 to 8, cols: 1 to 10. Result: 0; negative when a number is out of range, before any access, or when
 * an access fails.
 */
int tca8418_configure(int fd, unsigned rows, unsigned cols);

/**
 * Takes the oldest key event and clears the interrupt. A failed access is retried for 45 ms. If the event
 * still can't be read, the interrupt is cleared nevertheless, so that the controller raises it again for what
 * is left.
 *
 * arg: not used. row, col: from 0. state: 0x80 for a press, 0 for a release. They are written only
 * with a result of 0. Result: 0; negative when there is no event, or when an access keeps failing; an event
 * whose interrupt can't be cleared is lost, and the interrupt output stays low. A negative descriptor fails
 * immediately.
 */
int tca8418_irq_handler(int fd, int arg, int* row, int* col, int* state);

#ifdef __cplusplus
}
#endif

#endif
