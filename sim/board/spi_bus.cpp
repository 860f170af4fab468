#include "board/spi_bus.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "board/descriptor.h"

namespace sim_board {
namespace {

// The size of a message is part of its request number, so a message is any request like SPI_IOC_MESSAGE(0)
// whatever its size; the macro itself would need an array of no elements.
constexpr unsigned long kMessage = _IOC(_IOC_WRITE, SPI_IOC_MAGIC, 0, 0);

bool is_message(unsigned long request)
{
    constexpr unsigned long kSizeField = static_cast<unsigned long>(_IOC_SIZEMASK) << _IOC_SIZESHIFT;
    return (request & ~kSizeField) == (kMessage & ~kSizeField);
}

const char* request_name(unsigned long request)
{
    switch (request) {
    case SPI_IOC_WR_MODE:
    case SPI_IOC_RD_MODE:
        return "spi mode";
    case SPI_IOC_WR_BITS_PER_WORD:
    case SPI_IOC_RD_BITS_PER_WORD:
        return "spi bits";
    case SPI_IOC_WR_MAX_SPEED_HZ:
    case SPI_IOC_RD_MAX_SPEED_HZ:
        return "spi speed";
    default:
        return is_message(request) ? "spi message" : "spi request";
    }
}

std::array<unsigned char, kShownBytes> first_bytes(const std::vector<uint8_t>& bytes)
{
    std::array<unsigned char, kShownBytes> first{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), first.size()), first.begin());
    return first;
}

template <typename T>
T* pointer_of(uint64_t address)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): spi_ioc_transfer carries addresses as integers
    return reinterpret_cast<T*>(static_cast<uintptr_t>(address));
}

} // namespace

SpiBus::SpiBus(const BoardWiring& wiring, Gpio& gpio, Clock& clock, Trace& trace)
    : m_wiring(wiring), m_gpio(gpio), m_clock(clock), m_trace(trace)
{
    for (const std::string_view node : wiring.spi_nodes) {
        m_nodes.emplace(node, Node{});
    }
    for (const SpiTargetWiring& target : wiring.spi_targets) {
        m_devices.emplace(target.name, nullptr);
    }
}

int SpiBus::failed(const std::string& what, int error) const
{
    m_trace.add("%s -> %s", what.c_str(), ::strerrorname_np(error));
    errno = error;
    return -1;
}

void SpiBus::attach(std::string_view target, std::shared_ptr<SpiDevice> device)
{
    std::lock_guard lock(m_mutex);
    m_devices.at(std::string(target)) = std::move(device);
}

std::shared_ptr<SpiDevice> SpiBus::device(std::string_view target) const
{
    std::lock_guard lock(m_mutex);
    return m_devices.at(std::string(target));
}

void SpiBus::set_node_present(const std::string& path, bool present)
{
    std::lock_guard lock(m_mutex);
    m_nodes[path].present = present;
}

void SpiBus::refuse_request(unsigned long request, int error)
{
    std::lock_guard lock(m_mutex);
    m_refused[request] = error;
}

int SpiBus::open(const char* path, int flags)
{
    static_cast<void>(flags);
    std::lock_guard lock(m_mutex);
    const std::string what = std::string("spi open ") + path;
    const auto node = m_nodes.find(std::string_view(path));
    if (node == m_nodes.end() || !node->second.present) {
        return failed(what, ENOENT);
    }
    const int fd = open_descriptor(path);
    if (fd < 0) {
        return failed(what, errno);
    }
    m_trace.add("%s", what.c_str());
    return fd;
}

int SpiBus::close(int fd)
{
    std::lock_guard lock(m_mutex);
    if (m_nodes.find(descriptor_name(fd)) == m_nodes.end()) {
        return failed("spi close", EBADF);
    }
    m_trace.add("spi close");
    return ::close(fd);
}

int SpiBus::ioctl(int fd, unsigned long request, void* arg)
{
    std::lock_guard lock(m_mutex);
    const auto node = m_nodes.find(descriptor_name(fd));
    if (node == m_nodes.end()) {
        return failed(request_name(request), EBADF);
    }
    const auto refused = m_refused.find(is_message(request) ? kMessage : request);
    if (refused != m_refused.end() && refused->second != 0) {
        return failed(request_name(request), refused->second);
    }
    if (!is_message(request)) {
        return setting(node->second, request, arg);
    }

    const size_t size = _IOC_SIZE(request);
    if (size % sizeof(spi_ioc_transfer) != 0) {
        return failed(request_name(request), EINVAL);
    }
    return message(node->first, node->second,
                   {static_cast<const spi_ioc_transfer*>(arg), size / sizeof(spi_ioc_transfer)});
}

int SpiBus::setting(Node& node, unsigned long request, void* arg)
{
    const char* name = request_name(request);
    auto* byte = static_cast<uint8_t*>(arg);
    auto* word = static_cast<uint32_t*>(arg);
    switch (request) {
    case SPI_IOC_RD_MODE:
        *byte = node.mode;
        m_trace.add("%s -> %d", name, node.mode);
        return 0;
    case SPI_IOC_RD_BITS_PER_WORD:
        *byte = node.bits;
        m_trace.add("%s -> %d", name, node.bits);
        return 0;
    case SPI_IOC_RD_MAX_SPEED_HZ:
        *word = node.hertz;
        m_trace.add("%s -> %u", name, node.hertz);
        return 0;
    case SPI_IOC_WR_MODE:
        if (*byte > SPI_MODE_3) {
            return failed(std::string(name) + " = " + std::to_string(*byte), EINVAL);
        }
        node.mode = *byte;
        m_trace.add("%s = %d", name, node.mode);
        return 0;
    case SPI_IOC_WR_BITS_PER_WORD:
        if (*byte != 0 && *byte != 8) {
            return failed(std::string(name) + " = " + std::to_string(*byte), EINVAL);
        }
        node.bits = 8;
        m_trace.add("%s = %d", name, *byte);
        return 0;
    case SPI_IOC_WR_MAX_SPEED_HZ:
        if (*word == 0) {
            return failed(std::string(name) + " = 0", EINVAL);
        }
        node.hertz = *word;
        m_trace.add("%s = %u", name, node.hertz);
        return 0;
    default:
        return failed(name, ENOTTY);
    }
}

const SpiTargetWiring* SpiBus::selected_target(std::string_view path) const
{
    for (const SpiTargetWiring& target : m_wiring.spi_targets) {
        bool selected = target.node == path;
        for (const PinLevel& condition : target.selected_by) {
            selected = selected && m_gpio.level(condition.pin) == condition.level;
        }
        if (selected) {
            return &target;
        }
    }
    return nullptr;
}

int SpiBus::obstacle(const std::string& path, std::span<const spi_ioc_transfer> transfers) const
{
    size_t sent = 0;
    size_t received = 0;
    for (const spi_ioc_transfer& transfer : transfers) {
        if (transfer.bits_per_word != 0 && transfer.bits_per_word != 8) {
            return EINVAL;
        }
        sent += transfer.tx_buf != 0 ? transfer.len : 0;
        received += transfer.rx_buf != 0 ? transfer.len : 0;
    }
    if (sent > kMessageLimit || received > kMessageLimit) {
        return EMSGSIZE;
    }
    const SpiTargetWiring* target = selected_target(path);
    const auto& device = target ? m_devices.find(target->name)->second : nullptr;
    return device ? device->refuse_message() : 0;
}

int SpiBus::message(const std::string& path, const Node& node, std::span<const spi_ioc_transfer> transfers)
{
    if (const int error = obstacle(path, transfers); error != 0) {
        return failed("spi message", error);
    }

    int clocked = 0;
    std::shared_ptr<SpiDevice> selected; // while chip select is low
    std::string_view name = "none";
    for (size_t i = 0; i < transfers.size(); ++i) {
        const spi_ioc_transfer& transfer = transfers[i];
        if (i == 0 || transfers[i - 1].cs_change != 0) {
            const SpiTargetWiring* target = selected_target(path);
            const uint32_t hertz = transfer.speed_hz != 0 ? transfer.speed_hz : node.hertz;
            selected = target ? m_devices.find(target->name)->second : nullptr;
            name = target ? target->name : "none";
            if (selected && !selected->follows(node.mode, hertz)) {
                selected = nullptr;
            }
            if (selected) {
                selected->select();
            }
        }

        std::vector<uint8_t> sent(transfer.len, 0);
        if (transfer.tx_buf != 0) {
            std::memcpy(sent.data(), pointer_of<const void>(transfer.tx_buf), transfer.len);
        }
        std::vector<uint8_t> received(transfer.len, kFloatingByte);
        for (size_t byte = 0; selected && byte < sent.size(); ++byte) {
            received[byte] = selected->exchange(sent[byte]);
        }
        if (transfer.rx_buf != 0) {
            std::memcpy(pointer_of<void>(transfer.rx_buf), received.data(), transfer.len);
        }
        clocked += static_cast<int>(transfer.len);

        const bool stays_selected = i + 1 < transfers.size() && transfer.cs_change == 0;
        m_trace.add([name, count = sent.size(), out = first_bytes(sent), in = first_bytes(received),
                     both = transfer.rx_buf != 0, stays_selected] {
            return "spi " + std::string(name) + ": " + hex_bytes(out.data(), count) +
                   (both ? " -> " + hex_bytes(in.data(), count) : "") + (stays_selected ? " +" : "");
        });
        if (transfer.delay_usecs != 0) {
            m_trace.add("spi delay %d", transfer.delay_usecs);
            m_clock.sleep_us(transfer.delay_usecs);
        }
        if (!stays_selected && selected) {
            selected->deselect();
        }
    }
    return clocked;
}

} // namespace sim_board
