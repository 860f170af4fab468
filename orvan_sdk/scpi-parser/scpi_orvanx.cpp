#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

#include <chrono>
#include <syslog.h>
#include <system_error>
#include <vector>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

Scpi_Orvanx* Scpi_Orvanx::m_instance = nullptr;

Scpi_Orvanx* Scpi_Orvanx::getInstance()
{
    if (m_instance == nullptr) {
        syslog(LOG_USER | LOG_ERR, "Scpi_Orvanx :: getInstance");
        m_instance = new Scpi_Orvanx();
    }
    return m_instance;
}

Scpi_Orvanx::Scpi_Orvanx() : p_scpi_parser(new ScpiParser)
{
    p_scpi_parser->init_new_scpi(this);
    setTrigSourceCouple(0);
    syslog(LOG_DEBUG, "Singleton instance created");
}

Scpi_Orvanx::~Scpi_Orvanx()
{
    m_runTemperatureThread = false;
    if (m_temperatureThread.joinable())
        m_temperatureThread.join();
    delete p_scpi_parser;
    p_scpi_parser = nullptr;
    m_instance = nullptr;
    syslog(LOG_DEBUG, "Singleton instance destroy");
}

void Scpi_Orvanx::setDevicePtr(void* ptrDevice)
{
    p_devicePtr = ptrDevice;
    if (p_scpi_parser != nullptr)
        p_scpi_parser->setDevicePtr(ptrDevice);
}

bool Scpi_Orvanx::isExternalCommand()
{
    return p_scpi_parser != nullptr && p_scpi_parser->isExternalCommand();
}

void Scpi_Orvanx::wait_for_channels_ready(int numChannels, int max_wait_sec)
{
    if (numChannels < 1 || numChannels > kMaxChannels)
        return;
    const steady_clock::time_point deadline = steady_clock::now() + std::chrono::seconds(max_wait_sec);

    const auto poll_until_ready = [this, deadline](int ch) {
        static const std::string kSelfTestQuery = "*TST?\r\n";
        milliseconds delay_ms(100);
        while (steady_clock::now() < deadline) {
            const std::string reply =
                SendSCPIOrvanX(kSelfTestQuery.data(), static_cast<int>(kSelfTestQuery.size()),
                               m_orvanXIp[ch - 1], static_cast<int>(m_OrvanXport[ch - 1]));
            if (checkOrvanReply(reply)) {
                m_isLive[ch - 1] = true;
                return;
            }
            std::this_thread::sleep_for(delay_ms);
            // 1000 bounds the doubling, not the delay: from 800 it goes on to 1600 and stays there.
            if (delay_ms < milliseconds(1000))
                delay_ms *= 2;
        }
    };

    std::vector<std::thread> workers;
    workers.reserve(static_cast<size_t>(numChannels));
    for (int ch = 1; ch <= numChannels; ++ch) {
        try {
            workers.emplace_back(poll_until_ready, ch);
        } catch (const std::system_error& error) {
            syslog(LOG_ERR, "%s: channel %d not polled: %s", __func__, ch, error.what());
        }
    }
    for (std::thread& worker : workers)
        worker.join();
}
