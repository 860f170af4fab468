/**
 * Bus layer of the benchtop: the SPI multiplexer, and the switches for RF output, trigger and external
 * modulation of up to four channels.
 */
#ifndef ORVAN_SDK_BENCHTOP_ORVANCONNBENCHTOP_H
#define ORVAN_SDK_BENCHTOP_ORVANCONNBENCHTOP_H

#include "orvan_sdk/board/OrvanConnMultiplexed.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/**
 * Routing works on the current channel and depends on the number of installed channels. It takes no lock: the
 * channel must not change during a call, and no other thread may write the same expander port.
 */
class ORVAN_API OrvanConnBenchtop : public OrvanConnMultiplexed {
public:
    OrvanConnBenchtop();

    /**
     * Trigger coupling of the current channel; its input termination is applied again.
     *
     * @param coupleIdx an eCoupling
     * @return 0; -1 for an index above eCoupling_all or a channel outside 1 to 4, and, logged, when an
     *         expander failed
     */
    int setTrgSrc(uint8_t coupleIdx) override;

    /**
     * RF output enable. Does nothing where there is no such switch: for a channel or a number of installed
     * channels outside 1 to 4, and for channels 3 and 4 of two. With one or three installed, a channel that
     * is not there switches the output of slot 4.
     *
     * @param value 0 off, else on
     * @return 0, also after a failure, which is logged. An expander that is not fitted is skipped
     */
    int SetRFOutput(int value) override;

    /**
     * Connects or disconnects the current channel's external modulation input. The relays take 50 ms for each
     * strobe and another 50 ms after the first, up to 150 ms in all.
     *
     * @param mod   0 AM, 1 FM, 2 pulse; any other counts as AM
     * @param state 0 disconnects, else connects. A channel outside 1 to 4 counts as 1
     * @return 0; -1, and logged, when an access failed
     */
    int setModSrc(uint32_t mod, uint32_t state) override;

    /**
     * Keeps the trigger input impedance and switches the termination: 0 clears the channel's bit, else sets
     * it. The channel must be 1 to 16, and one above 4 switches the bit of channel 1.
     *
     * @return 0, also after a failure, which is logged. An expander that is not fitted is skipped
     */
    int setTrgImp(uint32_t& imp) override;
};

} // namespace HaldeElec::Orvan

#endif
