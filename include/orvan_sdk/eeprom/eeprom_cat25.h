/**
 * Driver of the CAT25 family of SPI EEPROMs.
 */
#ifndef ORVAN_SDK_EEPROM_CAT25_H
#define ORVAN_SDK_EEPROM_CAT25_H

#include <cstddef>
#include <cstdint>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

class IDeviceConnectionHandler;

enum EEPROM_CAT25_Device {
    CAT25M01 = 0,
    CAT25512 = 1,
    CAT25256 = 2,
    CAT25128 = 3,
    CAT25640 = 4,
    CAT25320 = 5,
    CAT25160 = 6,
    CAV25160 = 7,
    CAT25080 = 8,
    CAV25080 = 9,
    CAT25040 = 10,
    CAT25020 = 11,
    CAT25010 = 12,
};

/** Bytes in the chip. */
inline constexpr size_t EEPROM_CAPACITY_CAT25M01 = 0x20000;
inline constexpr size_t EEPROM_CAPACITY_CAT25512 = 0x10000;
inline constexpr size_t EEPROM_CAPACITY_CAT25256 = 0x08000;
inline constexpr size_t EEPROM_CAPACITY_CAT25128 = 0x04000;
inline constexpr size_t EEPROM_CAPACITY_CAT25640 = 0x02000;
inline constexpr size_t EEPROM_CAPACITY_CAT25320 = 0x01000;
inline constexpr size_t EEPROM_CAPACITY_CAT25160 = 0x00800;
inline constexpr size_t EEPROM_CAPACITY_CAV25160 = 0x00800;
inline constexpr size_t EEPROM_CAPACITY_CAT25080 = 0x00400;
inline constexpr size_t EEPROM_CAPACITY_CAV25080 = 0x00400;
inline constexpr size_t EEPROM_CAPACITY_CAT25040 = 0x00200;
inline constexpr size_t EEPROM_CAPACITY_CAT25020 = 0x00100;
inline constexpr size_t EEPROM_CAPACITY_CAT25010 = 0x00080;

/** Bytes in a write page. */
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25M01 = 256;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25512 = 128;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25256 = 64;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25128 = 64;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25640 = 64;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25320 = 32;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25160 = 32;
inline constexpr size_t EEPROM_PAGE_SIZE_CAV25160 = 32;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25080 = 32;
inline constexpr size_t EEPROM_PAGE_SIZE_CAV25080 = 32;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25040 = 16;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25020 = 16;
inline constexpr size_t EEPROM_PAGE_SIZE_CAT25010 = 16;

/** Longest write cycle. */
inline constexpr unsigned EEPROM_CAT25_MAX_WRITE_TIME_MS = 5;

/** Opcodes. The A8 forms reach the upper half of a CAT25040; the driver does not issue them. */
inline constexpr uint8_t EEPROM_CAT25_COMMAND_WRSR = 0x01;
inline constexpr uint8_t EEPROM_CAT25_COMMAND_WRITE = 0x02;
inline constexpr uint8_t EEPROM_CAT25_COMMAND_READ = 0x03;
inline constexpr uint8_t EEPROM_CAT25_COMMAND_WRDI = 0x04;
inline constexpr uint8_t EEPROM_CAT25_COMMAND_RDSR = 0x05;
inline constexpr uint8_t EEPROM_CAT25_COMMAND_WREN = 0x06;
inline constexpr uint8_t EEPROM_CAT25_COMMAND_WRITE_A8_HIGH = 0x0A;
inline constexpr uint8_t EEPROM_CAT25_COMMAND_READ_A8_HIGH = 0x0B;

inline constexpr uint8_t EEPROM_CAT25_DUMMY_BYTE = 0x00;

/** Status register: bit 7 WPEN, 6 IPL, 4 LIP, 3 and 2 BP, 1 WEL, 0 busy. */
inline constexpr uint8_t EEPROM_CAT25_STATUS_WPEN = 0x80;
inline constexpr uint8_t EEPROM_CAT25_STATUS_IPL = 0x40;
inline constexpr uint8_t EEPROM_CAT25_STATUS_LIP = 0x10;
inline constexpr uint8_t EEPROM_CAT25_STATUS_BP = 0x0C;
inline constexpr uint8_t EEPROM_CAT25_STATUS_WEL = 0x02;
inline constexpr uint8_t EEPROM_CAT25_STATUS_BUSY = 0x01;

/**
 * Created on the stack for one read or one write; keeps no state between calls and allocates nothing.
 *
 * The caller must have selected the chip's SPI channel and hold the bus, as a page write is two messages.
 * Nothing is retried. On a CAT25040 addresses from 0x100 up wrap to the lower half, as they are sent in one
 * byte.
 */
class ORVAN_API EEPROM_CAT25 {
public:
    /** @param _spi may be null; then every operation fails */
    EEPROM_CAT25(IDeviceConnectionHandler* _spi, EEPROM_CAT25_Device _device);

    /** Polls the status register each millisecond, up to 100 times, until the chip is not busy. A dead bus
     *  counts as busy. @return false, and reported on standard error, if it stays so */
    bool isReady();

    /** @return the status register; 0xFF on any failure */
    uint8_t getStatusRegister();

    /**
     * Reads in a single message, once the chip is ready.
     *
     * @param length with command and address at most MAX_SPI_BUF_LEN
     * @return `length`; 0 on any failure, also for a range past the end of the chip
     */
    size_t readBlock(uint32_t address, size_t length, void* buffer);

    /**
     * Writes page by page.
     *
     * @return `length`, even if a page failed: read back to verify; 0 without a bus, and for a range past the
     *         end of the chip, which is reported on standard output
     */
    size_t writeBlock(uint32_t address, size_t length, void* buffer);

    /**
     * Writes within one page, once the chip is ready; the write cycle is left to the next poll. Each call is
     * reported on standard output.
     *
     * @param length at most the rest of the page from `address` on
     * @return `length`; 0 on any failure
     */
    size_t writePage(uint32_t address, size_t length, void* buffer);

private:
    IDeviceConnectionHandler* spi;
    EEPROM_CAT25_Device device;
    size_t capacity;
    size_t pageSize;
};

} // namespace HaldeElec::Orvan

#endif
