/**
 * What may be written into an instrument. Each gives the complaint, or an empty text for a value that will
 * do.
 *
 * The instrument looks at none of it, and hands some of it to a shell.
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
/** Printable ASCII that says something and is short enough for a row. */
std::string check_text(const std::string& text);

/** Whether the three go together; an empty one is not looked at. Each by itself will do. */
std::string check_network(const std::string& address, const std::string& mask, const std::string& gateway);

} // namespace orvan_maint

#endif
