// The constants of the maintenance service's headers.

#include <utility>

#include <gtest/gtest.h>

#include "orvan_sdk/lxi/UdpServer.h"

using namespace HaldeElec::Orvan;

// Programs and tools have these values compiled in.
TEST(MaintenanceNumbers, HaveTheirPublishedValues)
{
    const std::pair<int64_t, int64_t> numbers[] = {
        {IF_SUCCESS, 0},
        {LXI_SUCCESS, 0},
        {IF_SUCCESS_RECV_FIRMWARE, 100},
        {LXI_SUCCESS_RECV_FIRMWARE, 100},
        {IF_SUCCESS_FPGA_UPDATED, 101},
        {LXI_SUCCESS_RECV_FPGA, 101},
        {IF_SUCCESS_NET_CONFIG, 102},
        {LXI_SUCCESS_RECV_NETCONFIG, 102},
        {IF_FAILED, 0xFFFFFFFF},
        {LXI_FAILED, 0xFFFFFFFF},
        {ERROR_BASE, 0x80000000},
        {IF_ERROR_INV_LENGTH, 0x80000020},
        {IF_ERROR_INV_PARAMETER, 0x80000021},
        {IF_ERROR_INV_BIN_HEADER_FORMAT, 0x80000022},
        {IF_ERROR_CMD_QUEUE_OVERFLOW, 0x80000023},
        {ERROR_LXI_BASE, 0x80000100},
        {LXI_ERROR_INV_RSRC, 0x80000101},
        {LXI_ERROR_INIT_SOCK_ADDR, 0x80000102},
        {LXI_ERROR_INV_SOCK, 0x80000103},
        {LXI_ERROR_REUSE_ADDR, 0x80000104},
        {LXI_ERROR_KEEPALIVE, 0x80000105},
        {LXI_ERROR_BIND_SOCK, 0x80000106},
        {LXI_ERROR_LISTEN_SOCK, 0x80000107},
        {LXI_ERROR_INV_HWADDR, 0x80000108},
        {LXI_ERROR_INV_ATTR, 0x80000109},
        {LXI_ERROR_TIMEOUT, 0x8000010A},
        {IFC_FIFOSTATE, 0x03},
        {IFC_FIFOEMPTY, 0},
        {IFC_FIFOHALFEMPTY, 1},
        {IFC_FIFOFULL, 2},
        {IFC_TERMINATED, 0x04},
        {IFC_RECV_BLOCK_MASK, 0x18},
        {IFC_RECV_BLOCK_START, 0},
        {IFC_RECV_BLOCK_INPROC, 0x08},
        {IFC_RECV_BLOCK_FINISH, 0x10},
        {IFC_RECV_FIRMWARE, 0x20},
        {IFC_RECV_NETCONFIG, 0x40},
        {MAX_WR_BUF_SIZE, 1024},
        {PORTUDP, 7502},
        {UDP_PORT_CTRL, 7502},
        {UDP_PORT_DATA, 7501},
        {TCP_PORT_CTRL, 5025},
        {TCP_PORT_TELNET, 5024},
        {TCP_PORT_DEF, 5024},
        {RECV_BUF_SIZE, 2880},
        {TIMEOUT_MS, 1000},
        {RECV_TIMEOUT_S, 5},
        {EOD, 0xFFFF},
        {ACK_ONLY_LEN, 22},
    };
    size_t row = 0;
    for (const auto& [number, value] : numbers) {
        EXPECT_EQ(number, value) << "row " << row++;
    }
    EXPECT_STREQ(INTERFACE_NAME, "eth0");
}
