#ifndef ORVAN_SERVICE_KEY_MAP_H
#define ORVAN_SERVICE_KEY_MAP_H

#include <cstdint>
#include <span>

namespace orvan_service {

/** What a key of the front panel does. */
struct KeyAction {
    uint8_t code;
    int channel;         /**< the key's channel; 0 for none */
    const char* name;    /**< as printed on the key */
    const char* message; /**< program message, without its LF */
};

/** The code of a key; row and column count from 0. */
constexpr uint8_t key_code(int row, int column)
{
    return static_cast<uint8_t>(column * 16 + row);
}

/** The keys of a four-channel instrument, each code once. */
std::span<const KeyAction> key_map();

/** @param channels number of installed channels
 *  @return null for an unused key, which includes those of channels not installed. */
const KeyAction* find_key(uint8_t code, int channels);

} // namespace orvan_service

#endif
