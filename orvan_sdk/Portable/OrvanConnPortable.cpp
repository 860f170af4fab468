#include "orvan_sdk/Portable/OrvanConnPortable.h"

#include <wiringPi.h>

#include "orvan_sdk/OrvanDebug.h"
#include "portable_board.h"

namespace HaldeElec::Orvan {
OrvanConnPortable::OrvanConnPortable()
{
    OrvanDebug::Log("OrvanConnPortable::OrvanConnPortable constructor is start @@", true);
}

OrvanConnPortable::~OrvanConnPortable()
{
    SpiClosePort();
}

void OrvanConnPortable::enableMUX()
{
    digitalWrite(SPI_CS, 1);
    digitalWrite(SPIEN_PIN, 1);
    digitalWrite(EEPROM_CS, 0);
}

void OrvanConnPortable::disableMUX()
{
    digitalWrite(SPI_CS, 1);
    digitalWrite(SPIEN_PIN, 1);
    digitalWrite(EEPROM_CS, 1);
}

} // namespace HaldeElec::Orvan
