#include "orvan_sdk/IDeviceConnectionHandler.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <syslog.h>

#include <wiringPi.h>

#include "hw/hw.h"
#include "orvan_sdk/OrvanDebug.h"

namespace HaldeElec::Orvan {

int IDeviceConnectionHandler::DataTransfer(const uint8_t* bytes_write, uint8_t* bytes_read, size_t length)
{
    if (!connected || !initialized || length < 1 || length > MAX_SPI_BUF_LEN) {
        return -1;
    }

    enableMUX();
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<uintptr_t>(bytes_write);
    transfer.rx_buf = reinterpret_cast<uintptr_t>(bytes_read);
    transfer.len = static_cast<uint32_t>(length);
    transfer.speed_hz = spi_speed;
    transfer.delay_usecs = 0;
    transfer.bits_per_word = spi_bitsPerWord;
    transfer.cs_change = 0;
    const int result = hw_spi_ioctl(*spi_cs_fd, SPI_IOC_MESSAGE(1), &transfer);
    disableMUX();

    if (result < 0) {
        ::syslog(LOG_INFO, "sendDataBySPI - error : %d", result);
        return -1;
    }
    return 0;
}

int IDeviceConnectionHandler::SetCommChannel(uint32_t& value)
{
    channelNo = value;
    return 0;
}

int IDeviceConnectionHandler::GetCommChannel(uint32_t& value)
{
    value = channelNo;
    return 0;
}

int IDeviceConnectionHandler::ConfigChannelSPI(uint32_t chNo, uint32_t csNo)
{
    try {
        wiringPiSetup();
        configureMuxPins();
        spi_mode = SPI_MODE_0;
        spi_bitsPerWord = 8;
        spi_speed = 3'000'000;
        if (SpiOpenPort(chNo, csNo) != 0) {
            return -1;
        }
        initialized = true;
        connected = true;
        return 0;
    } catch (...) {
        return -1;
    }
}

int IDeviceConnectionHandler::setTrgSrc(uint8_t)
{
    return 0;
}

int IDeviceConnectionHandler::SetRFOutput(int)
{
    return 0;
}

int IDeviceConnectionHandler::setModSrc(uint32_t, uint32_t)
{
    return 0;
}

int IDeviceConnectionHandler::setTrgImp(uint32_t& imp)
{
    trgImp[static_cast<int>(channelNo) - 1] = static_cast<int>(imp);
    return 0;
}

int IDeviceConnectionHandler::getTrgImp(uint32_t& imp)
{
    imp = static_cast<uint32_t>(trgImp[static_cast<int>(channelNo) - 1]);
    return 0;
}

void IDeviceConnectionHandler::SetNumDevices(int value)
{
    installedChannels = value;
}

int IDeviceConnectionHandler::SpiOpenPort(uint32_t chNo, uint32_t csNo)
{
    static constexpr const char* kNodes[2][2] = {{"/dev/spidev0.0", "/dev/spidev0.1"},
                                                 {"/dev/spidev1.0", "/dev/spidev1.1"}};

    // Bus 0 uses the slot named after select 1: the slot depends on the bus, not on the chip select.
    spi_cs_fd = chNo == 0 ? &spi_cs1_fd : &spi_cs0_fd;
    const int fd = *spi_cs_fd = hw_spi_open(kNodes[chNo != 0][csNo != 0], O_RDWR);
    if (fd < 0) {
        return -1;
    }

    const struct {
        unsigned long request;
        void* value;
    } settings[] = {
        {SPI_IOC_WR_MODE, &spi_mode},
        {SPI_IOC_RD_MODE, &spi_mode},
        {SPI_IOC_WR_BITS_PER_WORD, &spi_bitsPerWord},
        {SPI_IOC_RD_BITS_PER_WORD, &spi_bitsPerWord},
        {SPI_IOC_WR_MAX_SPEED_HZ, &spi_speed},
        {SPI_IOC_RD_MAX_SPEED_HZ, &spi_speed},
    };
    for (const auto& setting : settings) {
        if (hw_spi_ioctl(fd, setting.request, setting.value) < 0) {
            return -1;
        }
    }
    return 0;
}

int IDeviceConnectionHandler::SpiClosePort()
{
    const int result = hw_spi_close(spi_cs_fd != nullptr ? *spi_cs_fd : -1);
    if (result < 0) {
        OrvanDebug::Log("Error - Could not close SPI device", true);
    }
    return result;
}

} // namespace HaldeElec::Orvan
