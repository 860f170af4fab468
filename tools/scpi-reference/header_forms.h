/**
 * The headers that match a pattern of the command table (SCPI-99 6.2.1).
 */
#ifndef SCPI_REFERENCE_HEADER_FORMS_H
#define SCPI_REFERENCE_HEADER_FORMS_H

#include <string>
#include <string_view>

namespace scpi_reference {

/** Short forms, without the optional nodes: ":FREQ" of "[:SOURce]:FREQuency". */
std::string shortest_form(std::string_view pattern);

/** Long forms with every optional node: ":SOURCE:FREQUENCY" of "[:SOURce]:FREQuency". */
std::string longest_form(std::string_view pattern);

} // namespace scpi_reference

#endif
