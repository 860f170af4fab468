/**
 * What the instrument tests of itself, and the look at the USB network links of its modules.
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

/** What a module that does not answer puts into the error word of the "MODULES test": four bits a module,
 *  module 1 in the lowest. A module that answers has 0. */
enum eModuleFailure : int {
    kModuleOffSubnet = 10,   /**< as many links as modules, but none on its subnet */
    kModuleSilent = 12,      /**< its link is up */
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
 * Registers the tests of a device: two at power-up, three continuous, none with a function of its own.
 *
 * @param manager the device's manager; when null nothing is registered, and that is logged
 * @param device  becomes the `object` of every row
 * @return 0; -1 without a manager
 */
ORVAN_API int register_bit_tests(BITManager* manager, void* device);

/**
 * Lists the USB network links in the order of the directory. A link counts as soon as it is driven by
 * DRIVER_NAME, also without an address.
 *
 * @param out    gets the links found; the rows behind them stay as they are
 * @param devsNo room in `out`; the search ends when it is full
 * @return links found; -1, and told on standard error, when SYS_CLASS_NET cannot be opened
 */
ORVAN_API int scan_rndis_devices(rndis_device_t* out, int devsNo);

/**
 * Finds the link on whose subnet an address lies.
 *
 * @param ip dotted IPv4 address
 * @return index of the first such link; -1 when there is none, for a null pointer, no devices or no address
 */
ORVAN_API int find_device_subnet(const rndis_device_t* devices, int count, const char* ip);

/**
 * Asks for the IPv4 address of an interface.
 *
 * @param ifname its first 15 characters count
 * @param ip_out gets the dotted text; stays as it was on failure
 * @param ip_len bytes of `ip_out`; 16 suffice for every address
 * @return 0; -1 without such an interface or address, or when the text does not fit
 */
ORVAN_API int get_ipv4(const char* ifname, char* ip_out, size_t ip_len);

#endif
