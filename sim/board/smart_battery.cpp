#include "board/smart_battery.h"

#include <algorithm>

namespace sim_board {
namespace {

constexpr int64_t kUsPerHour = 3'600'000'000;
constexpr int64_t kFull = SmartBattery::kCapacityMah * kUsPerHour;
constexpr int kEmptyMv = 9000;
constexpr int kFullMv = 12600;
constexpr int kDesignMv = 10800;
constexpr int kRoomTemperature = 2981; // 25 degrees Celsius

constexpr uint16_t word_of(int64_t value)
{
    return static_cast<uint16_t>(value);
}

} // namespace

SmartBattery::SmartBattery(std::shared_ptr<const Clock> clock)
    : m_clock(std::move(clock)), m_charge(kFull), m_since(m_clock->now_us())
{
}

// The time is bounded first, so that no span of the clock overflows the product.
int64_t SmartBattery::charge() const
{
    const int ma = !m_fitted || m_flow == Flow::kRest ? 0 : m_flow == Flow::kFill ? kFillMa : -kDrainMa;
    const auto passed = std::min<uint64_t>(m_clock->now_us() - m_since, kFull);
    return std::clamp<int64_t>(m_charge + ma * static_cast<int64_t>(passed), 0, kFull);
}

int SmartBattery::current() const
{
    if (m_flow == Flow::kFill && charge() < kFull) {
        return kFillMa;
    }
    return m_flow == Flow::kDrain && charge() > 0 ? -kDrainMa : 0;
}

void SmartBattery::settle()
{
    m_charge = charge();
    m_since = m_clock->now_us();
}

void SmartBattery::set_charge(int percent)
{
    std::lock_guard lock(m_mutex);
    m_charge = kFull / 100 * std::clamp(percent, 0, 100);
    m_since = m_clock->now_us();
}

void SmartBattery::set_flow(Flow flow)
{
    std::lock_guard lock(m_mutex);
    settle();
    m_flow = flow;
}

SmartBattery::Flow SmartBattery::flow() const
{
    std::lock_guard lock(m_mutex);
    return m_flow;
}

void SmartBattery::set_fitted(bool fitted)
{
    std::lock_guard lock(m_mutex);
    settle();
    m_fitted = fitted;
}

bool SmartBattery::fitted() const
{
    std::lock_guard lock(m_mutex);
    return m_fitted;
}

std::optional<uint16_t> SmartBattery::word_at(uint8_t command) const
{
    switch (command) {
    case kBatteryMode:
        return m_mode;
    case kTemperature:
        return kRoomTemperature;
    case kVoltage:
        return word_of(kEmptyMv + charge() / (kFull / (kFullMv - kEmptyMv)));
    case kCurrent:
    case kAverageCurrent:
        return word_of(current());
    case kRelativeStateOfCharge:
        return word_of(charge() / (kFull / 100));
    case kRemainingCapacity:
        return word_of(charge() / kUsPerHour);
    case kFullChargeCapacity:
    case kDesignCapacity:
        return word_of(kCapacityMah);
    case kDesignVoltage:
        return word_of(kDesignMv);
    case kBatteryStatus:
        return word_of(kInitialized | (current() < 0 ? kDischarging : 0) |
                       (charge() == 0 ? kFullyDischarged : 0) | (charge() == kFull ? kFullyCharged : 0));
    default:
        return std::nullopt;
    }
}

bool SmartBattery::set_word(uint8_t command, uint16_t value)
{
    if (command != kBatteryMode) {
        return false;
    }
    m_mode = value;
    return true;
}

} // namespace sim_board
