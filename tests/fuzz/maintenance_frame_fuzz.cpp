/**
 * Feeds datagrams to the maintenance server. Each must get exactly the reply that its opcode and rows
 * require, and change only the settings that the protocol names.
 *
 * An input is a sequence of datagrams: a byte whose lowest bit marks a foreign sender, a two-byte length, low
 * byte first, and the data. Firmware transfers are excluded, as they wait for further frames.
 */
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <netinet/in.h>
#include <unistd.h>

#include "board/current_board.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/eeprom/eeprom_cat25.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "support/log_capture.h"
#include "support/maintenance_client.h"
#include "support/output_capture.h"
#include "support/private_home.h"
#include "support/recording_device.h"
#include "support/udp_server_peer.h"

using namespace HaldeElec::Orvan;
using orvan_test::MaintenanceClient;

namespace {

const std::string kOwnMac("\x02\x11\x22\x33\x44\x55", 6);
const std::string kBroadcast(6, '\xff');

void require(bool held, const char* what)
{
    if (held) {
        return;
    }
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

/** Clears what a frame may change. */
EEPROM_DEVICE_SETTINGS without_parameters(EEPROM_DEVICE_SETTINGS settings)
{
    settings.options = 0;
    settings.dhcpEnabled = 0;
    for (auto* field : {&settings.fixIp, &settings.mac, &settings.fixGw, &settings.hostName,
                        &settings.fixMask, &settings.scpiPort, &settings.calibrationDate, &settings.modelName,
                        &settings.pldVersion, &settings.serialNum}) {
        std::memset(*field, 0, sizeof *field);
    }
    return settings;
}

bool has_port_row(const std::string& frame)
{
    for (size_t row = 0; row < FP_MAX_LINE; ++row) {
        if (frame[FRMHEADERLEN + row * FP_MAX_ENTRY_LEN] == FLASH_SCPI_PORT) {
            return true;
        }
    }
    return false;
}

/** Length of the reply to the frame in the buffer; 0 for none. */
size_t reply_size(const std::string& frame, size_t received)
{
    const std::string_view opcode = std::string_view(frame).substr(0, kOpcodeLength);
    const bool without_rows = frame[6] == 0 && frame[7] == 0;
    if (opcode == kOpcodeIdentify || opcode == kOpcodeFactory) {
        return FRMHEADERLEN + kSentRowsSize;
    }
    if (opcode == kOpcodeOptions) {
        return FRMHEADERLEN + sizeof optPortable_Tbl;
    }
    if (opcode == kOpcodeNetwork && !without_rows) {
        return FRMHEADERLEN + (has_port_row(frame) ? kSentRowsSize : received);
    }
    return 0;
}

/** A fast EEPROM; the simulated chip would take nearly all of the time. */
class InstantEeprom : public IDeviceConnectionHandler {
public:
    void enableMUX() override {}
    void disableMUX() override {}
    int DataTransfer(const uint8_t* sent, uint8_t* received, size_t length) override
    {
        std::memset(received, 0, length); // never busy
        if (length < kPrefix) {
            return 0;
        }
        const size_t address = static_cast<size_t>(sent[1]) << 8 | sent[2];
        const size_t count = std::min(length - kPrefix, m_bytes.size() - address);
        if (sent[0] == EEPROM_CAT25_COMMAND_READ) {
            std::memcpy(received + kPrefix, &m_bytes[address], count);
        } else if (sent[0] == EEPROM_CAT25_COMMAND_WRITE) {
            std::memcpy(&m_bytes[address], sent + kPrefix, count);
        }
        return 0;
    }

private:
    static constexpr size_t kPrefix = 3; // command and address
    std::array<uint8_t, 0x10000> m_bytes{};
};

/** The settings are stored in a private home. */
class Bench {
public:
    Bench()
    {
        CPersistentData::Init(&m_handler, g_portableModelsTable);
        m_device.option_table.assign(reinterpret_cast<const char*>(optPortable_Tbl), sizeof optPortable_Tbl);
    }

    /** Restores the state for the next input. */
    void reset()
    {
        std::memset(static_cast<void*>(CPersistentData::GetInstance()->getSettings()), 0,
                    sizeof(EEPROM_DEVICE_SETTINGS));
        m_device.calls.clear();
        m_board->trace().clear();
    }

    void serve(UdpServerTestPeer& peer, const std::string& datagram, bool foreign)
    {
        const MaintenanceClient& client = foreign ? m_foreign : m_own;
        const size_t received = std::min(datagram.size(), sizeof(HALDE_PACKET));
        std::string frame = peer.buffer();
        frame.replace(0, received, datagram, 0, received);
        if (frame.starts_with(kOpcodeSoftware) || frame.starts_with(kOpcodeModule)) {
            return;
        }
        const std::string mac = frame.substr(8, 6);
        const bool accepted = !foreign || mac == kOwnMac || mac == kBroadcast;

        EEPROM_DEVICE_SETTINGS& settings = *CPersistentData::GetInstance()->getSettings();
        const EEPROM_DEVICE_SETTINGS before = settings;
        require(peer.serve(datagram, client.address()) == IF_SUCCESS, "every frame is served");
        const EEPROM_DEVICE_SETTINGS kept = without_parameters(settings);
        const EEPROM_DEVICE_SETTINGS expected = without_parameters(before);
        require(std::memcmp(&kept, &expected, sizeof kept) == 0, "other settings stay");
        require(accepted || std::memcmp(&settings, &before, sizeof before) == 0,
                "foreign frames change nothing");

        const std::string reply = client.ready();
        require(reply.size() == (accepted ? reply_size(frame, received) : 0), "length of the reply");
        require(reply.empty() || reply.substr(0, 6) == frame.substr(0, 6), "opcode and block are echoed");
        require(client.ready().empty(), "one reply");
    }

    orvan_test::RecordingDevice m_device;

private:
    // The server's pauses advance its clock.
    sim_board::InstalledBoard m_board{sim_board::kPortableWiring};
    sim_board::SelfAdvancing m_self{m_board->clock()};
    InstantEeprom m_handler;
    MaintenanceClient m_own;
    MaintenanceClient m_foreign{"127.0.0.2"};
};

// Before any thread.
const orvan_test::PrivateHome g_home;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (!g_home.refusal().empty()) {
        std::fprintf(stderr, "not run: %s\n", g_home.refusal().c_str());
        return 0;
    }
    const orvan_test::LogCapture logs;
    const orvan_test::OutputCapture out(STDOUT_FILENO);
    static Bench bench;
    bench.reset();

    CUdpServer server(nullptr, 0, 0, false);
    UdpServerTestPeer peer{server};
    require(server.Init("127.0.0.1", "0", nullptr) == IF_SUCCESS, "a socket");
    peer.set_own_mac(kOwnMac);
    peer.set_device(&bench.m_device);
    while (size >= 3) {
        const bool foreign = (data[0] & 1) != 0;
        const size_t length = std::min(static_cast<size_t>(data[1] | data[2] << 8), size - 3);
        bench.serve(peer, {reinterpret_cast<const char*>(data) + 3, length}, foreign);
        data += 3 + length;
        size -= 3 + length;
    }
    server.Close();
    return 0;
}
