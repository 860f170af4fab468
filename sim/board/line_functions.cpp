#include "board/line_functions.h"

namespace sim_board {
namespace {

using Mcp = Mcp23017;

// clang-format off
constexpr LineFunction kBenchtop[] = {
    {"RF output, slot 1",              0x20, Mcp::kA, 0x20, "off",     "on",        ""},
    {"RF output, slot 2",              0x20, Mcp::kB, 0x01, "off",     "on",        ""},
    {"RF output, slot 3",              0x20, Mcp::kB, 0x10, "off",     "on",        ""},
    {"RF output, slot 4",              0x20, Mcp::kB, 0x40, "off",     "on",        ""},
    {"trigger switch, slot 1",         0x24, Mcp::kA, 0x01, "coupled", "uncoupled", ""},
    {"trigger switch, slot 2",         0x20, Mcp::kA, 0x01, "coupled", "uncoupled", ""},
    {"trigger switch, slot 3",         0x24, Mcp::kA, 0x02, "coupled", "uncoupled", ""},
    {"trigger switch, slot 4",         0x24, Mcp::kA, 0x04, "coupled", "uncoupled", ""},
    {"trigger termination, channel 1", 0x20, Mcp::kA, 0x01, "50 Ohm",  "10 kOhm",   ""},
    {"trigger termination, channel 2", 0x20, Mcp::kA, 0x02, "50 Ohm",  "10 kOhm",   ""},
    {"trigger termination, channel 3", 0x20, Mcp::kA, 0x04, "50 Ohm",  "10 kOhm",   ""},
    {"trigger termination, channel 4", 0x20, Mcp::kA, 0x08, "50 Ohm",  "10 kOhm",   ""},
};

constexpr LineFunction kPortable[] = {
    {"module power",                   0x20, Mcp::kA, 0x80, "off",     "on",        "on"},
    {"fan 1 speed",                    0x20, Mcp::kA, 0x08, "high",    "low",       "high"},
    {"fan 2 speed",                    0x20, Mcp::kA, 0x10, "high",    "low",       "high"},
    {"fan 1 reset",                    0x20, Mcp::kA, 0x04, "released", "held",     "held"},
    {"fan 2 reset",                    0x20, Mcp::kA, 0x20, "released", "held",     "held"},
};

constexpr LineFunction kKsr7000[] = {
    {"RF output",                      0x20, Mcp::kA, 0x20, "off",     "on",        "off"},
};
// clang-format on

} // namespace

std::span<const LineFunction> line_functions(const BoardWiring& wiring)
{
    if (wiring.name == kBenchtopWiring.name) {
        return kBenchtop;
    }
    if (wiring.name == kPortableWiring.name) {
        return kPortable;
    }
    if (wiring.name == kKsr7000Wiring.name) {
        return kKsr7000;
    }
    return {};
}

} // namespace sim_board
