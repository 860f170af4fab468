#ifndef ORVAN_SERVICE_POWER_BUTTON_H
#define ORVAN_SERVICE_POWER_BUTTON_H

namespace HaldeElec::Orvan {
class IOrvanDeviceManager;
}

namespace orvan_service {

/**
 * The power button of the instrument: pressed, it ends the service in order, as SIGTERM does. A press that
 * was over before this object was made counts for nothing; one that still lasts then counts at its release on
 * the benchtop and the third platform, whose port expander reports both edges.
 */
class PowerButton {
public:
    /**
     * @param device must outlive this object, and the press of a button that is held now. It logs by itself
     * when its interrupt can't be set up.
     */
    explicit PowerButton(HaldeElec::Orvan::IOrvanDeviceManager& device);

    /**
     * After the end of the service, with no command at work: if the button ended it, waits until it is let
     * go, without a limit, so that nothing that follows takes the same press for another one.
     */
    void wait_for_release();

private:
    HaldeElec::Orvan::IOrvanDeviceManager& m_device;
};

} // namespace orvan_service

#endif
