#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

#include <sys/mman.h>
#include <syslog.h>

#include "dataorvan.h"
#include "orvan_sdk/scpi-parser/scpi_parser.h"

Scpi_Orvanx* Scpi_Orvanx::m_instance = nullptr;

Scpi_Orvanx* Scpi_Orvanx::getInstance()
{
    if (m_instance == nullptr) {
        ::syslog(LOG_USER | LOG_ERR, "Scpi_Orvanx :: getInstance");
        m_instance = new Scpi_Orvanx();
    }
    return m_instance;
}

Scpi_Orvanx::Scpi_Orvanx() : p_scpi_parser(new ScpiParser)
{
    p_scpi_parser->init_new_scpi(this);
    setTrigSourceCouple(0);
    ::syslog(LOG_DEBUG, "Singleton instance created");
}

Scpi_Orvanx::~Scpi_Orvanx()
{
    m_runTemperatureThread = false;
    if (m_temperatureThread.joinable()) {
        m_temperatureThread.join();
    }
    delete p_scpi_parser;
    p_scpi_parser = nullptr;
    if (m_orvanDB != nullptr) {
        ::munmap(m_orvanDB, static_cast<size_t>(m_modules) * sizeof(ORVAN_CONFIG));
        m_orvanDB = nullptr;
        ::shm_unlink(g_shmemName);
        delete m_orvanData;
    }
    m_instance = nullptr;
    ::syslog(LOG_DEBUG, "Singleton instance destroy");
}

void Scpi_Orvanx::setDevicePtr(void* ptrDevice)
{
    p_devicePtr = ptrDevice;
    if (p_scpi_parser != nullptr) {
        p_scpi_parser->setDevicePtr(ptrDevice);
    }
}

bool Scpi_Orvanx::isExternalCommand()
{
    return p_scpi_parser != nullptr && p_scpi_parser->isExternalCommand();
}

int Scpi_Orvanx::sendScpiToNewParser(char* buffer, int valread)
{
    return p_scpi_parser != nullptr ? p_scpi_parser->sendCommandToNewScpiParser(buffer, valread) : 0;
}

void Scpi_Orvanx::connection_abort(int sd)
{
    if (p_scpi_parser != nullptr) {
        p_scpi_parser->connection_abort(sd);
    }
}

int Scpi_Orvanx::setCallerSocket(int socket, int deviceArch)
{
    if (p_scpi_parser == nullptr) {
        ::syslog(LOG_ERR, "setCallerSocket: cannot get SCPI");
        return -1;
    }
    p_scpi_parser->setCallerSocket(socket, deviceArch);
    return 1;
}
