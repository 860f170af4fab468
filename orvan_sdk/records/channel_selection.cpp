#include "records/channel_selection.h"

#include "dataorvan.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_selection.h"

namespace {

thread_local HaldeElec::Orvan::OwnSelection* own_selection = nullptr;

} // namespace

void Scpi_Orvanx::setSelectedChannel(int channel)
{
    if (own_selection != nullptr) {
        own_selection->m_channel = channel;
    } else {
        m_channelNo = channel;
    }
}

int Scpi_Orvanx::getSelectedChannel()
{
    return own_selection != nullptr ? own_selection->m_channel : m_channelNo;
}

namespace HaldeElec::Orvan {

OwnSelection::OwnSelection(Scpi_Orvanx& modules, int channel)
    : m_modules(modules), m_channel(channel), m_shared(modules.getSelectedChannel())
{
    own_selection = this;
    if (m_channel != m_shared) {
        mirror_selection(m_modules);
    }
}

OwnSelection::~OwnSelection()
{
    own_selection = nullptr;
    if (m_channel != m_shared) {
        mirror_selection(m_modules);
    }
}

void mirror_selection(Scpi_Orvanx& orvanx)
{
    for (int ch = 1; ch <= orvanx.getNumberofChannels(); ++ch) {
        update_orvan_DB(orvanx.get_channelDB(ch), orvanx.get_ElemByTag(ODT_CHAN_ENA),
                        ch == orvanx.getSelectedChannel() ? "1" : "0");
    }
}

} // namespace HaldeElec::Orvan
