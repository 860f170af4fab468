#ifndef SCPI_SRC_STATUS_H
#define SCPI_SRC_STATUS_H

#include "scpi/types.h"

namespace scpi {

/** Updates the summary bits of the status byte; requests service on a rising master summary. */
void update_status_byte(scpi_t* context);

} // namespace scpi

#endif
