/**
 * The power button behind a port expander and the keypad, as the benchtop and the third platform have them.
 */
#ifndef ORVAN_SDK_FRONT_PANEL_H
#define ORVAN_SDK_FRONT_PANEL_H

namespace HaldeElec::Orvan {

/** Calls `handler` on a thread of wiringPi's at each press. @return false, and logged, when that fails */
bool set_up_power_button(void (*handler)());

/** Ends the expander's interrupt, then waits until the button is let go. A failure is logged and ends it. */
void await_power_button_release();

/** Starts the keyboard bridge and takes an event that may have come before. A failure is logged. */
void start_keyboard();

} // namespace HaldeElec::Orvan

#endif
