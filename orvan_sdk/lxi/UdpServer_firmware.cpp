#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <endian.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include "orvan_fs_utils.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/lxi/UdpServer.h"
#include "orvan_sdk/scpi-parser/scpi_orvanx.h"
#include "sys_cmd.h"

namespace HaldeElec::Orvan {
namespace {

constexpr const char* devicePath = "host_sw";
constexpr const char* SOFT_PACKAGE = "software_update.tar.gz";
constexpr const char* kOwner = "orvan";
constexpr mode_t kFolderMode = 0755;
constexpr size_t kPathSize = 1024;

// By DeviceProductType.
constexpr struct {
    const char* pre_name;   // in the name of the package's folder
    const char* readFolder; // in the name of the controller's archive
} kPackages[] = {
    {"Orvan_Portable_FW", "portable_fw"},
    {"Orvan_Benchtop_FW", "benchtop_fw"},
    {"Orvan_Ksr7000_FW", "ksr7000_fw"},
};

constexpr int kBlockTimeoutS = 2;
constexpr int kBurnTimeoutS = 10; // from the end of the image
constexpr uint16_t kFinalMode = 0xFFFF;

void set_receive_timeout(int fd, int seconds)
{
    const timeval timeout = {seconds, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
}

// Bytes announced beyond the end of the frame are zero.
void write_block(FILE* file, const HALDE_PACKET& frame, size_t size)
{
    std::fwrite(frame.data, 1, std::min(size, sizeof frame.data), file);
    for (size_t i = sizeof frame.data; i < size; ++i) {
        std::fputc(0, file);
    }
}

void make_update_folder(const char* path)
{
    OrvanFSUtils::mkdir_recursive(path, kFolderMode);
    const passwd* const owner = ::getpwnam(kOwner);
    if (owner != nullptr) {
        [[maybe_unused]] const int ignored = ::chown(path, owner->pw_uid, owner->pw_gid);
    }
}

bool find(const std::string& folder, const char* word, FsFindKind kind, std::string& path)
{
    char found[kPathSize];
    if (!OrvanFSUtils::findFirstFileContaining(folder.c_str(), word, found, sizeof found, kind)) {
        return false;
    }
    path = found;
    return true;
}

std::string unpack_command(const std::string& archive, const std::string& folder)
{
    return "tar -xvf " + archive + " -C " + folder;
}

const char* success_or_failure(bool success)
{
    return success ? "success" : "failure";
}

} // namespace

ssize_t CUdpServer::receive_frame(Event& event)
{
    socklen_t from_size = sizeof event.from;
    return ::recvfrom(m_hSocket, &buff, sizeof buff, 0, reinterpret_cast<sockaddr*>(&event.from), &from_size);
}

bool CUdpServer::send_header(const Event& event, const HALDE_PACKET& frame)
{
    return ::sendto(m_hSocket, &frame, ACK_ONLY_LEN, 0, reinterpret_cast<const sockaddr*>(&event.from),
                    sizeof event.from) == static_cast<ssize_t>(ACK_ONLY_LEN);
}

void CUdpServer::acknowledge(const Event& event, uint16_t block)
{
    buff.block = htons(block);
    buff.size = 0;
    send_header(event, buff);
}

void CUdpServer::send_error(const Event& event, uint32_t code)
{
    HALDE_PACKET frame = {};
    kOpcodeModule.copy(frame.opcode, sizeof frame.opcode);
    frame.size = htons(EOD);
    frame.stateMode = kFinalMode;
    frame.info = htole32(code);
    send_header(event, frame);
}

int CUdpServer::RecvFirmwareFileFromHEUpdateTool(const char* filePathToSave)
{
    ::syslog(LOG_INFO, "RecvFirmwareFileFromHEUpdateTool start");
    set_receive_timeout(m_hSocket, RECV_TIMEOUT_S); // never reset
    uint16_t next_block = 1;
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(filePathToSave, "wb"), std::fclose);
    if (file == nullptr) {
        ::syslog(LOG_INFO, "cannot open %s for writing", filePathToSave);
        return -1;
    }
    for (;;) {
        Event event;
        if (receive_frame(event) < 0) {
            if (errno == EAGAIN) {
                continue;
            }
            ::syslog(LOG_INFO, "recv error (%s)", std::strerror(errno));
            return -1;
        }
        const uint16_t blk = ntohs(buff.block);
        const uint16_t size = ntohs(buff.size);
        if (blk == 0) { // the tool starts over
            next_block = 1;
            std::rewind(file.get());
        } else if (blk != next_block) {
            continue;
        } else if (size == EOD) {
            acknowledge(event, static_cast<uint16_t>(next_block + 1));
            ::syslog(LOG_INFO, "firmware download complete (%u blocks)", unsigned{next_block});
            return 0;
        } else {
            write_block(file.get(), buff, size);
            acknowledge(event, ++next_block);
        }
    }
}

int64_t CUdpServer::receive_software(Event& event)
{
    const int deviceType = devDevHandler != nullptr ? devDevHandler->device_type_product : InvalidDevice;
    if (deviceType < PortableDevice || deviceType > Ksr7000Device) {
        ::syslog(LOG_ERR, "invalid deviceType=%d", deviceType);
        return IF_FAILED;
    }
    ::syslog(LOG_INFO, "[CUdpServer] HESU - program download mode non orvanX");
    const std::string file_extract_location = std::string(SOFT_UPDATE_PATH) + devicePath;
    const std::string file_extract_name = file_extract_location + "/" + SOFT_PACKAGE;
    acknowledge(event, 1);
    ::syslog(LOG_INFO, "[CUdpServer] ACK HESU header -> blk=1");

    make_update_folder(file_extract_location.c_str());
    m_recvFW_file_download_status = RecvFirmwareFileFromHEUpdateTool(file_extract_name.c_str());
    if (m_recvFW_file_download_status != 0) {
        ::syslog(LOG_ERR, "Firmware file receive failed");
        return IF_FAILED;
    }
    const bool unpacked =
        run_system_cmd(unpack_command(file_extract_name, file_extract_location).c_str()) == 0;
    ::syslog(LOG_INFO, "Extraction software_update.tar.gz %s", success_or_failure(unpacked));
    if (!unpacked) {
        return IF_FAILED;
    }

    const char* const pre_name = kPackages[deviceType].pre_name;
    std::string strDirName;
    if (!find(file_extract_location, pre_name, FS_FIND_DIR, strDirName)) {
        ::syslog(LOG_ERR, "Could not find extracted FW directory containing %s in %s", pre_name,
                 file_extract_location.c_str());
        return IF_FAILED;
    }
    ::syslog(LOG_INFO, "Found FW directory: %s", strDirName.c_str());
    if (!distribute_package(strDirName, deviceType)) {
        return IF_FAILED;
    }
    createNewParent(strDirName + "/patch");
    return IF_SUCCESS_RECV_FIRMWARE;
}

bool CUdpServer::distribute_package(const std::string& folder, int deviceType)
{
    std::string file;
    if (!find(folder, ORVANXFILEKEYWORD, FS_FIND_FILE, file)) {
        ::syslog(LOG_ERR, "Could not find ovx_module file in %s", folder.c_str());
        return false;
    }
    make_update_folder(SW_UPDATE_PATH_ORVANX);
    const std::string copy = "cp " + file + " " + SW_UPDATE_PATH_ORVANX + "/";
    ::syslog(LOG_INFO, "%s", copy.c_str());
    if (run_system_cmd(copy.c_str()) != 0) {
        ::syslog(LOG_ERR, "File copy failed: %s", copy.c_str());
        return false;
    }
    ::syslog(LOG_INFO, "File copied successfully");
    if (!Scpi_Orvanx::getInstance()->sendSWUpdateToOrvanX()) {
        ::syslog(LOG_ERR, "OrvanX software update failed. Skip restart.");
        return false;
    }

    const char* const readFolder = kPackages[deviceType].readFolder;
    if (!find(folder, readFolder, FS_FIND_FILE, file)) {
        ::syslog(LOG_ERR, "Could not find %s file in %s", readFolder, folder.c_str());
        return false;
    }
    ::syslog(LOG_INFO, "Found device FW file: %s", file.c_str());
    const std::string unpack = unpack_command(file, folder);
    ::syslog(LOG_INFO, "%s", unpack.c_str());
    const bool unpacked = run_system_cmd(unpack.c_str()) == 0;
    ::syslog(LOG_INFO, "%s Extraction %s", devicePath, success_or_failure(unpacked));
    return unpacked;
}

int64_t CUdpServer::stream_to_modules(Event& event)
{
    ::syslog(LOG_INFO, "[CUdpServer]OrvanX");
    HALDE_PACKET answer = {};
    if (!stream_image(event, answer)) {
        return IF_FAILED;
    }
    if (follow_burning(event)) {
        answer.size = htons(EOD);
        answer.stateMode = kFinalMode;
        answer.block = 0;
        answer.info = 0;
        send_header(event, answer);
    }
    for (int i = 0; i < event.numDevices; ++i) {
        ::close(event.sockFd[i]);
    }
    ::syslog(LOG_INFO, "[CUdpServer]HEPD - program download mode orvanX end");
    return IF_SUCCESS_FPGA_UPDATED;
}

bool CUdpServer::stream_image(Event& event, HALDE_PACKET& answer)
{
    const auto set_module_timeouts = [&event](int seconds) {
        for (int i = 0; i < event.numDevices; ++i) {
            set_receive_timeout(event.sockFd[i], seconds);
        }
    };
    set_module_timeouts(kBlockTimeoutS);
    HALDE_PACKET acknowledgement = {};
    // If nothing arrives in time (the socket has a timeout after a software download), the frame is sent
    // again.
    for (;; receive_frame(event)) {
        if (std::string_view(buff.opcode, sizeof buff.opcode) != kOpcodeModule) {
            continue;
        }
        const bool last = ntohs(buff.size) == EOD;
        if (last) {
            set_module_timeouts(kBurnTimeoutS);
        }
        if (!relay_block(event, answer, acknowledgement)) {
            ::syslog(LOG_ERR, "[CUdpServer] Aborting stream due to module timeout.");
            send_error(event, LXI_ERROR_TIMEOUT);
            return false;
        }
        if (!send_header(event, acknowledgement)) {
            ::syslog(LOG_ERR, "[CUdpServer]::WaitForEvent Error sending UDP ACK back to HEupdate Tool");
        }
        if (last) {
            ::syslog(LOG_INFO, "[CUdpServer] File stream complete.");
            return true;
        }
    }
}

bool CUdpServer::relay_block(const Event& event, HALDE_PACKET& answer, HALDE_PACKET& acknowledgement)
{
    for (int i = 0; i < event.numDevices; ++i) {
        ::sendto(event.sockFd[i], &buff, sizeof buff, 0,
                 reinterpret_cast<const sockaddr*>(&event.servaddr[i]), sizeof event.servaddr[i]);
    }
    bool all_answered = true;
    for (int i = 0; i < event.numDevices; ++i) {
        if (::recv(event.sockFd[i], &answer, sizeof answer, 0) >= 1) {
            acknowledgement = answer;
        } else {
            ::syslog(LOG_ERR, "[CUdpServer] Timeout/Error receiving ACK from Channel %d", i + 1);
            all_answered = false;
        }
    }
    return all_answered;
}

bool CUdpServer::follow_burning(const Event& event)
{
    ::syslog(LOG_INFO, "[CUdpServer]:: start burning phase: %d devices", event.numDevices);
    bool all_done = true;
    HALDE_PACKET frame = {};
    for (int i = 0; i < event.numDevices; ++i) {
        bool done = false;
        while (!done) {
            const ssize_t received = ::recv(event.sockFd[i], &frame, sizeof frame, 0);
            if (received < 1) {
                ::syslog(LOG_ERR, "[CUdpServer] Channel %d burn timeout.", i + 1);
                send_error(event, LXI_ERROR_TIMEOUT);
                break;
            }
            send_header(event, frame);
            done = ntohs(frame.size) == EOD;
            if (done) {
                ::syslog(LOG_INFO, "[CUdpServer] final response from orvanx ch %d: %.*s", i + 1,
                         std::max(static_cast<int>(received) - static_cast<int>(FRMHEADERLEN), 0),
                         reinterpret_cast<const char*>(frame.data));
            }
        }
        all_done = all_done && done;
    }
    return all_done;
}

} // namespace HaldeElec::Orvan
