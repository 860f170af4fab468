#ifndef ORVAN_SIM_BOARD_DESCRIPTOR_H
#define ORVAN_SIM_BOARD_DESCRIPTOR_H

#include <string>

namespace sim_board {

/**
 * A handle of a simulated bus is a real descriptor that carries its own name, because its user closes it with
 * close(2) and tests count open descriptors. No table of handles is needed.
 *
 * Opens one. `name` has up to 64 characters, such as "i2c 0x20". Returns -1 with errno set if no descriptor
 * is left.
 */
int open_descriptor(const std::string& name);

/** The name of a descriptor from open_descriptor; empty for any other or a closed one. */
std::string descriptor_name(int fd);

} // namespace sim_board

#endif
