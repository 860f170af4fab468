#ifndef SCPI_SRC_STATUS_H
#define SCPI_SRC_STATUS_H

#include "scpi/types.h"

namespace scpi {

/** Brings the status byte in step with what it sums up; requests service when its summary rises. */
void update_status_byte(scpi_t* context);

} // namespace scpi

#endif
