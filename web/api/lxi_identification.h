#ifndef ORVAN_WEB_LXI_IDENTIFICATION_H
#define ORVAN_WEB_LXI_IDENTIFICATION_H

#include <string>
#include <string_view>

#include "instrument/instrument.h"

namespace orvan_web {

/**
 * The LXI identification document (LXI 1.5, 10.2; XML schema InstrumentIdentification 1.0).
 *
 * @param host as the client has called the instrument, for the document's own address; may be empty
 */
std::string lxi_identification(const Instrument& instrument, std::string_view host);

} // namespace orvan_web

#endif
