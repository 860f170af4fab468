#include "orvan_sdk/board/OrvanConnMultiplexed.h"

#include "board/spi_multiplexer.h"

namespace HaldeElec::Orvan {

OrvanConnMultiplexed::~OrvanConnMultiplexed()
{
    SpiClosePort();
}

void OrvanConnMultiplexed::configureMuxPins()
{
    configure_multiplexer();
}

void OrvanConnMultiplexed::enableMUX()
{
    select_through_multiplexer(channelNo);
}

void OrvanConnMultiplexed::disableMUX()
{
    release_multiplexer();
}

std::string OrvanConnMultiplexed::converter(int* characters)
{
    return reinterpret_cast<const char*>(characters);
}

} // namespace HaldeElec::Orvan
