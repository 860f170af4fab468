#include "board/board_state.h"

#include <cstdarg>
#include <cstdio>

#include "board/faulty_i2c_device.h"
#include "board/front_panel_keys.h"
#include "board/line_functions.h"

namespace sim_board {
namespace {

/** Lines of a name and a state. */
class StateText {
public:
    void add(std::string_view name, const char* format, ...) __attribute__((format(printf, 3, 4)))
    {
        char line[256];
        const int head =
            std::snprintf(line, sizeof line, "%-32.*s  ", static_cast<int>(name.size()), name.data());
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(line + head, sizeof line - static_cast<size_t>(head), format, arguments);
        va_end(arguments);
        m_text += line;
        m_text += '\n';
    }
    std::string take() { return std::move(m_text); }

private:
    std::string m_text;
};

void add_line(StateText& text, Board& board, const LineFunction& line)
{
    const Mcp23017& expander = board.expander(line.address);
    const bool set = (expander.reg(Mcp23017::kOlat, line.port) & line.bit) != 0;
    const bool is_input = (expander.reg(Mcp23017::kIodir, line.port) & line.bit) != 0;
    std::string_view state = set ? line.at_1 : line.at_0;
    if (is_input && !line.as_input.empty()) {
        state = line.as_input;
    }
    text.add(line.name, "%.*s%s", static_cast<int>(state.size()), state.data(),
             is_input ? " (its pin is an input)" : "");
}

const char* routing_text(ModulationRelays::Routing routing)
{
    switch (routing) {
    case ModulationRelays::Routing::kNone:
        return "internal";
    case ModulationRelays::Routing::kPulse:
        return "external pulse";
    case ModulationRelays::Routing::kFm:
        return "external FM";
    case ModulationRelays::Routing::kAm:
        return "external AM";
    }
    return "?";
}

void add_relays(StateText& text, const ModulationRelays& relays)
{
    for (size_t number = 1; number <= ModulationRelays::kSlots; ++number) {
        const ModulationRelays::Slot slot = relays.slot(number);
        text.add("modulation, slot " + std::to_string(number), "%s: path relay at %d, input relay %s",
                 routing_text(slot.routing()), slot.path, slot.input ? "set" : "released");
    }
}

void add_fan(StateText& text, const FanDrive& fan)
{
    if (const auto value = fan.value()) {
        text.add("fan", "%d %% of full speed, drive value 0x%02x", fan.speed(), *value);
    } else {
        text.add("fan", "full speed, no drive value yet");
    }
}

void add_battery(StateText& text, const SmartBattery& battery)
{
    text.add("charger", "%s", battery.flow() == SmartBattery::Flow::kFill ? "plugged in" : "not plugged in");
    if (!battery.fitted()) {
        text.add("battery", "taken out");
        return;
    }
    const auto current = static_cast<int16_t>(battery.word(SmartBattery::kCurrent));
    text.add("battery", "%u %%, %s",
             static_cast<unsigned>(battery.word(SmartBattery::kRelativeStateOfCharge)),
             current > 0   ? "charging"
             : current < 0 ? "draining"
                           : "at rest");
}

void add_keys(StateText& text, const Tca8418& keypad)
{
    std::string held;
    for (int row = 0; row < kKeyRows; ++row) {
        for (int column = 0; column < kKeyColumns; ++column) {
            if (keypad.is_held(row, column)) {
                held += (held.empty() ? "" : ", ") + std::to_string(row) + " " + std::to_string(column);
            }
        }
    }
    text.add("keys held, row and column", "%s", held.empty() ? "none" : held.c_str());
}

void add_expander(StateText& text, Board& board, uint8_t address)
{
    const Mcp23017& expander = board.expander(address);
    const auto both = [&](Mcp23017::Register which) {
        char pair[32];
        std::snprintf(pair, sizeof pair, "A 0x%02x B 0x%02x", expander.reg(which, Mcp23017::kA),
                      expander.reg(which, Mcp23017::kB));
        return std::string(pair);
    };
    char name[32];
    std::snprintf(name, sizeof name, "expander 0x%02x", address);
    text.add(name, "latch %s, inputs %s, pins A 0x%02x B 0x%02x", both(Mcp23017::kOlat).c_str(),
             both(Mcp23017::kIodir).c_str(), expander.pins(Mcp23017::kA), expander.pins(Mcp23017::kB));
}

} // namespace

std::string board_state(Board& board)
{
    const BoardWiring& wiring = board.wiring();
    StateText text;
    text.add("board", "%.*s", static_cast<int>(wiring.name.size()), wiring.name.data());
    for (const LineFunction& line : line_functions(wiring)) {
        add_line(text, board, line);
    }
    if (board.relays()) {
        add_relays(text, *board.relays());
    }
    if (board.fan()) {
        add_fan(text, *board.fan());
    }
    if (board.battery()) {
        add_battery(text, *board.battery());
    }
    if (board.keypad()) {
        add_keys(text, *board.keypad());
    }
    text.add("power button", "%s", board.power_button_pressed() ? "pressed" : "released");
    for (const ExpanderWiring& row : wiring.expanders) {
        add_expander(text, board, row.address);
    }
    for (const uint8_t address : board.i2c().addresses()) {
        if (const auto fault = std::dynamic_pointer_cast<FaultyI2cDevice>(board.i2c().device(address))) {
            const I2cFault now = fault->fault();
            if (now != I2cFault::kNone) {
                char name[32];
                std::snprintf(name, sizeof name, "i2c 0x%02x", address);
                text.add(name, "%s", now == I2cFault::kAbsent ? "absent" : "acknowledges nothing");
            }
        }
    }
    return text.take();
}

} // namespace sim_board
