#include "orvan_sdk/Benchtop/OrvanConnBenchtop.h"

#include <syslog.h>

#include "board/expanders.h"
#include "board/mcp23017.h"
#include "orvan_sdk/OrvanDebug.h"
#include "orvan_sdk/i2cdev.h"
#include "routing_tables.h"

namespace HaldeElec::Orvan {
namespace {

constexpr uint32_t MODE_RELAY_DELAY_US = 50000;

constexpr bool is_routed(uint32_t channel)
{
    return channel >= 1 && channel <= kRoutedChannels;
}

} // namespace

OrvanConnBenchtop::OrvanConnBenchtop()
{
    OrvanDebug::Log("OrvanConnBenchtop::OrvanConnBenchtop constructor is start @@", true);
}

int OrvanConnBenchtop::SetRFOutput(int value)
{
    if (installedChannels < 1 || installedChannels > kRoutedChannels || !is_routed(channelNo)) {
        return 0;
    }
    const ChannelConfig& output = lookup[installedChannels - 1][channelNo - 1];
    if (output.register_addr == 0 || output.bit_mask == 0) {
        return 0;
    }

    I2CFd exp0(kExpanderAddress);
    if (exp0.isOpen()) {
        i2c_set_bit(exp0, output.register_addr, output.bit_mask, value != 0);
        if (exp0.status != 0) {
            ::syslog(LOG_ERR, "%s: failed to set RF output for channel %u", __func__, channelNo);
        }
    }
    return 0;
}

int OrvanConnBenchtop::setTrgImp(uint32_t& imp)
{
    IDeviceConnectionHandler::setTrgImp(imp);
    uint32_t curImp = 0;
    getTrgImp(curImp);

    const uint32_t ch = is_routed(channelNo) ? channelNo : 1;
    I2CFd exp0(kExpanderAddress);
    if (exp0.isOpen()) {
        i2c_set_bit(exp0, GPIOA, termBitByCh[ch - 1], curImp != 0);
        if (exp0.status != 0) {
            ::syslog(LOG_ERR, "%s: failed to set trigger impedance for channel %u", __func__, channelNo);
        }
    }
    return 0;
}

int OrvanConnBenchtop::setTrgSrc(uint8_t coupleIdx)
{
    if (coupleIdx > eCoupling_all) {
        return -1;
    }
    I2CFd exp0(kExpanderAddress);
    I2CFd exp1(kExpanderAddress);
    I2CFd exp2(kSecondExpanderAddress);
    I2CFd* const fds[] = {&exp0, &exp1, &exp2};
    if (!is_routed(channelNo)) {
        return -1;
    }

    const int row = installed_row(installedChannels);
    const uint32_t chIdx = channelNo - 1;
    const uint8_t outval = outvalArray[row][coupleIdx][chIdx];
    const SrcSel& sel = srcMap[row][chIdx];
    if (sel.bit < 8) {
        i2c_set_bit(*fds[sel.fd_idx], GPIOA, sel.bit, outval != 0);
    }

    uint32_t curImp = 0;
    getTrgImp(curImp);
    const bool is10k = curImp != 0;
    i2c_set_bit(exp0, GPIOA, termBitByCh[chIdx], is10k);

    if (exp0.status == 0 && exp1.status == 0 && exp2.status == 0) {
        return 0;
    }
    ::syslog(LOG_ERR, "%s: failed to set trigger source for channel %u", __func__, channelNo);
    return -1;
}

int OrvanConnBenchtop::setModSrc(uint32_t mod, uint32_t state)
{
    OrvanDebug::Log("OrvanConnBenchtop::setModSrc started", true);
    I2CFd i2cfd0(kExpanderAddress);
    I2CFd i2cfd1(kExpanderAddress);

    const uint32_t ch_idx = is_routed(channelNo) ? channelNo - 1 : 0;
    const uint32_t mod_idx = mod < kModulations ? mod : 0;
    const bool external = state != 0;
    const uint8_t phys_ch = phys_ch_for_installed[installed_row(installedChannels)][ch_idx];
    const SeqPair& sp = seq_by_ch_mod_4ch[phys_ch][mod_idx];
    apply_seq(external ? *sp.enable : *sp.disable, i2cfd0, i2cfd1, MODE_RELAY_DELAY_US);
    OrvanDebug::Log("OrvanConnBenchtop::setModSrc end", true);

    if (i2cfd0.status == 0 && i2cfd1.status == 0) {
        return 0;
    }
    ::syslog(LOG_ERR, "%s: failed to apply modulation source sequence for channel %u", __func__, channelNo);
    return -1;
}

} // namespace HaldeElec::Orvan
