#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

void Scpi_Orvanx::modules_bit(int devNo, int bitType)
{
    constexpr int kBitsOfModule = 4;
    rndis_device_t devices[kMaxChannels] = {};
    const int detectNo = scan_rndis_devices(devices, kMaxChannels);
    const bool allDetected = detectNo == devNo;

    int errorCode = 0;
    for (int index = 0; index < kMaxChannels && index < devNo; ++index) {
        if (m_isLive[index]) {
            continue;
        }
        int failure = kModuleSilent;
        if (find_device_subnet(devices, detectNo, m_orvanXIp[index].c_str()) < 0) {
            failure = allDetected ? kModuleOffSubnet : kModuleLinkMissing;
        }
        errorCode |= failure << (kBitsOfModule * index);
    }

    BITManager* const manager = BITManager::getInstance(kCbitPeriod);
    if (manager == nullptr || bitType >= BIT_TYPE_COUNT) {
        return;
    }
    const int result = allDetected && errorCode == 0 ? BIT_PASS : BIT_FAIL;
    manager->setTestResult(static_cast<eBitType>(bitType), kModulesTest, result, errorCode);
}
