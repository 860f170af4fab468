/**
 * The power button on a port expander and the keypad, on the benchtop and the third platform.
 */
#ifndef ORVAN_SDK_FRONT_PANEL_H
#define ORVAN_SDK_FRONT_PANEL_H

namespace HaldeElec::Orvan {

/** Calls `handler` on a wiringPi thread at each press. @return false, and logged, if set-up fails */
bool set_up_power_button(void (*handler)());

/** Clears the expander's interrupt, then waits until the button is released. Ends on failure, which is
 * logged. */
void await_power_button_release();

/** Starts the keyboard bridge and handles an event that may already be pending. A failure is logged. */
void start_keyboard();

} // namespace HaldeElec::Orvan

#endif
