#pragma once

#include <unique_fd.h>

namespace orvan_sandbox {

using ::UniqueFd;

} // namespace orvan_sandbox
