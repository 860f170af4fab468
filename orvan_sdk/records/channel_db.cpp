#include <cerrno>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "dataorvan.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

namespace {

constexpr int kFactorySetup = 0;

const char* null_or_ok(const void* pointer)
{
    return pointer == nullptr ? "null" : "ok";
}

} // namespace

int Scpi_Orvanx::load_database(int defaultCfg)
{
    if (m_modules == 0) {
        return -4;
    }
    if (validate_DB_files(defaultCfg) != 0) {
        defaultCfg = kFactorySetup;
        set_bootDBConfig(kFactorySetup, false);
    }
    m_defaultBootCfg = defaultCfg;

    m_orvanData = new (std::nothrow) OrvanData();
    if (m_orvanData == nullptr) {
        ::syslog(LOG_ERR, "Failed to create OrvanData class");
        return -1;
    }
    const int fd = ::shm_open(g_shmemName, O_RDWR | O_CREAT, 0666);
    if (fd < 0) {
        ::syslog(LOG_ERR, "Failed to open shared memory: %s (errno=%d)\n", std::strerror(errno), errno);
        return -1;
    }
    const size_t size = static_cast<size_t>(m_modules) * sizeof(ORVAN_CONFIG);
    if (::ftruncate(fd, static_cast<off_t>(size)) != 0) {
        ::syslog(LOG_ERR, "Failed to allocate shared memory for Orvan DB");
        ::shm_unlink(g_shmemName);
        return -1;
    }
    void* const mapping = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    m_orvanDB = static_cast<ORVAN_CONFIG*>(mapping);
    if (mapping == MAP_FAILED) {
        ::syslog(LOG_ERR, "Failed to map shared memory for Orvan DB");
        ::shm_unlink(g_shmemName);
        return -1;
    }
    if (database_recall(defaultCfg) != 0) {
        ::syslog(LOG_ERR, "Failed to load default database on boot");
        return -1;
    }
    ::close(fd);
    return 0;
}

const OrvanElementData* Scpi_Orvanx::get_ElemByTag(int32_t tag)
{
    return m_orvanData == nullptr || tag < 0 ? nullptr : &OrvanData::orvanMap[tag];
}

uint8_t* Scpi_Orvanx::get_channelDB()
{
    const int channel = getSelectedChannel();
    return m_orvanDB == nullptr || channel < 1 ? nullptr
                                               : reinterpret_cast<uint8_t*>(m_orvanDB + channel - 1);
}

uint8_t* Scpi_Orvanx::get_channelDB(int ch)
{
    return m_orvanDB == nullptr || ch == 0 || ch > kMaxChannels
               ? nullptr
               : reinterpret_cast<uint8_t*>(m_orvanDB + ch - 1);
}

int Scpi_Orvanx::update_db(int ch, int tag, char* buff, size_t size)
{
    if (buff == nullptr || size == 0) {
        ::syslog(LOG_ERR, "invalid input: buff = %s, size = %zu", null_or_ok(buff), size);
        return -1;
    }
    uint8_t* const base = get_channelDB(ch);
    if (base == nullptr) {
        return -1;
    }
    update_orvan_DB(base, get_ElemByTag(tag), buff);
    return 0;
}

int Scpi_Orvanx::update_db(uint8_t* base, int tag, char* buff, size_t size)
{
    if (base == nullptr || buff == nullptr || size == 0) {
        ::syslog(LOG_ERR, "invalid input: base=%s, buff = %s, size = %zu", null_or_ok(base), null_or_ok(buff),
                 size);
        return -1;
    }
    buff[size - 1] = '\0';
    update_orvan_DB(base, get_ElemByTag(tag), buff);
    return 0;
}

void Scpi_Orvanx::updateDBFeature(uint8_t* base, int* tags, int count, char* buff, size_t size)
{
    if (base == nullptr || tags == nullptr || buff == nullptr || size == 0) {
        return;
    }
    for (int i = 0; i < count; ++i) {
        update_db(base, tags[i], buff, size);
    }
}
