/**
 * The instrument's built-in tests, and detection of the USB network links of its modules.
 */
#ifndef ORVAN_SDK_BIT_TESTS_H
#define ORVAN_SDK_BIT_TESTS_H

#include <cstddef>
#include <cstdint>

#include "orvan_sdk/orvan_api.h"

class BITManager;

/** Names of the tests: the keys for BITManager::setTestResult. */
inline constexpr char kEepromTest[] = "EEPROM test";   /**< PBIT: the settings were read from the EEPROM */
inline constexpr char kModulesTest[] = "MODULES test"; /**< PBIT and CBIT: modules_bit */
inline constexpr char kFanTest[] = "FAN test";         /**< CBIT: the fan thread */
inline constexpr char kTempTest[] = "TEMP test";       /**< CBIT: error bit n - 1 for channel n too hot */

/** Error word of the "MODULES test" for a module that does not answer: four bits per module, module 1 in the
 *  lowest. A module that answers has 0. */
enum eModuleFailure : int {
    kModuleOffSubnet = 10,   /**< as many links as modules, but none on its subnet */
    kModuleSilent = 12,      /**< there is a link on its subnet */
    kModuleLinkMissing = 13, /**< no link on its subnet, and the number of links is wrong */
};

inline constexpr char SYS_CLASS_NET[] = "/sys/class/net";
inline constexpr char DRIVER_NAME[] = "rndis_host"; /**< of a USB network link */
inline constexpr uint32_t RNDIS_SUBNET_MASK = 0xFFFFFF00;

/** One USB network link. */
struct rndis_device_t {
    char ifname[16]; /**< interface; cut at 15 characters, as the kernel's own names are */
    char usb_id[64]; /**< last path component of its device, cut at 63; empty when unknown */
    char ipv4[16];   /**< dotted; empty when there is no address */
};

/**
 * Registers the tests of a device: two at power-up, three continuous, none with a function.
 *
 * @param manager the device's manager; when null nothing is registered, and that is logged
 * @param device  becomes the `object` of every row
 * @return 0; -1 without a manager
 */
ORVAN_API int register_bit_tests(BITManager* manager, void* device);

/**
 * Lists the USB network links in directory order. A link counts if its driver is DRIVER_NAME, even without an
 * address.
 *
 * @param out    receives the links found; the remaining rows are left unchanged
 * @param devsNo room in `out`; the search ends when it is full
 * @return links found; -1, and reported on standard error, when SYS_CLASS_NET cannot be opened
 */
ORVAN_API int scan_rndis_devices(rndis_device_t* out, int devsNo);

/**
 * Finds the link whose subnet contains an address.
 *
 * @param ip dotted IPv4 address
 * @return index of the first such link; -1 when there is none, for a null pointer, no devices or no address
 */
ORVAN_API int find_device_subnet(const rndis_device_t* devices, int count, const char* ip);

/**
 * Gets the IPv4 address of an interface.
 *
 * @param ifname its first 15 characters count
 * @param ip_out receives the dotted text; unchanged on failure
 * @param ip_len bytes of `ip_out`; 16 suffice for every address
 * @return 0; -1 without such an interface or address, or when the text does not fit
 */
ORVAN_API int get_ipv4(const char* ifname, char* ip_out, size_t ip_len);

#endif
