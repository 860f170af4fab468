#ifndef ORVAN_SERVICE_KEY_MAP_H
#define ORVAN_SERVICE_KEY_MAP_H

#include <cstdint>
#include <span>

namespace orvan_service {

/** What a key of the front panel does. */
struct KeyAction {
    uint8_t code;
    int channel;         /**< that the key is for; 0 for none */
    const char* name;    /**< as printed on the key */
    const char* message; /**< program message, without its LF */
};

/** The code of a key; row and column count from 0. */
constexpr uint8_t key_code(int row, int column)
{
    return static_cast<uint8_t>(column * 16 + row);
}

/** The keys of an instrument with four channels, each code once. */
std::span<const KeyAction> key_map();

/** @param channels those that are installed
 *  @return null for a key that is not in use; that of a channel which is not installed is none. */
const KeyAction* find_key(uint8_t code, int channels);

} // namespace orvan_service

#endif
