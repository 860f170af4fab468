/**
 * What the platforms differ in as they start.
 */
#ifndef ORVAN_SDK_DEVICE_PLATFORM_H
#define ORVAN_SDK_DEVICE_PLATFORM_H

namespace HaldeElec::Orvan {

struct optEntry_t;
struct sDevArch_t;
struct sDevDefaults_t;

struct DevicePlatform {
    const char* class_name; /**< as messages tell it */
    const sDevArch_t* models;
    const sDevDefaults_t& defaults;
    optEntry_t* options; /**< kOptionRows rows */
    const char* sw_version;
};

} // namespace HaldeElec::Orvan

#endif
