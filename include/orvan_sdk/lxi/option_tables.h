/**
 * The options of an instrument: the 16-bit `options` word of the settings, bit by bit.
 */
#ifndef ORVAN_SDK_OPTION_TABLES_H
#define ORVAN_SDK_OPTION_TABLES_H

#include <cstdint>

#include "option_entry.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/**
 * One table per platform. Row 0 is the frequency code. They are modified at run time, without a lock;
 * `defaults` holds the factory values only until the first updateOptTable.
 */
ORVAN_API extern optEntry_t optPortable_Tbl[kOptionRows];
ORVAN_API extern optEntry_t optBenchtop_Tbl[kOptionRows];
ORVAN_API extern optEntry_t optKsr7000_Tbl[kOptionRows];

/** The word as the portable reads it, from the low bit up. */
union uOptions_portable_t {
    uint16_t all;
    __extension__ struct {
        uint16_t frequencyOption : 4;
        uint16_t modulationPackage : 1;
        uint16_t pulseGenerator : 1;
        uint16_t reserved : 1;
        uint16_t lowPower : 1;
        uint16_t emulatorPack : 1;
        uint16_t pattern : 1;
        uint16_t ultraSwitch : 1;
        uint16_t bat : 1;
        uint16_t reserved2 : 4;
    };
};
static_assert(sizeof(uOptions_portable_t) == 2);

/** The word as the third platform reads it, from the low bit up. */
union uOptions_ksr7000_t {
    uint16_t all;
    __extension__ struct {
        uint16_t frequencyOption : 4;
        uint16_t modulationPackage : 1;
        uint16_t pulseGenerator : 1;
        uint16_t fastSwitch : 1;
        uint16_t lowPower : 1;
        uint16_t bat : 1;
        uint16_t pattern : 1;
        uint16_t ultraSwitch : 1;
        uint16_t reserved : 4;
    };
};
static_assert(sizeof(uOptions_ksr7000_t) == 2);

} // namespace HaldeElec::Orvan

#endif
