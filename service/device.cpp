#include <syslog.h>

#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/Portable/OrvanPortableDevice.h"
#include "orvan_sdk/ksr7000/OrvanKsr7000Device.h"
#include "orvan_sdk/orvan_sdk.h"
#include "platform.h"

using namespace HaldeElec::Orvan;
using HaldeElec::OrvanDebug;

namespace orvan_service {
namespace {

constexpr int kToCallback = 2;
// The device truncates its log file even if nothing is logged to it.
constexpr const char* kNoFile = "/dev/null";

void log_debug_line(const char* line)
{
    ::syslog(LOG_INFO, "%s", line);
}

} // namespace

IOrvanDeviceManager* start_device(Platform platform)
{
    OrvanDebug::RegisterCallback(log_debug_line);
    switch (platform) {
    case Platform::kPortable:
        return new OrvanPortableDevice(kNoFile, kToCallback);
    case Platform::kBenchtop:
        return new OrvanBenchtopDevice(kNoFile, kToCallback);
    case Platform::kKsr7000:
        return new OrvanKsr7000Device(kNoFile, kToCallback);
    case Platform::kFactory:
        break;
    }
    return CreateDevice(kNoFile, kToCallback);
}

} // namespace orvan_service
