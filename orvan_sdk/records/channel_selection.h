#ifndef ORVAN_SDK_CHANNEL_SELECTION_H
#define ORVAN_SDK_CHANNEL_SELECTION_H

class Scpi_Orvanx;

namespace HaldeElec::Orvan {

/** Records in every installed channel's record whether it is selected (ODT_CHAN_ENA). */
void mirror_selection(Scpi_Orvanx& orvanx);

} // namespace HaldeElec::Orvan

#endif
