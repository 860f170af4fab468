#include "key_map.h"

#include <algorithm>

namespace orvan_service {
namespace {

// Keys of columns 8 and 9 are excluded: they send the same code for press and release.
constexpr KeyAction kKeyMap[] = {
    {key_code(0, 0), 1, "Channel 1", ":INST 1"}, {key_code(0, 1), 2, "Channel 2", ":INST 2"},
    {key_code(0, 2), 3, "Channel 3", ":INST 3"}, {key_code(0, 3), 4, "Channel 4", ":INST 4"},
    {key_code(1, 0), 0, "RF on", ":OUTP ON"},    {key_code(1, 1), 0, "RF off", ":OUTP OFF"},
    {key_code(2, 0), 0, "Preset", "*RST"},
};

} // namespace

std::span<const KeyAction> key_map()
{
    return kKeyMap;
}

const KeyAction* find_key(uint8_t code, int channels)
{
    const auto* const found =
        std::find_if(std::begin(kKeyMap), std::end(kKeyMap), [&](const KeyAction& action) {
            return action.code == code && action.channel <= channels;
        });
    return found == std::end(kKeyMap) ? nullptr : found;
}

} // namespace orvan_service
