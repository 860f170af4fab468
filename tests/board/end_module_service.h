/**
 * Destroys the process's module service.
 */
#ifndef ORVAN_TESTS_END_MODULE_SERVICE_H
#define ORVAN_TESTS_END_MODULE_SERVICE_H

#include "orvan_sdk/scpi-parser/scpi-def.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include <scpi/scpi.h>

namespace board_test {

/** Also ends the parser's context; the next getInstance() starts afresh. */
inline void end_module_service()
{
    delete Scpi_Orvanx::getInstance();
    SCPI_Deinit(&scpi_context);
}

} // namespace board_test

#endif
