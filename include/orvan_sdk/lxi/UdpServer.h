/**
 * The maintenance server: answers the frames (maintenance_frame.h) by which a PC tool finds instruments on
 * the LAN, changes their parameters and brings them new firmware.
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
inline constexpr int RECV_TIMEOUT_S = 5; /**< from a download of software on */
inline constexpr char INTERFACE_NAME[] = "eth0";
inline constexpr int TCP_PORT_CTRL = 5025;
inline constexpr int TCP_PORT_TELNET = 5024; /**< reserved, as is the next one */
inline constexpr int TCP_PORT_DEF = 5024;
inline constexpr unsigned long LOCAL_ADDR_DEF = 0; /**< any local address */

/** Own address where there is no interface. */
inline constexpr hwaddr_t halde_mac = {{0x02, 0x00, 0x5E, 0x00, 0x00, 0x00}};

// What an event comes to, beside the error codes of the frame.
inline constexpr uint32_t IF_SUCCESS = 0;
inline constexpr uint32_t LXI_SUCCESS = IF_SUCCESS;
inline constexpr uint32_t IF_SUCCESS_RECV_FIRMWARE = 100; /**< the controller has an update to install */
inline constexpr uint32_t LXI_SUCCESS_RECV_FIRMWARE = IF_SUCCESS_RECV_FIRMWARE;
inline constexpr uint32_t IF_SUCCESS_FPGA_UPDATED = 101; /**< the modules have taken an image */
inline constexpr uint32_t LXI_SUCCESS_RECV_FPGA = IF_SUCCESS_FPGA_UPDATED;
inline constexpr uint32_t IF_SUCCESS_NET_CONFIG = 102; /**< handled, though nothing comes to it */
inline constexpr uint32_t LXI_SUCCESS_RECV_NETCONFIG = IF_SUCCESS_NET_CONFIG;
inline constexpr uint32_t IF_FAILED = 0xFFFFFFFF; /**< this request failed; the next one is served */
inline constexpr uint32_t LXI_FAILED = IF_FAILED;

/** Everything in it belongs to an update, and goes with it. */
inline constexpr char SOFT_UPDATE_PATH[] = "/home/orvan/halde/upgrade/";
/** Tells the update unit what to install: one line, the path of the unpacked folder "patch". */
inline constexpr char ORVAN_SW_UPDATE_FILE_INIT[] = "/home/orvan/halde/upgrade/upgrade_init_done.txt";
/** Written by the update unit and not empty once the update is done: the next start clears the folder. */
inline constexpr char ORVAN_SW_UPDATE_FILE_DELETE[] =
    "/home/orvan/halde/upgrade/upgrade_delete_ver_ready.txt";

/** What became of a server whose thread has ended. */
using state_t = unsigned long;
inline constexpr state_t IFC_RECV_FIRMWARE = 0x20;
inline constexpr state_t IFC_RECV_NETCONFIG = 0x40;

// Kept for programs that know them; nothing here sets or reads them.
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

/** The 16 bits in the opposite order. */
ORVAN_API uint16_t reverse_16_bits(uint16_t value);

/** Logs each whole row of FP_MAX_ENTRY_LEN bytes: its letter and its text. */
ORVAN_API void print_options(const void* block, size_t size);

/**
 * One thread serves one frame after the other; a transfer of firmware blocks everything else, and the end of
 * a module download ends the thread for good. Requests are not checked: the settings take what is sent, and
 * no reply tells of a failure. Settings are stored from this thread without the bus lock, beside whatever
 * else uses the bus.
 *
 * Each frame that reaches the socket costs descriptors (WaitForEvent).
 */
class ORVAN_API CUdpServer {
public:
    static constexpr int kMaxModules = 4;

    /** IPv4 address of each module, whose maintenance port is PORTUDP; where modules are somewhere else, set
     * it before there is a server. */
    static const char* modulAddr[kMaxModules];

    /**
     * Starts to serve. Where that fails, it is logged and the thread ends at once.
     *
     * @param eth_name        interface whose address is the own one; null takes halde_mac
     * @param port            UDP port
     * @param _devConnHandler and
     * @param _devDevHandler  not owned, and alive as long as frames come; may be null
     * @param ip_addr         local address, its first byte lowest; 0 for any
     * @param startup         false opens no socket and leaves the files of an update alone
     */
    CUdpServer(const char* eth_name, int port, IDeviceConnectionHandler* _devConnHandler,
               IOrvanDeviceManager* _devDevHandler, unsigned long ip_addr, bool startup);

    /** A server without a device and without a thread: its owner calls WaitForEvent or ThreadMain. */
    CUdpServer(const char* eth_name, int port, unsigned long ip_addr, bool startup);

    /** Ends the thread, which takes ONE MORE FRAME: the thread sleeps until one comes. Leaves the socket
     * open. */
    virtual ~CUdpServer();
    CUdpServer(const CUdpServer&) = delete;
    CUdpServer& operator=(const CUdpServer&) = delete;

    /** IFC_ bits; 0 while frames are served. Any thread. */
    virtual state_t GetState() const;

    /**
     * Waits for a frame and serves it. What is shorter than a frame counts as its beginning, with the rest as
     * the frame before has left it.
     *
     * Opens a socket to each module beforehand, and only the end of a module download closes them: a call
     * costs as many descriptors as there are modules, and ENDS THE PROCESS with exit code 1 when there are no
     * more, which it logs at LOG_ERR.
     *
     * @return IF_ or LXI_ code; IF_SUCCESS also for a frame that is not for this instrument or of no known
     *         opcode, neither of which is answered
     */
    virtual int64_t WaitForEvent();

    /**
     * Opens the socket; blocking, with broadcast allowed. Also takes the address of the interface, and puts
     * an idle handler on SIGIO.
     *
     * @param ip_addr  local address, first byte lowest or as text; 0 or null for any
     * @param port     number, or as text a number in C notation or a service's name
     * @param eth_name interface; null for none
     * @return IF_SUCCESS, LXI_ERROR_INIT_SOCK_ADDR, LXI_ERROR_INV_SOCK or LXI_ERROR_BIND_SOCK
     */
    uint32_t Init(unsigned long ip_addr, int port, const char* eth_name);
    uint32_t Init(const char* ip_addr, const char* port, const char* eth_name);

    /** Closes the socket, if there is one. @return 0 */
    int Close();

    /** The port of Init; 0 before. At most its first 5 characters count. */
    long GetPort() const;

    /** Takes the hardware address of an interface for the own one; without such an interface it stays. */
    void GetHWaddr(const char* eth_name);

    /** Serves until m_bTimeToExit, which some events set. */
    void ThreadMain();

    /**
     * Makes a socket address.
     *
     * @param ip_addr dotted, or a host's name; null for any address
     * @param port    number in C notation, or a service's name
     * @param lpSA    gets the address
     * @param proto   protocol that a service's name belongs to
     * @return 0; -1 for a null `port`, `lpSA` or `proto` and for a name that is not known
     */
    int InitSocketAddrStruct(const char* ip_addr, const char* port, sockaddr_in* lpSA, const char* proto);

    /** Of SIGIO; does nothing. */
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

    // Sends the first bytes of `buff` to where the frame came from; what is asked for past its end is zero.
    bool send_frame(const Event& event, size_t length);
    void put_own_mac();
    void put_identification();

    int64_t identify(Event& event);
    int64_t set_network_parameters(Event& event);
    int64_t set_factory_parameters(Event& event);
    int64_t send_option_table(Event& event);
    int64_t receive_software(Event& event);
    int64_t stream_to_modules(Event& event);

    // Reads the next frame into `buff`, from whomever. @return of recvfrom(2)
    ssize_t receive_frame(Event& event);
    // Answers the frame in `buff` with its own header. @param block the one expected next
    void acknowledge(const Event& event, uint16_t block);
    // Sends ACK_ONLY_LEN bytes to where the last frame came from.
    bool send_header(const Event& event, const HALDE_PACKET& frame);
    void send_error(const Event& event, uint32_t code);

    /* Software for the controller. A package is a tar archive of a folder with the platform's word in its
     * name, which holds the package for the modules ("ovx_module" in its name) and the controller's archive
     * (the platform's other word in its name), which in turn unpacks to a folder "patch". */

    // Takes a file from the tool, block by block. @return 0, or -1 when the file does not open or the socket
    // fails; waits for ever for a tool that has gone away. What the disk does not take is lost unnoticed
    int RecvFirmwareFileFromHEUpdateTool(const char* filePathToSave);
    // Passes the modules' part of a package on and unpacks the controller's. Each failure is logged.
    bool distribute_package(const std::string& folder, int deviceType);
    void createNewParent(std::string filePathScript);
    void launch_upgrade_service();
    void CleanUpgrdaeFW_Files();
    static int upgrade_clean_files_objects(void* udp_server);

    // An image for the modules. `answer` is the last frame that any of them has sent.
    bool stream_image(Event& event, HALDE_PACKET& answer);
    bool relay_block(const Event& event, HALDE_PACKET& answer, HALDE_PACKET& acknowledgement);
    bool follow_burning(const Event& event);

    int m_hSocket = -1;
    int m_iError = 0;       // of Init
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
