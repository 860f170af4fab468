/**
 * Access to private members of the third platform.
 */
#ifndef ORVAN_TESTS_KSR7000_DEVICE_PEER_H
#define ORVAN_TESTS_KSR7000_DEVICE_PEER_H

#include "orvan_sdk/ksr7000/OrvanKsr7000Device.h"

namespace HaldeElec::Orvan {

struct Ksr7000DeviceTestPeer {
    OrvanKsr7000Device& device;

    BITManager* bit_manager() const { return device.m_bitManager; }
    void set_bit_manager(BITManager* manager) { device.m_bitManager = manager; }
    void set_settings(CPersistentData* data) { device.pPersistentData = data; }
    bool battery_is_alive() const { return device.m_batteryIsAlive; }
    bool charge_monitor_runs() const { return device.m_runChargerThread; }
    bool fan_runs() const { return device.m_runFanThread; }
    void charge_cycle(int& retry) { device.charge_cycle(retry); }
};

} // namespace HaldeElec::Orvan

#endif
