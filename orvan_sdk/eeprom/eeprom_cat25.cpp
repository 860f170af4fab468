#include "orvan_sdk/eeprom/eeprom_cat25.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "hw/hw.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"

namespace HaldeElec::Orvan {
namespace {

constexpr int kReadyPolls = 100;
constexpr uint64_t kPollPeriodUs = 1000;

struct Size {
    size_t capacity;
    size_t page;
};

// Indexed by EEPROM_CAT25_Device.
constexpr Size kSizes[] = {
    {EEPROM_CAPACITY_CAT25M01, EEPROM_PAGE_SIZE_CAT25M01},
    {EEPROM_CAPACITY_CAT25512, EEPROM_PAGE_SIZE_CAT25512},
    {EEPROM_CAPACITY_CAT25256, EEPROM_PAGE_SIZE_CAT25256},
    {EEPROM_CAPACITY_CAT25128, EEPROM_PAGE_SIZE_CAT25128},
    {EEPROM_CAPACITY_CAT25640, EEPROM_PAGE_SIZE_CAT25640},
    {EEPROM_CAPACITY_CAT25320, EEPROM_PAGE_SIZE_CAT25320},
    {EEPROM_CAPACITY_CAT25160, EEPROM_PAGE_SIZE_CAT25160},
    {EEPROM_CAPACITY_CAV25160, EEPROM_PAGE_SIZE_CAV25160},
    {EEPROM_CAPACITY_CAT25080, EEPROM_PAGE_SIZE_CAT25080},
    {EEPROM_CAPACITY_CAV25080, EEPROM_PAGE_SIZE_CAV25080},
    {EEPROM_CAPACITY_CAT25040, EEPROM_PAGE_SIZE_CAT25040},
    {EEPROM_CAPACITY_CAT25020, EEPROM_PAGE_SIZE_CAT25020},
    {EEPROM_CAPACITY_CAT25010, EEPROM_PAGE_SIZE_CAT25010},
};

// 1 to 3 bytes, the most significant first. The CAT25040 has its ninth bit in the opcode, not here.
size_t writeAddressBytes(uint8_t* buffer, uint32_t address, size_t capacity, EEPROM_CAT25_Device device)
{
    size_t count = 0;
    if (capacity > 0x10000) {
        buffer[count++] = static_cast<uint8_t>(address >> 16);
    }
    if (capacity > 0x100 && device != CAT25040) {
        buffer[count++] = static_cast<uint8_t>(address >> 8);
    }
    buffer[count++] = static_cast<uint8_t>(address);
    return count;
}

} // namespace

EEPROM_CAT25::EEPROM_CAT25(IDeviceConnectionHandler* _spi, EEPROM_CAT25_Device _device)
    : spi(_spi), device(_device), capacity(kSizes[_device].capacity), pageSize(kSizes[_device].page)
{
}

bool EEPROM_CAT25::isReady()
{
    for (int poll = 0; poll < kReadyPolls; ++poll) {
        if ((getStatusRegister() & EEPROM_CAT25_STATUS_BUSY) == 0) {
            return true;
        }
        hw_delay_us(kPollPeriodUs);
    }
    std::fputs("[EEPROM] Busy timeout waiting for RDY\n", stderr);
    return false;
}

uint8_t EEPROM_CAT25::getStatusRegister()
{
    const uint8_t sent[] = {EEPROM_CAT25_COMMAND_RDSR, EEPROM_CAT25_DUMMY_BYTE};
    uint8_t received[sizeof sent] = {};
    if (spi == nullptr || spi->DataTransfer(sent, received, sizeof sent) != 0) {
        return 0xFF;
    }
    return received[1];
}

size_t EEPROM_CAT25::readBlock(uint32_t address, size_t length, void* buffer)
{
    if (spi == nullptr || length == 0 || length > capacity || address > capacity - length || !isReady()) {
        return 0;
    }

    uint8_t sent[MAX_SPI_BUF_LEN] = {EEPROM_CAT25_COMMAND_READ};
    uint8_t received[MAX_SPI_BUF_LEN];
    static_assert(EEPROM_CAT25_DUMMY_BYTE == 0, "what is clocked out after the address");
    const size_t prefix = 1 + writeAddressBytes(sent + 1, address, capacity, device);
    if (length > MAX_SPI_BUF_LEN - prefix || spi->DataTransfer(sent, received, prefix + length) != 0) {
        return 0;
    }
    std::memcpy(buffer, received + prefix, length);
    return length;
}

size_t EEPROM_CAT25::writeBlock(uint32_t address, size_t length, void* buffer)
{
    if (spi == nullptr) {
        return 0;
    }
    if (length == 0 || length > capacity || address > capacity - length) {
        std::printf("Trying to write to invalid address 0x%X\n", static_cast<unsigned>(address));
        return 0;
    }

    auto* data = static_cast<uint8_t*>(buffer);
    size_t left = length;
    const auto write = [&](size_t count) {
        writePage(address, count, data);
        address += static_cast<uint32_t>(count);
        data += count;
        left -= count;
    };

    const auto remainderFirstPage = static_cast<uint16_t>(std::min(pageSize - address % pageSize, length));
    if (remainderFirstPage != 0) {
        write(remainderFirstPage);
    }
    while (left > pageSize) {
        write(pageSize);
    }
    write(left); // length 0, which is refused, if everything fit into the first page
    return length;
}

size_t EEPROM_CAT25::writePage(uint32_t address, size_t length, void* buffer)
{
    std::printf("write Page (EEPROM_CAT25): Writing page at address 0x%X\n", static_cast<unsigned>(address));
    if (address >= capacity || length == 0 || length > pageSize - address % pageSize || !isReady()) {
        return 0;
    }

    uint8_t sent[MAX_SPI_BUF_LEN] = {EEPROM_CAT25_COMMAND_WREN, EEPROM_CAT25_DUMMY_BYTE};
    uint8_t received[MAX_SPI_BUF_LEN];
    if (spi->DataTransfer(sent, received, 2) != 0) {
        return 0;
    }

    sent[0] = EEPROM_CAT25_COMMAND_WRITE;
    const size_t prefix = 1 + writeAddressBytes(sent + 1, address, capacity, device);
    if (length > MAX_SPI_BUF_LEN - prefix) {
        return 0;
    }
    std::memcpy(sent + prefix, buffer, length);
    return spi->DataTransfer(sent, received, prefix + length) == 0 ? length : 0;
}

} // namespace HaldeElec::Orvan
