#include "routing_tables.h"

namespace HaldeElec::Orvan {

// clang-format off
constinit const ChannelConfig lookup[kRoutedChannels][kRoutedChannels] = {
    {{0x13, 0x40}, {0x13, 0x40}, {0x13, 0x40}, {0x13, 0x40}},
    {{0x13, 0x10}, {0x13, 0x40}, {   0,    0}, {   0,    0}},
    {{0x12, 0x20}, {0x13, 0x01}, {0x13, 0x10}, {0x13, 0x40}},
    {{0x12, 0x20}, {0x13, 0x01}, {0x13, 0x10}, {0x13, 0x40}},
};

constinit const uint8_t termBitByCh[kRoutedChannels] = {0x01, 0x02, 0x04, 0x08};

constinit const SrcSel srcMap[kInstalledRows][kRoutedChannels] = {
    {{2, 0x04}, {2, 0x08}, {2, 0x08}, {2, 0x08}},
    {{2, 0x02}, {2, 0x04}, {2, 0x08}, {2, 0x08}},
    {{2, 0x01}, {1, 0x01}, {2, 0x02}, {2, 0x04}},
};

constinit const uint8_t outvalArray[kInstalledRows][eCoupling_all + 1][kRoutedChannels] = {
    // none         ch2           ch3           ch4           all
    {{0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}},
    {{0, 1, 1, 1}, {0, 0, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}, {0, 0, 1, 1}},
    {{0, 1, 1, 1}, {0, 0, 1, 1}, {0, 1, 0, 1}, {0, 1, 1, 0}, {0, 0, 0, 0}},
};

constinit const uint8_t phys_ch_for_installed[kInstalledRows][kRoutedChannels] = {
    {3, 3, 3, 3},
    {2, 3, 2, 3},
    {0, 1, 2, 3},
};
// clang-format on

namespace {

constexpr bool kYes = true;
constexpr bool kNo = false;

constexpr Phase phase(uint8_t ga_clr, uint8_t ga_set, uint8_t gb_clr, uint8_t gb_set, uint8_t strobe,
                      bool extra)
{
    return {ga_clr, ga_set, gb_clr, gb_set, true, strobe, extra};
}

template <uint8_t kCount>
constexpr Seq seq(const Phase (&phases)[kCount])
{
    return {phases, kCount};
}

// Relay group one has the strobe 0x80 in port B and the address lines 0x40 in port A and 0x20 in port B, and
// 0x20 of port A selects the position. Group two has the strobe 0x08 in port B, the address lines 0x10 in
// port A and 0x02 in port B, and 0x08 of port A as its second position line.
//
// The second step of DISABLE_MOD_CH4 and the first of ENABLE_AM_CH4 drive group two where the other channels
// drive group one. This is intentional.

// clang-format off
//    ga clr  set  gb clr  set strobe  extra wait
constexpr Phase DISABLE_MOD_CH1[] = {
    phase(0x60,    0, 0xA0,    0, 0x80, kYes),
    phase(0x40, 0x20, 0xA0,    0, 0x80, kNo),
};
constexpr Phase ENABLE_PM_CH1[] = {
    phase(0x60,    0, 0xA0,    0, 0x80, kYes),
};
constexpr Phase ENABLE_FM_CH1[] = {
    phase(0x60,    0, 0xA0,    0, 0x80, kYes),
    phase(0x18,    0, 0x0A,    0, 0x08, kNo),
};
constexpr Phase ENABLE_AM_CH1[] = {
    phase(0x40, 0x20, 0xA0,    0, 0x80, kYes),
    phase(0x18,    0, 0x0A,    0, 0x08, kNo),
};
constexpr Phase DISABLE_MOD_CH2[] = {
    phase(0x20, 0x40, 0xA0,    0, 0x80, kYes),
    phase(   0, 0x60, 0xA0,    0, 0x80, kNo),
};
constexpr Phase ENABLE_PM_CH2[] = {
    phase(0x20, 0x40, 0xA0,    0, 0x80, kYes),
};
constexpr Phase ENABLE_FM_CH2[] = {
    phase(0x20, 0x40, 0xA0,    0, 0x80, kYes),
    phase(0x08, 0x10, 0x0A,    0, 0x08, kNo),
};
constexpr Phase ENABLE_AM_CH2[] = {
    phase(   0, 0x60, 0xA0,    0, 0x80, kYes),
    phase(0x08, 0x10, 0x0A,    0, 0x08, kNo),
};
constexpr Phase DISABLE_MOD_CH3[] = {
    phase(0x60,    0, 0x80, 0x20, 0x80, kYes),
    phase(0x40, 0x20, 0x80, 0x20, 0x80, kNo),
};
constexpr Phase ENABLE_PM_CH3[] = {
    phase(0x60,    0, 0x80, 0x20, 0x80, kYes),
};
constexpr Phase ENABLE_FM_CH3[] = {
    phase(0x60,    0, 0x80, 0x20, 0x80, kYes),
    phase(0x18,    0, 0x08, 0x02, 0x08, kNo),
};
constexpr Phase ENABLE_AM_CH3[] = {
    phase(0x40, 0x20, 0x80, 0x20, 0x80, kYes),
    phase(0x18,    0, 0x08, 0x02, 0x08, kNo),
};
constexpr Phase DISABLE_MOD_CH4[] = {
    phase(0x20, 0x40, 0x80, 0x20, 0x80, kYes),
    phase(0x10, 0x08, 0x0A,    0, 0x08, kNo),
};
constexpr Phase ENABLE_PM_CH4[] = {
    phase(0x20, 0x40, 0x80, 0x20, 0x80, kYes),
};
constexpr Phase ENABLE_FM_CH4[] = {
    phase(0x20, 0x40, 0x80, 0x20, 0x80, kYes),
    phase(0x08, 0x10, 0x08, 0x02, 0x08, kNo),
};
constexpr Phase ENABLE_AM_CH4[] = {
    phase(0x10, 0x08, 0x0A,    0, 0x08, kYes),
    phase(0x08, 0x10, 0x08, 0x02, 0x08, kNo),
};

constexpr Seq DISABLE_MOD_CH1_SEQ = seq(DISABLE_MOD_CH1);
constexpr Seq ENABLE_PM_CH1_SEQ = seq(ENABLE_PM_CH1);
constexpr Seq ENABLE_FM_CH1_SEQ = seq(ENABLE_FM_CH1);
constexpr Seq ENABLE_AM_CH1_SEQ = seq(ENABLE_AM_CH1);
constexpr Seq DISABLE_MOD_CH2_SEQ = seq(DISABLE_MOD_CH2);
constexpr Seq ENABLE_PM_CH2_SEQ = seq(ENABLE_PM_CH2);
constexpr Seq ENABLE_FM_CH2_SEQ = seq(ENABLE_FM_CH2);
constexpr Seq ENABLE_AM_CH2_SEQ = seq(ENABLE_AM_CH2);
constexpr Seq DISABLE_MOD_CH3_SEQ = seq(DISABLE_MOD_CH3);
constexpr Seq ENABLE_PM_CH3_SEQ = seq(ENABLE_PM_CH3);
constexpr Seq ENABLE_FM_CH3_SEQ = seq(ENABLE_FM_CH3);
constexpr Seq ENABLE_AM_CH3_SEQ = seq(ENABLE_AM_CH3);
constexpr Seq DISABLE_MOD_CH4_SEQ = seq(DISABLE_MOD_CH4);
constexpr Seq ENABLE_PM_CH4_SEQ = seq(ENABLE_PM_CH4);
constexpr Seq ENABLE_FM_CH4_SEQ = seq(ENABLE_FM_CH4);
constexpr Seq ENABLE_AM_CH4_SEQ = seq(ENABLE_AM_CH4);

} // namespace

constinit const SeqPair seq_by_ch_mod_4ch[kRoutedChannels][kModulations] = {
    // AM, FM, pulse
    {{&ENABLE_AM_CH1_SEQ, &DISABLE_MOD_CH1_SEQ}, {&ENABLE_FM_CH1_SEQ, &DISABLE_MOD_CH1_SEQ}, {&ENABLE_PM_CH1_SEQ, &DISABLE_MOD_CH1_SEQ}},
    {{&ENABLE_AM_CH2_SEQ, &DISABLE_MOD_CH2_SEQ}, {&ENABLE_FM_CH2_SEQ, &DISABLE_MOD_CH2_SEQ}, {&ENABLE_PM_CH2_SEQ, &DISABLE_MOD_CH2_SEQ}},
    {{&ENABLE_AM_CH3_SEQ, &DISABLE_MOD_CH3_SEQ}, {&ENABLE_FM_CH3_SEQ, &DISABLE_MOD_CH3_SEQ}, {&ENABLE_PM_CH3_SEQ, &DISABLE_MOD_CH3_SEQ}},
    {{&ENABLE_AM_CH4_SEQ, &DISABLE_MOD_CH4_SEQ}, {&ENABLE_FM_CH4_SEQ, &DISABLE_MOD_CH4_SEQ}, {&ENABLE_PM_CH4_SEQ, &DISABLE_MOD_CH4_SEQ}},
};
// clang-format on

} // namespace HaldeElec::Orvan
