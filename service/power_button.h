#ifndef ORVAN_SERVICE_POWER_BUTTON_H
#define ORVAN_SERVICE_POWER_BUTTON_H

namespace HaldeElec::Orvan {
class IOrvanDeviceManager;
}

namespace orvan_service {

/**
 * The power button of the instrument: a press ends the service cleanly, as SIGTERM does. A press that ended
 * before this object was created is ignored; one still held then counts at its release on the benchtop and
 * the third platform, whose port expander reports both edges.
 */
class PowerButton {
public:
    /**
     * @param device must outlive this object and a press in progress. It logs a failure to set up its
     * interrupt itself.
     */
    explicit PowerButton(HaldeElec::Orvan::IOrvanDeviceManager& device);

    /**
     * To be called after the end of the service, with no command running: if the button ended it, waits
     * without a limit until it is released, so that nothing later takes the same press for another.
     */
    void wait_for_release();

private:
    HaldeElec::Orvan::IOrvanDeviceManager& m_device;
};

} // namespace orvan_service

#endif
