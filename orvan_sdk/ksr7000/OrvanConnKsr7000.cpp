#include "orvan_sdk/ksr7000/OrvanConnKsr7000.h"

#include "orvan_sdk/OrvanDebug.h"

namespace HaldeElec::Orvan {

OrvanConnKsr7000::OrvanConnKsr7000()
{
    OrvanDebug::Log("OrvanConnKsr7000::OrvanConnKsr7000 constructor is start @@", true);
}

} // namespace HaldeElec::Orvan
