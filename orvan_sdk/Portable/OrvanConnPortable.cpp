#include "orvan_sdk/Portable/OrvanConnPortable.h"

#include <wiringPi.h>

#include "orvan_sdk/OrvanDebug.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int kSelectHighPin = 11;
constexpr int kSpiEnablePin = 27;
constexpr int kSelectLowPin = 16;

} // namespace

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
    digitalWrite(kSelectHighPin, 1);
    digitalWrite(kSpiEnablePin, 1);
    digitalWrite(kSelectLowPin, 0);
}

void OrvanConnPortable::disableMUX()
{
    digitalWrite(kSelectHighPin, 1);
    digitalWrite(kSpiEnablePin, 1);
    digitalWrite(kSelectLowPin, 1);
}

} // namespace HaldeElec::Orvan
