/**
 * Switches of the benchtop's board for each channel.
 *
 * An instrument with one or two modules uses only the last slots of the four-slot board, so the number of
 * installed channels selects a row. Columns are channel minus 1.
 */
#ifndef ORVAN_SDK_BENCHTOP_ROUTING_TABLES_H
#define ORVAN_SDK_BENCHTOP_ROUTING_TABLES_H

#include <cstdint>

#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "relay_sequence.h"

namespace HaldeElec::Orvan {

inline constexpr int kRoutedChannels = 4;

/** Rows of the routing tables for one, two and more installed channels. */
inline constexpr int kInstalledRows = 3;

/** The row for a number of installed channels; invalid numbers count as the full board. */
constexpr int installed_row(int installed_channels)
{
    return installed_channels == 1 ? 0 : installed_channels == 2 ? 1 : 2;
}

/** RF output switch of a channel; a zero in either means that there is no switch. */
struct ChannelConfig {
    uint8_t register_addr;
    uint8_t bit_mask;
};

/** Rows are the installed channels minus 1. */
extern const ChannelConfig lookup[kRoutedChannels][kRoutedChannels];

/** Trigger input termination: a bit of port A at 0x20. */
extern const uint8_t termBitByCh[kRoutedChannels];

/** Trigger source switch of a channel. */
struct SrcSel {
    uint8_t fd_idx; /**< 0 and 1 are the handles on 0x20, 2 the one on 0x24 */
    uint8_t bit;    /**< mask in port A; 8 and above mean no switch */
};
extern const SrcSel srcMap[kInstalledRows][kRoutedChannels];

/** Level of the trigger source switch, 0 couples; the second index is an eCoupling. */
extern const uint8_t outvalArray[kInstalledRows][eCoupling_all + 1][kRoutedChannels];

/** The board slot of a channel's module, from 0. */
extern const uint8_t phys_ch_for_installed[kInstalledRows][kRoutedChannels];

/** Relay sequences that connect an external modulation input to a slot, and disconnect it. */
struct SeqPair {
    const Seq* enable;
    const Seq* disable;
};

/** Modulations: AM, FM, pulse. */
inline constexpr int kModulations = 3;
extern const SeqPair seq_by_ch_mod_4ch[kRoutedChannels][kModulations];

} // namespace HaldeElec::Orvan

#endif
