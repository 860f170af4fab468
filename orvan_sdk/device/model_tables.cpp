#include "orvan_sdk/IOrvanDeviceManager.h"

namespace HaldeElec::Orvan {
namespace {

constexpr uint64_t operator""_GHz(unsigned long long value)
{
    return value * 1'000'000'000;
}

constexpr uint8_t kProtocol = 1;
constexpr uint32_t kHaldeVendor = 0x168c;
constexpr uint32_t kMarrickVendor = 0xb001;

constexpr sDevArch_t portable(const char* model, uint64_t max_frequency, uint32_t product)
{
    return {model, max_frequency, 1, kProtocol, product, kHaldeVendor, PortableDevice};
}

constexpr sDevArch_t benchtop(const char* model, uint64_t max_frequency, uint8_t channels, uint32_t product)
{
    return {model, max_frequency, channels, kProtocol, product, kHaldeVendor, BenchtopDevice};
}

constexpr sDevArch_t ksr7000(const char* model, uint64_t max_frequency, uint32_t product)
{
    return {model, max_frequency, 1, kProtocol, product, kMarrickVendor, Ksr7000Device};
}

constexpr sDevArch_t kEnd{};

} // namespace

// clang-format off
constinit const sDevArch_t g_portableModelsTable[] = {
    portable("OVX2751P", 14_GHz, 0x2751),
    portable("OVX3651P", 20_GHz, 0x3651),
    portable("OVX5351P", 40_GHz, 0x5351),
    portable("OVX6131P",  8_GHz, 0x6131),
    kEnd,
};

constinit const sDevArch_t g_benchtopModelsTable[] = {
    benchtop("OVX2751B", 14_GHz, 1, 0x2701),
    benchtop("OVX2752B", 14_GHz, 2, 0x2702),
    benchtop("OVX2754B", 14_GHz, 4, 0x2704),
    benchtop("OVX3651B", 20_GHz, 1, 0x3601),
    benchtop("OVX3652B", 20_GHz, 2, 0x3602),
    benchtop("OVX3654B", 20_GHz, 4, 0x3604),
    benchtop("OVX5351B", 40_GHz, 1, 0x5301),
    benchtop("OVX5352B", 40_GHz, 2, 0x5302),
    benchtop("OVX5354B", 40_GHz, 4, 0x5304),
    benchtop("OVX6131B",  8_GHz, 1, 0x6101),
    benchtop("OVX6132B",  8_GHz, 2, 0x6102),
    benchtop("OVX6134B",  8_GHz, 4, 0x6104),
    benchtop("OVX2751R", 14_GHz, 1, 0x27a1),
    benchtop("OVX2752R", 14_GHz, 2, 0x27a2),
    benchtop("OVX2754R", 14_GHz, 4, 0x27a4),
    benchtop("OVX3651R", 20_GHz, 1, 0x36a1),
    benchtop("OVX3652R", 20_GHz, 2, 0x36a2),
    benchtop("OVX3654R", 20_GHz, 4, 0x36a4),
    benchtop("OVX5351R", 40_GHz, 1, 0x53a1),
    benchtop("OVX5352R", 40_GHz, 2, 0x53a2),
    benchtop("OVX5354R", 40_GHz, 4, 0x53a4),
    benchtop("OVX6131R",  8_GHz, 1, 0x61a1),
    benchtop("OVX6132R",  8_GHz, 2, 0x61a2),
    benchtop("OVX6134R",  8_GHz, 4, 0x61a4),
    kEnd,
};

constinit const sDevArch_t g_ksr7000ModelsTable[] = {
    ksr7000("KSR-7061",  8_GHz, 0x7061),
    ksr7000("KSR-7036", 20_GHz, 0x7036),
    ksr7000("KSR-7053", 40_GHz, 0x7053),
    ksr7000("KSR-8036", 20_GHz, 0x8036),
    ksr7000("KSR-8053", 40_GHz, 0x8053),
    kEnd,
};
// clang-format on

} // namespace HaldeElec::Orvan
