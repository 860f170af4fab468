#include "board/board.h"

namespace sim_board {

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
    for (const int pin : wiring.idle_high)
        m_gpio.drive(pin, 1);
    wire_reset();
    wire_interrupts();
}

Board::~Board()
{
    stop();
    // A test may hold a chip for longer than its board.
    for (const auto& [address, expander] : m_expanders)
        expander->on_interrupt({});
}

void Board::wire_reset()
{
    if (m_wiring.expander_reset < 0)
        return;
    m_gpio.watch(m_wiring.expander_reset, [this](int level) {
        for (const auto& [address, expander] : m_expanders)
            expander->set_reset(level == 0);
    });
}

void Board::wire_interrupts()
{
    for (const InterruptWiring& row : m_wiring.interrupts)
        m_expanders.at(row.address)->on_interrupt([this, &row](Mcp23017::Port output, int level) {
            if (output == row.output)
                m_gpio.drive(row.pin, row.inverted ? 1 - level : level);
        });
}

void Board::stop()
{
    m_clock->release();
    m_gpio.stop();
}

} // namespace sim_board
