/**
 * Values that may be written to an instrument. Each function returns an error message, or an empty text for a
 * valid value.
 *
 * The instrument checks none of them, and passes some to a shell.
 */
#ifndef ORVAN_MAINT_CHECKS_H
#define ORVAN_MAINT_CHECKS_H

#include <string>

namespace orvan_maint {

/** An IPv4 address of one host, outside the networks of the instrument's own modules. */
std::string check_host_address(const std::string& text);
/** An IPv4 network mask of 1 to 30 bits, "255.255.255.0". */
std::string check_mask(const std::string& text);
/** An IPv4 address of one host, or 0.0.0.0 for no gateway. */
std::string check_gateway(const std::string& text);
/** A hardware address of one host. */
std::string check_hardware_address(const std::string& text);
/** RFC 1123 2.1, one label, short enough for a row. */
std::string check_host_name(const std::string& text);
std::string check_on_off(const std::string& text);
/** 1 to 65535. */
std::string check_port(const std::string& text);
/** Printable ASCII, not blank and short enough for a row. */
std::string check_text(const std::string& text);

/** Whether the three, each valid by itself, are consistent; an empty one is ignored. */
std::string check_network(const std::string& address, const std::string& mask, const std::string& gateway);

} // namespace orvan_maint

#endif
