#include "orvan_sdk/ksr7000/OrvanConnKsr7000.h"

#include "board/spi_multiplexer.h"
#include "orvan_sdk/OrvanDebug.h"

namespace HaldeElec::Orvan {

OrvanConnKsr7000::OrvanConnKsr7000()
{
    OrvanDebug::Log("OrvanConnKsr7000::OrvanConnKsr7000 constructor is start @@", true);
}

OrvanConnKsr7000::~OrvanConnKsr7000()
{
    SpiClosePort();
}

void OrvanConnKsr7000::configureMuxPins()
{
    configure_multiplexer();
}

void OrvanConnKsr7000::enableMUX()
{
    select_through_multiplexer(channelNo);
}

void OrvanConnKsr7000::disableMUX()
{
    release_multiplexer();
}

std::string OrvanConnKsr7000::converter(int* characters)
{
    return reinterpret_cast<const char*>(characters);
}

} // namespace HaldeElec::Orvan
