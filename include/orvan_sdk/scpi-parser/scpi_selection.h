/**
 * A channel selection for one thread's commands.
 */
#ifndef ORVAN_SDK_SCPI_SELECTION_H
#define ORVAN_SDK_SCPI_SELECTION_H

#include "orvan_sdk/orvan_api.h"

class Scpi_Orvanx;

namespace HaldeElec::Orvan {

/**
 * While it exists, Scpi_Orvanx::getSelectedChannel and setSelectedChannel use `channel` on the thread that
 * made it, so commands executed there go to that channel, and ":INSTrument" changes it. All other threads,
 * the temperature poll among them, keep the selection that all clients share.
 *
 * Meanwhile the records show this channel as the selected one (ODT_CHAN_ENA), afterwards the shared selection
 * again.
 *
 * At most one at a time on a thread; destroyed on the thread that made it.
 */
class ORVAN_API OwnSelection {
public:
    /** @param channel 1 to 4; not checked */
    OwnSelection(Scpi_Orvanx& modules, int channel);
    ~OwnSelection();
    OwnSelection(const OwnSelection&) = delete;
    OwnSelection& operator=(const OwnSelection&) = delete;

    /** The channel selected now. */
    int channel() const { return m_channel; }

private:
    friend class ::Scpi_Orvanx;

    Scpi_Orvanx& m_modules;
    int m_channel;
    const int m_shared; // the selection of all others at the start
};

} // namespace HaldeElec::Orvan

#endif
