#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include <dirent.h>
#include <syslog.h>
#include <unistd.h>

#include "module_request.h"
#include "orvan_fs_utils.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"

using HaldeElec::Orvan::request_every_module;

namespace {

constexpr const char* kFpgaCommand = ":SYST:UPD:FPGA";
constexpr const char* kSoftwareCommand = ":SYST:UPD:SOFT";
constexpr std::string_view kRestartCommand = ":SYST:REST\r\n";
constexpr std::string_view kEnd = "\r\n";

// What precedes the image: the command and the header of a definite length block.
std::string update_header(const char* command, long long size)
{
    const std::string length = std::to_string(size);
    return std::string(command) + " #" + std::to_string(length.size()) + length;
}

// Without an image this is the folder's path. Every match is appended, so two yield an invalid path.
std::string find_fpga_image()
{
    std::string path = SW_UPDATE_PATH_ORVANX;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), ::closedir);
    while (folder != nullptr) {
        errno = 0;
        const dirent* const entry = ::readdir(folder.get());
        if (entry == nullptr) {
            if (errno != 0) {
                ::syslog(LOG_INFO, "readdir(%s): %s", SW_UPDATE_PATH_ORVANX, std::strerror(errno));
            }
            break;
        }
        ::syslog(LOG_INFO, "%s", entry->d_name);
        if (std::strstr(entry->d_name, ORVANXFPGAFILEKEYWORD) == nullptr) {
            continue;
        }
        path += std::string("/") + entry->d_name;
        ::syslog(LOG_INFO, "Full path of FPGA File:%s", path.c_str());
    }
    return path;
}

} // namespace

bool Scpi_Orvanx::sendFPGAUpdateSCPICommandtoOrvanX()
{
    ::syslog(LOG_INFO, "sendFPGAUpdateSCPICommandtoOrvanX start ");
    bool result = true;

    const std::string path = find_fpga_image();
    std::ifstream file;
    std::error_code ignored;
    // On some file systems a folder can be opened and has a length; it must not be sent as an image.
    if (!std::filesystem::is_directory(path, ignored)) {
        file.open(path, std::ios::binary | std::ios::ate);
    }
    if (!file.is_open()) {
        ::syslog(LOG_INFO, "sendFPGAUpdateSCPICommandtoOrvanX file not open ");
    }
    const std::streamoff size = file.tellg();
    file.seekg(0, std::ios::beg);
    std::vector<char> image(static_cast<size_t>(size)); // throws for -1, a file that is not open
    if (!file.read(image.data(), static_cast<std::streamsize>(size))) {
        std::cerr << "Error: Could not read file!" << std::endl;
        ::syslog(LOG_INFO, "sendFPGAUpdateSCPICommandtoOrvanX file not read ");
        result = false;
    }
    file.close();

    const std::string header = update_header(kFpgaCommand, size);
    ::syslog(LOG_INFO, "sendFPGAUpdateSCPICommandtoOrvanX loop start %s", header.c_str());
    std::vector<char> command;
    command.reserve(header.size() + image.size() + kEnd.size());
    command.insert(command.end(), header.begin(), header.end());
    command.insert(command.end(), image.begin(), image.end());
    command.insert(command.end(), kEnd.begin(), kEnd.end());
    ::syslog(LOG_INFO, "sendFPGAUpdateSCPICommandtoOrvanX loop exit %s", header.c_str());

    const auto announce = [](int) { ::syslog(LOG_INFO, "sending FPGA command to orvix module"); };
    request_every_module(*this, {command.data(), command.size()}, announce,
                         [&](int, const std::string& reply) { result = checkOrvanReply(reply); });
    ::syslog(LOG_INFO, "sendFPGAUpdateSCPICommandtoOrvanX end ");
    return result;
}

bool Scpi_Orvanx::sendSoftwareUpdate()
{
    ::syslog(LOG_INFO, "sendSoftwareUpdate start");
    const OrvanFSUtils& files = *OrvanFSUtils::getInstance();
    char path[PATH_MAX];
    if (!files.findFirstFileContaining(SW_UPDATE_PATH_ORVANX, ORVANXFILEKEYWORD, path, sizeof path,
                                       FS_FIND_FILE)) {
        ::syslog(LOG_ERR, "No OrvanX update file found in %s", SW_UPDATE_PATH_ORVANX);
        return false;
    }
    const uint32_t size = files.getFileLen(path);
    if (size == 0) {
        ::syslog(LOG_ERR, "Invalid update file size: %s", path);
        return false;
    }
    std::unique_ptr<char[]> image(new (std::nothrow) char[size]);
    if (image == nullptr) {
        ::syslog(LOG_ERR, "Failed to allocate %u bytes for update file", size);
        return false;
    }
    if (!files.readBufferFromFile(path, image.get(), size)) {
        ::syslog(LOG_ERR, "Failed to read update file: %s", path);
        return false;
    }

    const std::string header = update_header(kSoftwareCommand, size);
    const size_t length = header.size() + size + kEnd.size();
    std::unique_ptr<char[]> command(new (std::nothrow) char[length]);
    if (command == nullptr) {
        ::syslog(LOG_ERR, "Failed to allocate %zu bytes for SCPI update command", length);
        return false;
    }
    char* const block = std::copy(header.begin(), header.end(), command.get());
    std::copy(kEnd.begin(), kEnd.end(), std::copy_n(image.get(), size, block));

    bool result = true;
    const auto announce = [](int index) {
        ::syslog(LOG_INFO, "Sending software update to OrvanX module %d", index);
    };
    request_every_module(*this, {command.get(), length}, announce, [&](int index, const std::string& reply) {
        if (checkOrvanReply(reply)) {
            return;
        }
        ::syslog(LOG_ERR, "OrvanX module %d software update failed", index);
        result = false;
    });
    command.reset();
    image.reset();
    if (::unlink(path) != 0) {
        ::syslog(LOG_ERR, "failed to remove %s: %s", path, std::strerror(errno));
    }
    return result;
}

bool Scpi_Orvanx::sendDeviceRestart()
{
    ::syslog(LOG_INFO, "sendDeviceRestart start");
    const auto announce = [](int index) {
        ::syslog(LOG_INFO, "Sending restart command to OrvanX module %d", index);
    };
    request_every_module(*this, kRestartCommand, announce, [](int, const std::string&) {});
    return true;
}

bool Scpi_Orvanx::sendSWUpdateToOrvanX()
{
    ::syslog(LOG_INFO, "sendSoftwareUpdateAndRestart start");
    if (!sendSoftwareUpdate()) {
        ::syslog(LOG_ERR, "Software update command failed. Skip OrvanX restart.");
        return false;
    }
    ::syslog(LOG_INFO, "Software update command succeeded. Restart OrvanX modules.");
    return sendDeviceRestart();
}

long get_file_size(const char* path)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "r"), std::fclose);
    if (file == nullptr || std::fseek(file.get(), 0, SEEK_END) != 0) {
        return -1;
    }
    return std::ftell(file.get());
}
