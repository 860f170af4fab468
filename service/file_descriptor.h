#ifndef ORVAN_SERVICE_FILE_DESCRIPTOR_H
#define ORVAN_SERVICE_FILE_DESCRIPTOR_H

#include <unique_fd.h>

namespace orvan_service {

using FileDescriptor = UniqueFd;

} // namespace orvan_service

#endif
