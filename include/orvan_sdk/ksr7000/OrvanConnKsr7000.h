/**
 * Bus layer of the third platform: the SPI multiplexer, as the benchtop has it, and no routing.
 */
#ifndef ORVAN_SDK_KSR7000_ORVANCONNKSR7000_H
#define ORVAN_SDK_KSR7000_ORVANCONNKSR7000_H

#include "orvan_sdk/board/OrvanConnMultiplexed.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

class ORVAN_API OrvanConnKsr7000 : public OrvanConnMultiplexed {
public:
    OrvanConnKsr7000();
};

} // namespace HaldeElec::Orvan

#endif
