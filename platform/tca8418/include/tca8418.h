#ifndef ORVAN_TCA8418_H
#define ORVAN_TCA8418_H

// Driver of the keypad controller TCA8418: key events of a matrix of up to 8 rows and 10 columns.
//
// A descriptor is one of wiringPiI2CSetup(0x34). Nothing is kept between calls and nothing is locked: one
// caller at a time on a controller.

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sets the controller up for a matrix on ROW0.. and COL0.. and enables its key event interrupt. Events that
 * it holds already stay and can be taken. The interrupt output falls once for each event that waits: when
 * one is taken and others are left, it rises and falls again.
 *
 * rows: 1 to 8, cols: 1 to 10. Result: 0; negative when a number is out of range, before any access, or when
 * an access fails.
 */
int tca8418_configure(int fd, unsigned rows, unsigned cols);

/**
 * Takes the oldest key event and clears the interrupt. A failed access is tried again, for 45 ms. When the
 * event can't be read even so, the interrupt is cleared all the same, so that the controller raises it anew
 * for what is left.
 *
 * arg: not used. row, col: from 0. state: 0x80 for a press, 0 for a release. They are written with a result
 * of 0 only. Result: 0; negative when there is no event, or when an access fails to the end; an event whose
 * interrupt can't be cleared is lost, and the interrupt output stays low. A negative descriptor fails at
 * once.
 */
int tca8418_irq_handler(int fd, int arg, int* row, int* col, int* state);

#ifdef __cplusplus
}
#endif

#endif
