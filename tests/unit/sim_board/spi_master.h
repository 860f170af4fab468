#ifndef ORVAN_TESTS_UNIT_SIM_BOARD_SPI_MASTER_H
#define ORVAN_TESTS_UNIT_SIM_BOARD_SPI_MASTER_H

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "board/spi_device.h"

namespace sim_board {

/** One chip select cycle: sends the bytes and returns those received. */
inline std::vector<uint8_t> spi_exchange(SpiDevice& device, const std::vector<uint8_t>& sent)
{
    std::vector<uint8_t> received;
    device.select();
    for (const uint8_t byte : sent) {
        received.push_back(device.exchange(byte));
    }
    device.deselect();
    return received;
}

} // namespace sim_board

#endif
