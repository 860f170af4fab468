#include "board/board.h"

namespace sim_board {
namespace {

constexpr uint8_t kKeypadAddress = 0x34;
constexpr uint8_t kBatteryAddress = 0x0b;
constexpr uint8_t kChargeControllerAddress = 0x09;
constexpr uint8_t kModulePowerExpander = 0x20;
constexpr uint8_t kRelayExpander = 0x20;
constexpr std::string_view kFanTarget = "fan";

} // namespace

Board::Board(const BoardWiring& wiring, Clock::Mode mode, const std::string& eeprom_image,
             unsigned clock_rate)
    : m_wiring(wiring), m_clock(std::make_shared<Clock>(mode, clock_rate)), m_gpio(m_trace),
      m_spi(wiring, m_gpio, *m_clock, m_trace), m_i2c(m_trace),
      m_eeprom(std::make_shared<Cat25Eeprom>(cat25_type("CAT25640"), m_clock, eeprom_image))
{
    m_spi.attach("eeprom", m_eeprom);
    for (const ExpanderWiring& row : wiring.expanders) {
        const auto expander = std::make_shared<Mcp23017>();
        expander->drive(Mcp23017::kA, row.idle_high_a, 0xff);
        expander->drive(Mcp23017::kB, row.idle_high_b, 0xff);
        m_expanders.emplace(row.address, expander);
        m_i2c.attach(row.address, expander);
    }
    for (const int pin : wiring.idle_high) {
        m_gpio.drive(pin, 1);
    }
    wire_reset();
    wire_interrupts();
    wire_keypad();
    wire_battery();
    wire_module_power();
    wire_fan();
    wire_relays();
    power_button(false);
}

Board::~Board()
{
    stop();
    // A test may hold a chip for longer than its board.
    for (const auto& [address, expander] : m_expanders) {
        expander->on_interrupt({});
        expander->on_pins({});
        expander->on_latch({});
    }
    if (m_keypad) {
        m_keypad->on_interrupt({});
    }
}

void Board::wire_reset()
{
    if (m_wiring.expander_reset < 0) {
        return;
    }
    m_gpio.watch(m_wiring.expander_reset, [this](int level) {
        for (const auto& [address, expander] : m_expanders) {
            expander->set_reset(level == 0);
        }
    });
}

void Board::wire_interrupts()
{
    for (const InterruptWiring& row : m_wiring.interrupts) {
        m_expanders.at(row.address)->on_interrupt([this, &row](Mcp23017::Port output, int level) {
            if (output == row.output) {
                m_gpio.drive(row.pin, row.inverted ? 1 - level : level);
            }
        });
    }
}

void Board::wire_keypad()
{
    const int pin = m_wiring.keypad_interrupt;
    if (pin < 0) {
        return;
    }
    m_keypad = std::make_shared<Tca8418>();
    m_keypad->on_interrupt([this, pin](int level) { m_gpio.drive(pin, level); });
    m_i2c.attach(kKeypadAddress, m_keypad);
}

void Board::wire_battery()
{
    if (!m_wiring.battery) {
        return;
    }
    m_battery = std::make_shared<SmartBattery>(m_clock);
    m_charge_controller = std::make_shared<ChargeController>();
    m_i2c.attach(kBatteryAddress, m_battery);
    m_i2c.attach(kChargeControllerAddress, m_charge_controller);
}

void Board::wire_module_power()
{
    if (m_wiring.module_power == 0) {
        return;
    }
    expander(kModulePowerExpander).on_pins([this](Mcp23017::Port port, uint8_t levels) {
        const bool on = (levels & m_wiring.module_power) != 0;
        if (port != Mcp23017::kA || m_module_power.exchange(on) == on) {
            return;
        }
        std::lock_guard lock(m_watcher_mutex);
        if (m_module_power_watcher) {
            m_module_power_watcher(on);
        }
    });
}

void Board::wire_fan()
{
    for (const SpiTargetWiring& target : m_wiring.spi_targets) {
        if (target.name != kFanTarget) {
            continue;
        }
        m_fan = std::make_shared<FanDrive>();
        m_spi.attach(kFanTarget, m_fan);
    }
}

void Board::wire_relays()
{
    if (!m_wiring.modulation_relays) {
        return;
    }
    m_relays = std::make_shared<ModulationRelays>();
    expander(kRelayExpander).on_latch([relays = m_relays](Mcp23017::Port port, uint8_t latch) {
        relays->latch(port, latch);
    });
}

void Board::watch_module_power(std::function<void(bool)> watcher)
{
    std::lock_guard lock(m_watcher_mutex);
    m_module_power_watcher = std::move(watcher);
}

void Board::power_button(bool pressed)
{
    m_button_pressed = pressed;
    const PowerButtonWiring& wiring = m_wiring.power_button;
    if (wiring.pin >= 0) {
        m_gpio.drive(wiring.pin, pressed ? 0 : 1);
        return;
    }
    const int lines = wiring.high_while_pressed | wiring.low_while_pressed;
    const int high = pressed ? wiring.high_while_pressed : wiring.low_while_pressed;
    expander(wiring.address).drive(Mcp23017::kB, static_cast<uint8_t>(lines), static_cast<uint8_t>(high));
}

void Board::stop()
{
    m_clock->release();
    m_gpio.stop();
}

} // namespace sim_board
