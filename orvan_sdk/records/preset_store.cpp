#include <cerrno>
#include <cstdio>
#include <cstring>

#include <syslog.h>
#include <unistd.h>

#include "dataorvan.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

using HaldeElec::Orvan::CPersistentData;

namespace {

constexpr const char* kFactoryFolder = "/home/orvan/halde/json";
constexpr const char* kPresetFolder = "/home/orvan/halde/preset";
constexpr int kFactorySetup = 0;
constexpr int kSetups = 6; // including the factory's
constexpr size_t kPathSize = 256;

} // namespace

int Scpi_Orvanx::database_store(int index)
{
    if (m_orvanData == nullptr || m_orvanDB == nullptr) {
        return -1;
    }
    if (index == kFactorySetup) {
        return -3;
    }
    char number[32];
    std::snprintf(number, sizeof number, "%d", index);

    int result = 0;
    for (int ch = 1; ch <= m_modules; ++ch) {
        ORVAN_CONFIG& record = m_orvanDB[ch - 1];
        const OnOff rf_output = record.ANALOGOUTPUT.RfOutput;
        if (!m_pwrOnRestore) {
            record.ANALOGOUTPUT.RfOutput = Off;
        }
        update_db(ch, ODT_SETUP_NO, number, sizeof number);
        char path[kPathSize];
        get_json_db_path(ch, index, path, sizeof path);
        if (m_orvanData->save_cmd_config(path, &record) != 0) {
            ::syslog(LOG_ERR, "Store failed: Mod %d, Index %d", ch, index);
            result = -1;
        }
        record.ANALOGOUTPUT.RfOutput = rf_output;
    }
    return result;
}

int Scpi_Orvanx::database_recall(int index)
{
    if (m_orvanData == nullptr || m_orvanDB == nullptr) {
        return -1;
    }

    int result = 0;
    for (int ch = 1; ch <= m_modules; ++ch) {
        ORVAN_CONFIG& record = m_orvanDB[ch - 1];
        char path[kPathSize];
        get_json_db_path(ch, index, path, sizeof path);
        if (m_orvanData->init_cmd_config(path, &record) != 0) {
            ::syslog(LOG_ERR, "Recall failed: Mod %d, Index %d", ch, index);
            result = -1;
        } else if (m_isLive[ch - 1]) {
            scpi_cmds_pass(ch, eSendPri1);
            scpi_cmds_pass(ch, eSendPri2);
        }
        record.CHANNEL.State = m_isLive[ch - 1] ? On : Off;
    }
    network_if_detect();
    return result;
}

int Scpi_Orvanx::database_clear(int index)
{
    if (index == kFactorySetup) {
        ::syslog(LOG_ERR, "Cannot delete factory default databse 0");
        return -1;
    }
    int result = 0;
    for (int ch = 1; ch <= m_modules; ++ch) {
        char path[kPathSize];
        get_json_db_path(ch, index, path, sizeof path);
        if (::unlink(path) == 0) {
            ::syslog(LOG_INFO, "Deleted: %s", path);
        } else if (errno != ENOENT) {
            ::syslog(LOG_ERR, "Clear failed: %s (%s)", path, std::strerror(errno));
            result = -1;
        }
    }
    return result;
}

int Scpi_Orvanx::validate_DB_files(int index)
{
    if (index >= kSetups) {
        return -1;
    }
    for (int ch = 1; ch <= m_modules; ++ch) {
        char path[kPathSize];
        get_json_db_path(ch, index, path, sizeof path);
        if (::access(path, F_OK) != 0) {
            ::syslog(LOG_WARNING, "Validation Failed: Config %d missing for Module %d", index, ch);
            return -1;
        }
    }
    return 0;
}

void Scpi_Orvanx::set_bootDBConfig(int cfgIdx, bool update)
{
    CPersistentData* const persistent = CPersistentData::GetInstance();
    if (persistent == nullptr) {
        return;
    }
    persistent->getSettings()->bootDBConfig = static_cast<uint8_t>(cfgIdx);
    if (update && p_devicePtr != nullptr) {
        persistent->writeData(true, true);
    }
}

int Scpi_Orvanx::get_bootDBConfig()
{
    CPersistentData* const persistent = CPersistentData::GetInstance();
    return persistent != nullptr ? persistent->getSettings()->bootDBConfig : kFactorySetup;
}

void Scpi_Orvanx::get_json_db_path(int ovx_idx, int cfg_idx, char* buff, size_t size)
{
    // The factory setup has one file for all channels; the number in its name is the setup's.
    if (cfg_idx == kFactorySetup) {
        std::snprintf(buff, size, "%s/ch%d.json", kFactoryFolder, cfg_idx);
    } else {
        std::snprintf(buff, size, "%s/%d/preset-%d.json", kPresetFolder, ovx_idx, cfg_idx);
    }
}
