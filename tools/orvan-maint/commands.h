/**
 * The commands, one file each. All throw Failure.
 */
#ifndef ORVAN_MAINT_COMMANDS_H
#define ORVAN_MAINT_COMMANDS_H

#include "options.h"

namespace orvan_maint {

/** @param stop a descriptor that becomes readable when the user interrupts; negative for none */
using Command = void (*)(const Options& options, int stop);

void discover_instruments(const Options& options, int stop);
void show_instrument(const Options& options, int stop);
void set_network(const Options& options, int stop);
void set_factory(const Options& options, int stop);
void show_or_change_options(const Options& options, int stop);
void update_software(const Options& options, int stop);
void program_modules(const Options& options, int stop);
void pack_software(const Options& options, int stop);

} // namespace orvan_maint

#endif
