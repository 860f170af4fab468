/**
 * Access to private members of the benchtop.
 */
#ifndef ORVAN_TESTS_BENCHTOP_DEVICE_PEER_H
#define ORVAN_TESTS_BENCHTOP_DEVICE_PEER_H

#include "orvan_sdk/Benchtop/OrvanBenchtopDevice.h"

namespace HaldeElec::Orvan {

struct BenchtopDeviceTestPeer {
    OrvanBenchtopDevice& device;

    BITManager* bit_manager() const { return device.m_bitManager; }
    void set_bit_manager(BITManager* manager) { device.m_bitManager = manager; }
    bool fan_runs() const { return device.m_runFanThread; }
    void set_settings(CPersistentData* data) { device.pPersistentData = data; }
};

} // namespace HaldeElec::Orvan

#endif
