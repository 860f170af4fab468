#include "orvan_sdk/IOrvanDeviceManager.h"

namespace HaldeElec::Orvan {
namespace {

constexpr uint64_t kGigahertz = 1'000'000'000;
constexpr uint8_t kProtocol = 1;
constexpr uint32_t kHaldeVendor = 0x168c;
constexpr uint32_t kMarrickVendor = 0xb001;

constexpr sDevArch_t kEnd{};

} // namespace

constinit const sDevArch_t g_portableModelsTable[] = {
#define ORVAN_PORTABLE(name, gigahertz, channels, product)                                                   \
    {name, (gigahertz)*kGigahertz, channels, kProtocol, product, kHaldeVendor, PortableDevice},
#include "models.def"
    kEnd,
};

constinit const sDevArch_t g_benchtopModelsTable[] = {
#define ORVAN_BENCHTOP(name, gigahertz, channels, product)                                                   \
    {name, (gigahertz)*kGigahertz, channels, kProtocol, product, kHaldeVendor, BenchtopDevice},
#include "models.def"
    kEnd,
};

constinit const sDevArch_t g_ksr7000ModelsTable[] = {
#define ORVAN_KSR7000(name, gigahertz, channels, product)                                                    \
    {name, (gigahertz)*kGigahertz, channels, kProtocol, product, kMarrickVendor, Ksr7000Device},
#include "models.def"
    kEnd,
};

} // namespace HaldeElec::Orvan
