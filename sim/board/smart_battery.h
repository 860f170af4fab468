#ifndef ORVAN_SIM_BOARD_SMART_BATTERY_H
#define ORVAN_SIM_BOARD_SMART_BATTERY_H

#include <cstdint>
#include <memory>

#include "board/clock.h"
#include "board/smbus_word_device.h"

namespace sim_board {

/**
 * A battery by SBData 1.1, three lithium cells with 6600 mAh, whose charge drains and fills on the board's
 * clock at a constant current. It has the functions below and counts in mA and mAh whatever CAPACITY_MODE
 * says. Thread-safe.
 */
class SmartBattery : public SmbusWordDevice {
public:
    enum Command : uint8_t {
        kBatteryMode = 0x03,           // the only writable one; keeps its value
        kTemperature = 0x08,           // 0.1 K
        kVoltage = 0x09,               // mV, from 9000 when empty to 12600 when full
        kCurrent = 0x0a,               // mA, signed: positive while it charges
        kAverageCurrent = 0x0b,        // the same
        kRelativeStateOfCharge = 0x0d, // percent of FullChargeCapacity, rounded down
        kRemainingCapacity = 0x0f,     // mAh
        kFullChargeCapacity = 0x10,    // mAh
        kBatteryStatus = 0x16,
        kDesignCapacity = 0x18, // mAh
        kDesignVoltage = 0x19,  // mV
    };
    enum Status : uint16_t {
        kFullyDischarged = 0x0010,
        kFullyCharged = 0x0020,
        kDischarging = 0x0040,
        kInitialized = 0x0080,
    };
    enum class Flow { kDrain, kRest, kFill };

    static constexpr int kCapacityMah = 6600;
    static constexpr int kDrainMa = 1500;
    static constexpr int kFillMa = 2000;

    /** Initially full and charging, so its current is 0. */
    explicit SmartBattery(std::shared_ptr<const Clock> clock);

    /**
     * @name For tests
     * @{
     * percent: clamped to 0 to 100; RelativeStateOfCharge shows it as given.
     */
    void set_charge(int percent);
    /** The current is 0 when the battery is empty or full. */
    void set_flow(Flow flow);
    Flow flow() const;
    /** When removed, its address can't be opened and its charge does not change. */
    void set_fitted(bool fitted);
    /** @} */

    bool fitted() const override;

private:
    std::optional<uint16_t> word_at(uint8_t command) const override;
    bool set_word(uint8_t command, uint16_t value) override;
    int64_t charge() const;
    int current() const;
    void settle();

    const std::shared_ptr<const Clock> m_clock;
    int64_t m_charge; // at m_since; in mA times microseconds
    uint64_t m_since;
    Flow m_flow = Flow::kFill;
    bool m_fitted = true;
    uint16_t m_mode = 0;
};

} // namespace sim_board

#endif
