#pragma once

#include "board/spi_device.h"

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace sim_board {

/// One chip select cycle: sends the bytes and gives what comes back.
inline std::vector<std::uint8_t> spi_exchange(SpiDevice& device, const std::vector<std::uint8_t>& sent)
{
    std::vector<std::uint8_t> received;
    device.select();
    for (const std::uint8_t byte : sent)
        received.push_back(device.exchange(byte));
    device.deselect();
    return received;
}

} // namespace sim_board
