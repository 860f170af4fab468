/**
 * The controller's bus layer: one SPI port behind a board multiplexer, and the hooks through which a platform
 * routes trigger, RF output and modulation.
 */
#ifndef ORVAN_SDK_I_DEVICE_CONNECTION_HANDLER_H
#define ORVAN_SDK_I_DEVICE_CONNECTION_HANDLER_H

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

/** Bytes of the longest SPI message: the 1024-byte settings blob with its command and address fits in one. */
inline constexpr size_t MAX_SPI_BUF_LEN = 1040;

/** Argument of setTrgSrc: which channels share one trigger. */
enum eCoupling {
    eCoupling_none = 0,
    eCoupling_ch2 = 1,
    eCoupling_ch3 = 2,
    eCoupling_ch4 = 3,
    eCoupling_all = 4,
};

/**
 * Base of the platforms' connection handlers; a device owns exactly one.
 *
 * Nothing here takes `mtx`. A caller that needs the bus holds it for the whole conversation; to use another
 * channel it saves the current one, selects, transfers and restores, all under `mtx`.
 */
class ORVAN_API IDeviceConnectionHandler {
public:
    IDeviceConnectionHandler() = default;

    /** Leaves the port as it is: a derived destructor calls SpiClosePort. */
    virtual ~IDeviceConnectionHandler() = default;
    IDeviceConnectionHandler(const IDeviceConnectionHandler&) = delete;
    IDeviceConnectionHandler& operator=(const IDeviceConnectionHandler&) = delete;

    /** True for both once ConfigChannelSPI has succeeded. */
    virtual bool Initialized() { return initialized; }
    virtual bool Connected() { return connected; }

    /**
     * One full-duplex SPI message to the target that the multiplexer selects for the current channel. The
     * select is released afterwards, on success and on failure.
     *
     * @param bytes_write `length` bytes to send
     * @param bytes_read  receives as many bytes
     * @param length      1 to MAX_SPI_BUF_LEN
     * @return 0; -1 when the message failed, which is logged, or, with no pin touched, before
     *         ConfigChannelSPI has succeeded or for another length
     */
    virtual int DataTransfer(const uint8_t* bytes_write, uint8_t* bytes_read, size_t length);

    /** Current channel: 1 to 4 are RF channels; a platform may know more SPI targets. @return 0 */
    virtual int SetCommChannel(uint32_t& value);
    virtual int GetCommChannel(uint32_t& value);

    /**
     * Sets up GPIO, the multiplexer's pins and the SPI port: mode 0, 8 bits, 3 MHz. Called once.
     *
     * @param chNo SPI bus, 0 or 1
     * @param csNo chip select of the bus, 0 or 1
     * @return 0, or -1 with nothing usable
     */
    virtual int ConfigChannelSPI(uint32_t chNo, uint32_t csNo);

    /** Routing of the current channel; the base has none. @return 0 */
    virtual int setTrgSrc(uint8_t coupleIdx);
    virtual int SetRFOutput(int value);
    virtual int setModSrc(uint32_t mod, uint32_t state);

    /**
     * Trigger input impedance of the current channel, stored per channel. The channel must be 1 to 16: it is
     * not checked. @return 0
     */
    virtual int setTrgImp(uint32_t& imp);
    virtual int getTrgImp(uint32_t& imp);

    /** Number of channel modules; 1 until set. */
    virtual void SetNumDevices(int value);

    /** Points the bus at the current channel and asserts its select; and releases it. */
    virtual void enableMUX() = 0;
    virtual void disableMUX() = 0;

    /** Makes the multiplexer's pins outputs, where there are any. */
    virtual void configureMuxPins() {}

    /**
     * Opens "/dev/spidev<bus>.<chip select>" and sets mode, word size and clock, each read back into its
     * field. @return 0, or -1 at the first step that failed
     */
    int SpiOpenPort(uint32_t chNo, uint32_t csNo);

    /** Closes the port; logged on failure. @return 0, or -1, also for a port that never opened */
    int SpiClosePort();

    std::mutex mtx; /**< the bus lock */

protected:
    uint32_t channelNo = 0;
    bool connected = false;
    bool initialized = false;
    unsigned char spi_mode = 0;
    unsigned char spi_bitsPerWord = 0;
    unsigned int spi_speed = 0; /**< Hz */
    int* spi_cs_fd = nullptr;   /**< the slot in use */
    int spi_cs0_fd = 0;
    int spi_cs1_fd = 0;
    int installedChannels = 1;
    int trgImp[16] = {}; /**< element is channel minus 1 */
};

} // namespace HaldeElec::Orvan

#endif
