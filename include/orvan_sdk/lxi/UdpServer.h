/**
 * The maintenance server: answers the frames (maintenance_frame.h) with which a PC tool finds instruments on
 * the LAN, changes their parameters and updates their firmware.
 */
#ifndef ORVAN_SDK_UDP_SERVER_H
#define ORVAN_SDK_UDP_SERVER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

#include <netinet/in.h>
#include <sys/types.h>

#include "maintenance_frame.h"
#include "orvan_sdk/lxi/Semaphore.h"
#include "orvan_sdk/orvan_api.h"

namespace HaldeElec::Orvan {

class IDeviceConnectionHandler;
class IOrvanDeviceManager;
struct EEPROM_DEVICE_SETTINGS;

inline constexpr int RECV_BUF_SIZE = 2 * 1440; /**< SO_RCVBUF of the socket */
inline constexpr int TIMEOUT_MS = 1000;
inline constexpr int RECV_TIMEOUT_S = 5; /**< set when a software download begins */
inline constexpr char INTERFACE_NAME[] = "eth0";
inline constexpr int TCP_PORT_CTRL = 5025;
inline constexpr int TCP_PORT_TELNET = 5024; /**< reserved, as is the next one */
inline constexpr int TCP_PORT_DEF = 5024;
inline constexpr unsigned long LOCAL_ADDR_DEF = 0; /**< any local address */

/** Own address if there is no interface. */
inline constexpr hwaddr_t halde_mac = {{0x02, 0x00, 0x5E, 0x00, 0x00, 0x00}};

// Results of an event, in addition to the error codes of the frame.
inline constexpr uint32_t IF_SUCCESS = 0;
inline constexpr uint32_t LXI_SUCCESS = IF_SUCCESS;
inline constexpr uint32_t IF_SUCCESS_RECV_FIRMWARE = 100; /**< the controller has an update to install */
inline constexpr uint32_t LXI_SUCCESS_RECV_FIRMWARE = IF_SUCCESS_RECV_FIRMWARE;
inline constexpr uint32_t IF_SUCCESS_FPGA_UPDATED = 101; /**< the modules have taken an image */
inline constexpr uint32_t LXI_SUCCESS_RECV_FPGA = IF_SUCCESS_FPGA_UPDATED;
inline constexpr uint32_t IF_SUCCESS_NET_CONFIG = 102; /**< handled, but never returned */
inline constexpr uint32_t LXI_SUCCESS_RECV_NETCONFIG = IF_SUCCESS_NET_CONFIG;
inline constexpr uint32_t IF_FAILED = 0xFFFFFFFF; /**< this request failed; the next one is served */
inline constexpr uint32_t LXI_FAILED = IF_FAILED;

/** Everything in it belongs to an update and is deleted with it. */
inline constexpr char SOFT_UPDATE_PATH[] = "/home/orvan/halde/upgrade/";
/** Names what the update unit is to install: one line, the path of the unpacked folder "patch". */
inline constexpr char ORVAN_SW_UPDATE_FILE_INIT[] = "/home/orvan/halde/upgrade/upgrade_init_done.txt";
/** Written by the update unit, non-empty once the update is done: the next start-up clears the folder. */
inline constexpr char ORVAN_SW_UPDATE_FILE_DELETE[] =
    "/home/orvan/halde/upgrade/upgrade_delete_ver_ready.txt";

/** State of a server whose thread has ended. */
using state_t = unsigned long;
inline constexpr state_t IFC_RECV_FIRMWARE = 0x20;
inline constexpr state_t IFC_RECV_NETCONFIG = 0x40;

// Kept for compatibility; nothing here sets or reads them.
inline constexpr state_t IFC_FIFOSTATE = 0x03;
inline constexpr state_t IFC_FIFOEMPTY = 0;
inline constexpr state_t IFC_FIFOHALFEMPTY = 1;
inline constexpr state_t IFC_FIFOFULL = 2;
inline constexpr state_t IFC_TERMINATED = 0x04;
inline constexpr state_t IFC_RECV_BLOCK_MASK = 0x18;
inline constexpr state_t IFC_RECV_BLOCK_START = 0;
inline constexpr state_t IFC_RECV_BLOCK_INPROC = 0x08;
inline constexpr state_t IFC_RECV_BLOCK_FINISH = 0x10;
inline constexpr size_t MAX_WR_BUF_SIZE = 1024;

/** Reverses the order of the 16 bits. */
ORVAN_API uint16_t reverse_16_bits(uint16_t value);

/** Logs the letter and text of each complete row of FP_MAX_ENTRY_LEN bytes. */
ORVAN_API void print_options(const void* block, size_t size);

/**
 * One thread serves the frames one by one; a firmware transfer blocks everything else, and the end of a
 * module download ends the thread for good. Requests are not checked: the settings take what is sent, and no
 * reply reports a failure. Settings are stored on this thread without the bus lock, concurrently with any
 * other use of the bus.
 *
 * Each frame received leaks descriptors (see WaitForEvent).
 */
class ORVAN_API CUdpServer {
public:
    static constexpr int kMaxModules = 4;

    /** IPv4 address of each module, whose maintenance port is PORTUDP; to use other addresses, set it
     * before a server is created. */
    static const char* modulAddr[kMaxModules];

    /**
     * Starts serving. A failure to start is logged and the thread ends at once.
     *
     * @param eth_name        interface whose hardware address to use; null for halde_mac
     * @param port            UDP port
     * @param _devConnHandler and
     * @param _devDevHandler  not owned, must outlive the server; may be null
     * @param ip_addr         local address, its first byte lowest; 0 for any
     * @param startup         false opens no socket and leaves the files of an update alone
     */
    CUdpServer(const char* eth_name, int port, IDeviceConnectionHandler* _devConnHandler,
               IOrvanDeviceManager* _devDevHandler, unsigned long ip_addr, bool startup);

    /** A server with no device and no thread: its owner calls WaitForEvent or ThreadMain. */
    CUdpServer(const char* eth_name, int port, unsigned long ip_addr, bool startup);

    /** Ends the thread, which takes ONE MORE FRAME: it blocks until one arrives. Leaves the socket open. */
    virtual ~CUdpServer();
    CUdpServer(const CUdpServer&) = delete;
    CUdpServer& operator=(const CUdpServer&) = delete;

    /** IFC_ bits; 0 while frames are served. Any thread. */
    virtual state_t GetState() const;

    /**
     * Waits for a frame and serves it. A shorter datagram overwrites only the beginning of the previous
     * frame, whose rest remains.
     *
     * Opens a socket to each module beforehand, and only the end of a module download closes them: a call
     * costs as many descriptors as there are modules, and ENDS THE PROCESS with exit code 1 when they run
     * out, which it logs at LOG_ERR.
     *
     * @return IF_ or LXI_ code; IF_SUCCESS also for a frame that is not for this instrument or has an
     *         unknown opcode, neither of which is answered
     */
    virtual int64_t WaitForEvent();

    /**
     * Opens the socket; blocking, with broadcast allowed. Also reads the address of the interface, and
     * installs an empty handler for SIGIO.
     *
     * @param ip_addr  local address, first byte lowest or as text; 0 or null for any
     * @param port     number, or as text a number in C notation or a service name
     * @param eth_name interface; null for none
     * @return IF_SUCCESS, LXI_ERROR_INIT_SOCK_ADDR, LXI_ERROR_INV_SOCK or LXI_ERROR_BIND_SOCK
     */
    uint32_t Init(unsigned long ip_addr, int port, const char* eth_name);
    uint32_t Init(const char* ip_addr, const char* port, const char* eth_name);

    /** Closes the socket, if there is one. @return 0 */
    int Close();

    /** The port of Init; 0 before. At most its first 5 characters count. */
    long GetPort() const;

    /** Uses the hardware address of an interface as our own; unchanged if there is no such interface. */
    void GetHWaddr(const char* eth_name);

    /** Serves until m_bTimeToExit is set, which some events do. */
    void ThreadMain();

    /**
     * Fills in a socket address.
     *
     * @param ip_addr dotted, or a host name; null for any address
     * @param port    number in C notation, or a service name
     * @param lpSA    receives the address
     * @param proto   protocol of the service name
     * @return 0; -1 for a null `port`, `lpSA` or `proto` and for an unknown name
     */
    int InitSocketAddrStruct(const char* ip_addr, const char* port, sockaddr_in* lpSA, const char* proto);

    /** Handler of SIGIO; does nothing. */
    static void _SignalHandler(int);

private:
    friend struct UdpServerTestPeer;

    /** One event: what the datagram was, and the sockets that a module download needs. */
    struct Event {
        size_t length = 0;     /**< bytes of the datagram in `buff`, at most a frame */
        sockaddr_in from = {}; /**< who gets the replies */
        int numDevices = 0;
        int sockFd[kMaxModules];
        sockaddr_in servaddr[kMaxModules];
    };

    void allocate_port_text();
    void enter_state(state_t bit);

    void open_module_sockets(Event& event);
    // Serves the frame in `buff`.
    int64_t serve_frame(Event& event);
    bool accepts(const sockaddr_in& from) const;
    int64_t serve_command(Event& event);

    // Sends the first `length` bytes of `buff` to the sender of the frame; bytes past its end are zero.
    bool send_frame(const Event& event, size_t length);
    void put_own_mac();
    void put_identification();

    int64_t identify(Event& event);
    int64_t set_network_parameters(Event& event);
    int64_t set_factory_parameters(Event& event);
    int64_t send_option_table(Event& event);
    int64_t receive_software(Event& event);
    int64_t stream_to_modules(Event& event);

    // Reads the next frame into `buff`, from any sender. @return as recvfrom(2)
    ssize_t receive_frame(Event& event);
    // Answers the frame in `buff` with its own header. @param block the next one expected
    void acknowledge(const Event& event, uint16_t block);
    // Sends ACK_ONLY_LEN bytes to the sender of the last frame.
    bool send_header(const Event& event, const HALDE_PACKET& frame);
    void send_error(const Event& event, uint32_t code);

    /* Software for the controller. A package is a tar archive of a folder with the platform's word in its
     * name, which holds the package for the modules ("ovx_module" in its name) and the controller's archive
     * (the platform's other word in its name), which in turn unpacks to a folder "patch". */

    // Takes a file from the tool, block by block. @return 0, or -1 if the file cannot be opened or the socket
    // fails; waits forever for a tool that has gone away. Data that cannot be written is silently lost
    int RecvFirmwareFileFromHEUpdateTool(const char* filePathToSave);
    // Forwards the modules' part of a package and unpacks the controller's. Each failure is logged.
    bool distribute_package(const std::string& folder, int deviceType);
    void createNewParent(std::string filePathScript);
    void launch_upgrade_service();
    void CleanUpgrdaeFW_Files();
    static int upgrade_clean_files_objects(void* udp_server);

    // An image for the modules. `answer` is the last frame that any of them sent.
    bool stream_image(Event& event, HALDE_PACKET& answer);
    bool relay_block(const Event& event, HALDE_PACKET& answer, HALDE_PACKET& acknowledgement);
    bool follow_burning(const Event& event);

    int m_hSocket = -1;
    int m_iError = 0;       // result of Init
    HALDE_PACKET buff = {}; // requests come in here and become the replies; never cleared
    hwaddr_t m_bHWaddr = {};
    char* m_psPort = nullptr; // 6 bytes, owned
    int enteredHEPD = 0;
    int enteredHECD = 0;
    int m_State = 0;
    int m_recvFW_file_download_status = -1;
    COSSemaphore* m_pSharedDataAccess = nullptr; // owned; guards m_State
    IDeviceConnectionHandler* devConnHandler = nullptr;
    IOrvanDeviceManager* devDevHandler = nullptr;
    std::atomic<bool> m_bTimeToExit = false;
    std::thread m_udpDaemonThread;
    std::thread m_upgradeFileCleanupThread; // detached
};

} // namespace HaldeElec::Orvan

#endif
