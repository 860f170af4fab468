/**
 * The maintenance protocol on the wire: what the instrument, the PC tool and the modules share.
 *
 * One UDP datagram is one frame. A frame need not be sent at full length, and nothing compares the length of
 * the datagram with `size`: acknowledgements end with the header.
 *
 * | Opcode | Request                 | Reply                                           |
 * |--------|-------------------------|-------------------------------------------------|
 * | HEID   | header only             | kSentRows identification rows                   |
 * | HEIP   | rows                    | the request and 22 bytes more; with a row "W",  |
 * |        |                         | the identification rows; none with `size` 0     |
 * | HEOT   | rows, or none           | the identification rows                         |
 * | HECT   | header only             | kOptionRows rows optEntry_t                     |
 * | HESU   | header only; the file   | an acknowledgement of each                      |
 * |        | follows in blocks       |                                                 |
 * | HEPD   | a block of an image for | the modules' acknowledgement of each, then      |
 * |        | all modules             | frames of their progress, then a final frame    |
 *
 * Blocks count from 1; the one after the last has the size EOD. An acknowledgement contains the number of the
 * next block expected.
 *
 * HESU: a frame that is not the expected block gets no reply, nor does a repeated one. A tool that times out
 * sends the block again, and then the next one: if only the acknowledgement was lost, the next one is
 * expected, and only it is answered. Block 0 gets no reply and restarts the file. A file has at most 65534
 * blocks. The opcode of blocks is ignored; a late block that arrives after the end is a mere search if its
 * opcode is HEID, but with HESU it begins another download, which waits for its blocks forever. The
 * acknowledgement of EOD is the last reply: nothing reports the fate of the package.
 *
 * HEPD: a block is acknowledged when all modules have it. A final frame has the size EOD and in `info` 0 or
 * an error code; one with LXI_ERROR_TIMEOUT ends a stream, but after EOD it refers to one module, and no
 * final frame of success follows. Each module's frames end with one of size EOD.
 *
 * Rows of a request are FP_MAX_LINE rows of FP_MAX_ENTRY_LEN bytes: a letter (flash_params.h) and from byte 1
 * on a value of up to FP_MAX_DATA_LEN bytes. A row with a letter that the opcode does not accept is
 * ignored. Send all rows, unused ones as zeros: where a datagram is short, the instrument reads the remains
 * of the previous frame. Rows of a reply show the state at start-up.
 */
#ifndef ORVAN_MAINTENANCE_FRAME_H
#define ORVAN_MAINTENANCE_FRAME_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "flash_params.h"
#include "option_entry.h"

namespace HaldeElec::Orvan {

inline constexpr size_t FRMHEADERLEN = 22;
inline constexpr size_t FRMDATALEN = 1024;
inline constexpr size_t ACK_ONLY_LEN = FRMHEADERLEN;

/** `size` of the frame after the last block of a transfer, and of a final frame. */
inline constexpr uint16_t EOD = 0xFFFF;

/** A frame as it is sent. A request reaches the instrument with its own address in `mac` or with
 *  eth_brdcast_addr; `mac` is ignored in frames from 127.0.0.1. */
struct __attribute__((packed)) HALDE_PACKET {
    char opcode[4];     /**< not terminated */
    uint16_t block;     /**< big-endian */
    uint16_t size;      /**< bytes in `data`, or EOD; big-endian */
    uint8_t mac[6];     /**< address filter of a request, sender's address in some replies */
    uint16_t stateMode; /**< 0xFFFF in final frames of a module stream */
    uint32_t info;      /**< error code in error frames; little-endian */
    uint8_t unused[2];
    uint8_t data[FRMDATALEN];
};
static_assert(offsetof(HALDE_PACKET, opcode) == 0);
static_assert(offsetof(HALDE_PACKET, block) == 4);
static_assert(offsetof(HALDE_PACKET, size) == 6);
static_assert(offsetof(HALDE_PACKET, mac) == 8);
static_assert(offsetof(HALDE_PACKET, stateMode) == 14);
static_assert(offsetof(HALDE_PACKET, info) == 16);
static_assert(offsetof(HALDE_PACKET, unused) == 20);
static_assert(offsetof(HALDE_PACKET, data) == FRMHEADERLEN);
static_assert(sizeof(HALDE_PACKET) == FRMHEADERLEN + FRMDATALEN);

inline constexpr size_t kOpcodeLength = sizeof HALDE_PACKET::opcode;
inline constexpr std::string_view kOpcodeIdentify = "HEID";
inline constexpr std::string_view kOpcodeNetwork = "HEIP";
inline constexpr std::string_view kOpcodeFactory = "HEOT";
inline constexpr std::string_view kOpcodeOptions = "HECT";
inline constexpr std::string_view kOpcodeSoftware = "HESU";
inline constexpr std::string_view kOpcodeModule = "HEPD";

/** Rows of an identification reply: all but the last, which is empty. */
inline constexpr size_t kSentRows = FP_MAX_LINE - 1;
inline constexpr uint16_t kSentRowsSize = kSentRows * FP_MAX_ENTRY_LEN;
static_assert(FP_MAX_LINE * FP_MAX_ENTRY_LEN <= FRMDATALEN);
static_assert(kOptionRows * sizeof(optEntry_t) <= FRMDATALEN);

/** A hardware address. */
struct hwaddr_t {
    uint8_t b[6];
};
static_assert(sizeof(hwaddr_t) == sizeof HALDE_PACKET::mac);

inline constexpr hwaddr_t eth_brdcast_addr = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

inline constexpr int PORTUDP = 7502; /**< of the instrument and of every module */
inline constexpr int UDP_PORT_CTRL = PORTUDP;
inline constexpr int UDP_PORT_DATA = 7501; /**< reserved */

// Result codes; in `info` of an error frame.
inline constexpr uint32_t ERROR_BASE = 0x80000000;
inline constexpr uint32_t IF_ERROR_INV_LENGTH = ERROR_BASE + 0x20;
inline constexpr uint32_t IF_ERROR_INV_PARAMETER = ERROR_BASE + 0x21;
inline constexpr uint32_t IF_ERROR_INV_BIN_HEADER_FORMAT = ERROR_BASE + 0x22;
inline constexpr uint32_t IF_ERROR_CMD_QUEUE_OVERFLOW = ERROR_BASE + 0x23;

inline constexpr uint32_t ERROR_LXI_BASE = ERROR_BASE + 0x100;
inline constexpr uint32_t LXI_ERROR_INV_RSRC = ERROR_LXI_BASE + 1;       /**< the socket is closed */
inline constexpr uint32_t LXI_ERROR_INIT_SOCK_ADDR = ERROR_LXI_BASE + 2; /**< address or port not resolved */
inline constexpr uint32_t LXI_ERROR_INV_SOCK = ERROR_LXI_BASE + 3;       /**< no socket */
inline constexpr uint32_t LXI_ERROR_REUSE_ADDR = ERROR_LXI_BASE + 4;
inline constexpr uint32_t LXI_ERROR_KEEPALIVE = ERROR_LXI_BASE + 5;
inline constexpr uint32_t LXI_ERROR_BIND_SOCK = ERROR_LXI_BASE + 6;
inline constexpr uint32_t LXI_ERROR_LISTEN_SOCK = ERROR_LXI_BASE + 7;
inline constexpr uint32_t LXI_ERROR_INV_HWADDR = ERROR_LXI_BASE + 8;
inline constexpr uint32_t LXI_ERROR_INV_ATTR = ERROR_LXI_BASE + 9;
inline constexpr uint32_t LXI_ERROR_TIMEOUT = ERROR_LXI_BASE + 10; /**< a module did not answer in time */

} // namespace HaldeElec::Orvan

#endif
