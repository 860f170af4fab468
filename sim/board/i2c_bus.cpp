#include "board/i2c_bus.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "board/descriptor.h"

namespace sim_board {
namespace {

constexpr uint8_t low(int value)
{
    return static_cast<uint8_t>(value & 0xff);
}
constexpr uint8_t high(int value)
{
    return static_cast<uint8_t>((value >> 8) & 0xff);
}

std::string hex(const char* format, unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// "[0x12] = 0x0004" for a write, "[0x12] -> 0x04" for a read, without brackets where the access has no
// register. A word is shown as a number; its low byte comes first on the wire.
std::string access_text(std::span<const uint8_t> sent, std::span<const uint8_t> received, bool done)
{
    const auto number = [](std::span<const uint8_t> data) {
        return data.size() == 1 ? hex("0x%02x", data[0]) : hex("0x%04x", data[0] | unsigned{data[1]} << 8U);
    };
    const bool has_register = !sent.empty() && (sent.size() > 1 || !received.empty());
    std::string text = has_register ? hex(" [0x%02x]", sent[0]) : "";
    const auto data = sent.subspan(has_register ? 1 : 0);
    if (!data.empty()) {
        text += " = " + number(data);
    }
    if (!received.empty() && done) {
        text += " -> " + number(received);
    }
    return text;
}

} // namespace

void I2cBus::attach(uint8_t address, std::shared_ptr<I2cDevice> device)
{
    std::lock_guard lock(m_mutex);
    if (device) {
        m_devices[address] = std::move(device);
    } else {
        m_devices.erase(address);
    }
}

std::shared_ptr<I2cDevice> I2cBus::device(uint8_t address) const
{
    std::lock_guard lock(m_mutex);
    const auto found = m_devices.find(address);
    return found == m_devices.end() ? nullptr : found->second;
}

std::vector<uint8_t> I2cBus::addresses() const
{
    std::lock_guard lock(m_mutex);
    std::vector<uint8_t> result;
    result.reserve(m_devices.size());
    for (const auto& [address, device] : m_devices) {
        result.push_back(address);
    }
    return result;
}

void I2cBus::open_without_device(bool allowed)
{
    std::lock_guard lock(m_mutex);
    m_open_without_device = allowed;
}

void I2cBus::open_next_as(int fd)
{
    std::lock_guard lock(m_mutex);
    m_open_next_as = fd;
}

int I2cBus::failed(const char* what, int error) const
{
    m_trace.add("%s -> %s", what, ::strerrorname_np(error));
    errno = error;
    return -1;
}

int I2cBus::open(int address)
{
    std::lock_guard lock(m_mutex);
    const std::string name = "i2c " + hex("0x%02x", static_cast<unsigned>(address));
    const std::string what = name + " open";
    if (address < 0 || address > 0x7f) {
        return failed(what.c_str(), EINVAL);
    }
    const auto found = m_devices.find(low(address));
    const bool fitted = found != m_devices.end() && found->second->fitted();
    if (!fitted && !m_open_without_device) {
        return failed(what.c_str(), ENXIO);
    }
    int fd = open_descriptor(name);
    if (fd < 0) {
        return failed(what.c_str(), errno);
    }
    if (const auto wanted = std::exchange(m_open_next_as, std::nullopt)) {
        ::dup3(fd, *wanted, O_CLOEXEC);
        ::close(fd);
        fd = *wanted;
    }
    m_trace.add("%s", what.c_str());
    return fd;
}

int I2cBus::transfer(int fd, std::span<const uint8_t> sent, std::span<uint8_t> received)
{
    std::lock_guard lock(m_mutex);
    const std::string name = descriptor_name(fd);
    unsigned address = 0;
    if (std::sscanf(name.c_str(), "i2c 0x%x", &address) != 1) {
        return failed(("i2c ?" + access_text(sent, received, false)).c_str(), EBADF);
    }

    const auto found = m_devices.find(static_cast<uint8_t>(address));
    const bool fitted = found != m_devices.end() && found->second->fitted();
    const bool done = fitted && (sent.empty() || found->second->write(sent)) &&
                      (received.empty() || found->second->read(received));
    const std::string what = name + access_text(sent, received, done);
    if (!done) {
        return failed(what.c_str(), fitted ? EREMOTEIO : ENXIO);
    }
    m_trace.add("%s", what.c_str());
    return 0;
}

int I2cBus::read(int fd)
{
    std::array<uint8_t, 1> received{};
    return transfer(fd, {}, received) < 0 ? -1 : received[0];
}

int I2cBus::write(int fd, int value)
{
    const std::array sent{low(value)};
    return transfer(fd, sent, {});
}

int I2cBus::read_register8(int fd, int reg)
{
    const std::array sent{low(reg)};
    std::array<uint8_t, 1> received{};
    return transfer(fd, sent, received) < 0 ? -1 : received[0];
}

int I2cBus::read_register16(int fd, int reg)
{
    const std::array sent{low(reg)};
    std::array<uint8_t, 2> received{};
    return transfer(fd, sent, received) < 0 ? -1 : received[0] | received[1] << 8;
}

int I2cBus::write_register8(int fd, int reg, int value)
{
    const std::array sent{low(reg), low(value)};
    return transfer(fd, sent, {});
}

int I2cBus::write_register16(int fd, int reg, int value)
{
    const std::array sent{low(reg), low(value), high(value)};
    return transfer(fd, sent, {});
}

} // namespace sim_board
