/**
 * Device data that exists before the device: the row of its model and its initial settings.
 */
#ifndef ORVAN_SDK_DEVICE_RECORDS_H
#define ORVAN_SDK_DEVICE_RECORDS_H

#include <cstdint>

namespace HaldeElec::Orvan {

enum DeviceProductType {
    PortableDevice = 0,
    BenchtopDevice = 1,
    Ksr7000Device = 2,
    InvalidDevice = 3,
};

/** One row of a model table; a row with a null `model` ends the table. */
struct sDevArch_t {
    const char* model;     /**< key of the look-up */
    uint64_t maxFrequency; /**< highest CW frequency in Hz */
    uint8_t channelsNo;    /**< channel modules: 1, 2 or 4 */
    uint8_t protocol;      /**< becomes `device_type` of the settings */
    uint32_t product;
    uint32_t vendor;
    int devProdType; /**< a DeviceProductType */
};

/** A platform's initial settings, used when neither store holds any. */
struct sDevDefaults_t {
    const char* model;
    const char* company;
    const char* serial;
    const char* hw_ver; /**< its first character counts */
};

} // namespace HaldeElec::Orvan

#endif
