#include <algorithm>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>

#include <syslog.h>

#include "dataorvan.h"
#include "hw/hw.h"
#include "module_request.h"
#include "orvan_sdk/bit/bit_manager.h"
#include "orvan_sdk/bit/bit_tests.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "orvan_sdk/scpi-parser/scpi_progress.h"

using HaldeElec::Orvan::request_module;
using HaldeElec::Orvan::request_own_server;

namespace {

constexpr uint64_t TIME_INTERVAL_TEMP = 30000; // milliseconds
constexpr double kAlarmTemperature = 65.0;
// For a module that returned none: the fans treat a failed poll as a hot instrument.
constexpr double kSubstituteTemperature = 100.0;
constexpr std::string_view kQuery = ":SYST:TEMP?\r\n";

constexpr const char* kThreadException = "Temperature thread exception: %s\n";

} // namespace

void Scpi_Orvanx::startTempratureThread()
{
    m_runTemperatureThread = true;
    try {
        m_temperatureThread = std::thread(&Scpi_Orvanx::ThreadRunTempratureFunction, this);
    } catch (const std::system_error& error) {
        ::syslog(LOG_ERR, kThreadException, error.what());
    }
}

void Scpi_Orvanx::ThreadRunTempratureFunction()
{
    scpi_ignore_progress_of_this_thread();
    try {
        m_runTemperatureThread = true;
        ::syslog(LOG_INFO, "ThreadRunTempratureFunction: thread running\n");
        while (m_runTemperatureThread) {
            hw_delay_us(TIME_INTERVAL_TEMP * 1000);
            getTempOrvanXForAlltheChannel(m_modules);
        }
        ::syslog(LOG_INFO, "ThreadRunTempratureFunction: thread exit\n");
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, kThreadException, error.what());
    } catch (...) {
        ::syslog(LOG_ERR, "Temperature thread unknown exception!\n");
    }
}

bool Scpi_Orvanx::getTempOrvanXForAlltheChannel(int num)
{
    num = std::min(num, kMaxChannels);
    const int selected = m_channelNo;
    const int scpiPort = m_scpiPort;
    int devTempBitMask = 0; // bit n - 1: channel n is too hot
    bool deviceIsDown = false;

    for (int ch = 1; ch <= num; ++ch) {
        const int index = ch - 1;
        m_polledChannel = ch == selected ? ch : 0;
        std::string reply =
            ch == selected ? request_own_server(*this, scpiPort, kQuery) : request_module(*this, ch, kQuery);
        m_polledChannel = 0;
        double temperature = kSubstituteTemperature;
        if (checkOrvanReply(reply)) {
            reply.resize(std::min(reply.find(';'), reply.size()));
            update_db(ch, ODT_TEMP, reply.data(), reply.size());
            temperature = std::stod(reply);
            m_isLive[index] = true;
            if (temperature >= kAlarmTemperature) {
                devTempBitMask |= 1 << index;
            }
        } else {
            ::syslog(LOG_WARNING, "Failed to get temperature: %s\n", reply.c_str());
            m_isLive[index] = false;
            deviceIsDown = true;
        }
        m_temprature[index] = temperature;
    }
    if (num > 0) {
        m_max_temprature = *std::max_element(m_temprature, m_temprature + num);
    }

    if (BITManager* const manager = BITManager::getInstance(kCbitPeriod)) {
        // If all have answered, the "MODULES test" is not reported: its last failure remains until a module
        // is down again.
        if (deviceIsDown) {
            modules_bit(num, CBIT);
        } else {
            manager->setTestResult(CBIT, kTempTest, BIT_PASS, 0);
        }
        manager->setTestResult(CBIT, kTempTest, devTempBitMask != 0 ? BIT_FAIL : BIT_PASS, devTempBitMask);
    }
    return true;
}

std::string Scpi_Orvanx::getTempratureForOrvanXResponse()
{
    ::syslog(LOG_INFO, "getTempratureForOrvanXResponse start\n");
    try {
        getTempOrvanXForAlltheChannel(m_modules);
    } catch (const std::exception& error) {
        ::syslog(LOG_ERR, "getTempratureForOrvanXResponse: %s", error.what());
    }
    return std::to_string(m_max_temprature);
}
