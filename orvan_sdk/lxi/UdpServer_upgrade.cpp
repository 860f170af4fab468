#include <cstdlib>
#include <string>
#include <system_error>

#include <sys/wait.h>
#include <syslog.h>

#include "orvan_fs_utils.h"
#include "orvan_sdk/lxi/UdpServer.h"

namespace HaldeElec::Orvan {

// NOLINTNEXTLINE(performance-unnecessary-value-param): as the interface has it
void CUdpServer::createNewParent(std::string filePathScript)
{
    OrvanFSUtils::createFileName(ORVAN_SW_UPDATE_FILE_INIT);
    OrvanFSUtils::writeTxtLineToFile(ORVAN_SW_UPDATE_FILE_INIT, filePathScript.c_str());
}

void CUdpServer::launch_upgrade_service()
{
    // Not run_system_cmd, which does not distinguish an exit code from a signal.
    const int status = std::system("systemctl start orvan-upgrade.service");
    if (status == -1) {
        ::syslog(LOG_ERR, "Failed to fork for upgrade service");
    } else if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        ::syslog(LOG_ERR, "Upgrade service exited with code %d", WEXITSTATUS(status));
    } else {
        ::syslog(LOG_INFO, "Upgrade service launched successfully");
    }
}

void CUdpServer::CleanUpgrdaeFW_Files()
{
    if (OrvanFSUtils::getFileLen(ORVAN_SW_UPDATE_FILE_DELETE) == 0) {
        return;
    }
    ::syslog(LOG_INFO, "[CUdpServer::CleanUpgrdaeFiles] upgrade_clean_files_objects thread start");
    try {
        m_upgradeFileCleanupThread = std::thread(upgrade_clean_files_objects, this);
        m_upgradeFileCleanupThread.detach();
    } catch (const std::system_error& error) {
        ::syslog(LOG_ERR, "[CUdpServer] no clean-up thread: %s", error.what());
    }
}

int CUdpServer::upgrade_clean_files_objects(void*)
{
    ::syslog(LOG_INFO, "[upgrade service]: Removing installation files");
    if (OrvanFSUtils::delete_files_in_dir(SOFT_UPDATE_PATH) < 0) {
        ::syslog(LOG_ERR, "[upgrade service]: software cleanup failed");
    } else {
        ::syslog(LOG_INFO, "[upgrade service]: software cleanup OK");
    }
    if (OrvanFSUtils::ifFileExists(ORVAN_SW_UPDATE_FILE_DELETE)) {
        ::syslog(LOG_ERR, "[upgrade service]: delete mark found. failed to cleanup files");
    }
    return 0;
}

} // namespace HaldeElec::Orvan
