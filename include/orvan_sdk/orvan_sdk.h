/**
 * What a service process includes: the module service with its one object, and the parser behind it.
 *
 * The process ignores SIGPIPE: replies and module requests are sent without MSG_NOSIGNAL.
 */
#ifndef ORVAN_SDK_H
#define ORVAN_SDK_H

#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"

#endif
