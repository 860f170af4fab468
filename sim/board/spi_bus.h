#ifndef ORVAN_SIM_BOARD_SPI_BUS_H
#define ORVAN_SIM_BOARD_SPI_BUS_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "board/clock.h"
#include "board/gpio.h"
#include "board/spi_device.h"
#include "board/trace.h"
#include "board/wiring.h"

struct spi_ioc_transfer;

namespace sim_board {

/**
 * The spidev nodes and their chips, selected by the pins of the wiring. Thread-safe: one message at a time.
 *
 * As in the kernel, mode, word size and clock belong to a node and outlive its descriptors; a transfer may
 * set its own clock and word size (0: the node's); cs_change between two transfers deasserts chip select.
 * Words have 8 bits. cs_change on the last transfer is ignored: chip select rises.
 */
class SpiBus {
public:
    /** Most bytes sent, or received, in one message; more is refused with EMSGSIZE. */
    static constexpr size_t kMessageLimit = 4096;

    SpiBus(const BoardWiring& wiring, Gpio& gpio, Clock& clock, Trace& trace);

    /**
     * @name As hw.h; -1 with errno set on failure
     * @{
     */
    int open(const char* path, int flags);
    int ioctl(int fd, unsigned long request, void* arg);
    int close(int fd);
    /** @} */

    /**
     * Connects a chip to a target of the wiring ("eeprom", "fan"), replacing what is there; null removes it.
     * Throws std::out_of_range for an unknown target.
     */
    void attach(std::string_view target, std::shared_ptr<SpiDevice> device);
    std::shared_ptr<SpiDevice> device(std::string_view target) const;

    /** Makes a node appear or disappear; a node that is gone can't be opened (ENOENT). */
    void set_node_present(const std::string& path, bool present);
    /**
     * Makes a request (SPI_IOC_WR_MODE ...) fail with the errno value, on every node; 0 ends that.
     * SPI_IOC_MESSAGE(0) means messages of any count.
     */
    void refuse_request(unsigned long request, int error);

private:
    struct Node {
        bool present = true;
        uint8_t mode = 0;
        uint8_t bits = 8;
        uint32_t hertz = 500'000;
    };

    int failed(const std::string& what, int error) const;
    int setting(Node& node, unsigned long request, void* arg);
    int message(const std::string& path, const Node& node, std::span<const spi_ioc_transfer> transfers);
    int obstacle(const std::string& path, std::span<const spi_ioc_transfer> transfers) const;
    const SpiTargetWiring* selected_target(std::string_view path) const;

    const BoardWiring& m_wiring;
    Gpio& m_gpio;
    Clock& m_clock;
    Trace& m_trace;
    mutable std::mutex m_mutex;
    std::map<std::string, Node, std::less<>> m_nodes;
    std::map<std::string, std::shared_ptr<SpiDevice>, std::less<>>
        m_devices; // every target, with or without chip
    std::map<unsigned long, int> m_refused;
};

} // namespace sim_board

#endif
