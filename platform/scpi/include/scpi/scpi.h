/**
 * SCPI parser library: IEEE 488.2 program messages, SCPI-99 command trees, errors and status.
 */
#ifndef SCPI_SCPI_H
#define SCPI_SCPI_H

#include "error.h"
#include "extensions.h"
#include "ieee488.h"
#include "minimal.h"
#include "parameter.h"
#include "parser.h"
#include "result.h"
#include "types.h"
#include "units.h"

#endif
