#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <syslog.h>

#include "hw/hw.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/lxi/PersistentData.h"
#include "orvan_sdk/lxi/UdpServer.h"
#include "settings_text.h"

namespace HaldeElec::Orvan {
namespace {

// Lets the reply leave before the interface changes.
constexpr uint64_t kReplyLeavesUs = 500'000;

struct Row {
    char letter;
    char value[FP_MAX_DATA_LEN]; // not terminated if it fills the field
};
static_assert(sizeof(Row) == FP_MAX_ENTRY_LEN && sizeof Row::value == kSettingsTextSize);
using Rows = Row[FP_MAX_LINE];

const Rows& rows_of(const HALDE_PACKET& frame)
{
    return *reinterpret_cast<const Rows*>(frame.data);
}

using TextField = char (EEPROM_DEVICE_SETTINGS::*)[kSettingsTextSize];

// clang-format off
struct NetworkText {
    char letter;
    TextField field;
    bool set_network; // applied to the interface at once; otherwise the reply shows the rows
};
constexpr NetworkText kNetworkTexts[] = {
    {FLASH_IPADDR,    &EEPROM_DEVICE_SETTINGS::fixIp,    true},
    {FLASH_MAC,       &EEPROM_DEVICE_SETTINGS::mac,      true},
    {FLASH_GATEWAY,   &EEPROM_DEVICE_SETTINGS::fixGw,    true},
    {FLASH_HOSTNAME,  &EEPROM_DEVICE_SETTINGS::hostName, true},
    {FLASH_MASK,      &EEPROM_DEVICE_SETTINGS::fixMask,  true},
    {FLASH_SCPI_PORT, &EEPROM_DEVICE_SETTINGS::scpiPort, false},
};

struct FactoryText {
    char letter;
    TextField field;
    const char* name; // as printed
    const char* log;  // null for none
};
constexpr FactoryText kFactoryTexts[] = {
    {FLASH_CALIBDATE,    &EEPROM_DEVICE_SETTINGS::calibrationDate, "calibrationDate", nullptr},
    {FLASH_HOSTNAME,     &EEPROM_DEVICE_SETTINGS::hostName,        "hostName",        "[CUdpServer] HEOT - FLASH_HOSTNAME"},
    {FLASH_MODELNAME,    &EEPROM_DEVICE_SETTINGS::modelName,       "modelName",       nullptr},
    {FLASH_PLDVER,       &EEPROM_DEVICE_SETTINGS::pldVersion,      "pldVersion",      nullptr},
    {FLASH_SERIALNUMBER, &EEPROM_DEVICE_SETTINGS::serialNum,       "boardSN",         "[CUdpServer] HEOT - FLASH_SERIALNUMBER"},
};
// clang-format on

template <typename Text, size_t size>
const Text* find_text(const Text (&texts)[size], char letter)
{
    const Text* const found =
        std::find_if(texts, texts + size, [letter](const Text& text) { return text.letter == letter; });
    return found != texts + size ? found : nullptr;
}

void store(CPersistentData& persistent, TextField field, const Row& row)
{
    put_text(persistent.getSettings()->*field, text_of(row.value));
}

// The frequency code is sent unchanged, the other bits of each byte in reverse order.
uint16_t options_of(const Row& row)
{
    const auto byte = [&row](size_t i) { return static_cast<unsigned>(static_cast<uint8_t>(row.value[i])); };
    const unsigned sent = byte(0) | byte(1) << 8;
    const unsigned freq = sent >> 4 & 0x0F;
    const unsigned swapped = byte(1) | byte(0) << 8;
    return static_cast<uint16_t>((reverse_16_bits(static_cast<uint16_t>(swapped)) & 0xFFF0) | freq);
}

void log_bytes(const Row& row)
{
    ::syslog(LOG_INFO, "[%c] ", row.letter);
    for (const char byte : row.value) {
        ::syslog(LOG_INFO, "%2X ", static_cast<unsigned>(static_cast<uint8_t>(byte)));
    }
    ::syslog(LOG_INFO, "\n");
}

void change_factory_parameter(CPersistentData& persistent, const Row& row)
{
    EEPROM_DEVICE_SETTINGS& settings = *persistent.getSettings();
    if (row.letter == FLASH_OPTION) {
        ::syslog(LOG_INFO, "[CUdpServer] HEOT - FLASH_OPTION");
        settings.options = options_of(row);
        ::syslog(LOG_INFO, "[CUdpServer] HEOT - FLASH_OPTION, writeData to flash");
    } else if (const FactoryText* const text = find_text(kFactoryTexts, row.letter)) {
        const bool model = row.letter == FLASH_MODELNAME;
        if (model) {
            ::syslog(LOG_INFO, "%c", row.letter);
        }
        store(persistent, text->field, row);
        const std::string value = text_of(settings.*text->field);
        std::printf("%s:%s \n", text->name, value.c_str());
        if (text->log != nullptr) {
            ::syslog(LOG_INFO, "%s", text->log);
        }
        if (model) {
            ::syslog(LOG_INFO, "%s", value.c_str());
        }
    } else {
        return;
    }
    persistent.writeData(true, true);
}

} // namespace

int64_t CUdpServer::serve_command(Event& event)
{
    static constexpr struct {
        std::string_view opcode;
        int64_t (CUdpServer::*serve)(Event&);
    } kCommands[] = {
        {kOpcodeIdentify, &CUdpServer::identify},
        {kOpcodeSoftware, &CUdpServer::receive_software},
        {kOpcodeNetwork, &CUdpServer::set_network_parameters},
        {kOpcodeFactory, &CUdpServer::set_factory_parameters},
        {kOpcodeModule, &CUdpServer::stream_to_modules},
        {kOpcodeOptions, &CUdpServer::send_option_table},
    };
    const std::string_view opcode(buff.opcode, sizeof buff.opcode);
    for (const auto& command : kCommands) {
        if (command.opcode == opcode) {
            return (this->*command.serve)(event);
        }
    }
    return IF_SUCCESS;
}

uint16_t reverse_16_bits(uint16_t value)
{
    unsigned bits = value;
    bits = (bits & 0xAAAA) >> 1 | (bits & 0x5555) << 1;
    bits = (bits & 0xCCCC) >> 2 | (bits & 0x3333) << 2;
    bits = (bits & 0xF0F0) >> 4 | (bits & 0x0F0F) << 4;
    bits = (bits & 0xFF00) >> 8 | (bits & 0x00FF) << 8;
    return static_cast<uint16_t>(bits);
}

void print_options(const void* block, size_t size)
{
    for (const Row* row = static_cast<const Row*>(block); size >= sizeof *row; ++row, size -= sizeof *row) {
        ::syslog(LOG_INFO, "[%c] - [%s]\n", row->letter, text_of(row->value).c_str());
    }
}

void CUdpServer::put_own_mac()
{
    std::memcpy(buff.mac, m_bHWaddr.b, sizeof buff.mac);
}

void CUdpServer::put_identification()
{
    buff.size = htons(kSentRowsSize);
    if (const CPersistentData* const persistent = CPersistentData::GetInstance(); persistent != nullptr) {
        *persistent >> buff.data;
    }
}

int64_t CUdpServer::identify(Event& event)
{
    std::memset(buff.data, 0, sizeof buff.data);
    put_identification();
    put_own_mac();
    print_options(buff.data, kSentRowsSize);
    send_frame(event, FRMHEADERLEN + kSentRowsSize);
    return IF_SUCCESS;
}

int64_t CUdpServer::set_network_parameters(Event& event)
{
    put_own_mac();
    ::syslog(LOG_INFO, "[CUdpServer] HEIP change network parameters");
    if (buff.size == 0) {
        return IF_SUCCESS;
    }

    bool set_network = false;
    bool updateEeprom = false;
    CPersistentData* const persistent = CPersistentData::GetInstance();
    for (const Row& row : rows_of(buff)) {
        std::printf("HEIP: update parameter [0x%X] ()\n",
                    static_cast<unsigned>(static_cast<uint8_t>(row.letter)));
        if (persistent == nullptr) {
            continue;
        }
        if (const NetworkText* const text = find_text(kNetworkTexts, row.letter)) {
            store(*persistent, text->field, row);
            set_network = set_network || text->set_network;
            updateEeprom = updateEeprom || !text->set_network;
        } else if (row.letter == FLASH_DHCPSTAT) {
            uint8_t last_ena = 0;
            if (devDevHandler != nullptr) {
                devDevHandler->GetDHCP(last_ena);
            }
            const uint8_t ena = row.value[0] == 'Y' ? 1 : 0;
            persistent->getSettings()->dhcpEnabled = ena;
            if (ena != last_ena) {
                set_network = true;
            }
        } else {
            continue;
        }
        persistent->writeData(true, true);
    }

    size_t count = event.length;
    if (updateEeprom) {
        count = kSentRowsSize;
        put_identification();
    }
    send_frame(event, FRMHEADERLEN + count);
    hw_delay_us(kReplyLeavesUs);
    if (set_network && devDevHandler != nullptr) {
        devDevHandler->SetDHCP(persistent->getSettings()->dhcpEnabled != 0 ? 1 : 0);
    }
    return IF_SUCCESS;
}

int64_t CUdpServer::set_factory_parameters(Event& event)
{
    std::printf("HEOT: update option");
    if (buff.size != 0) {
        ::syslog(LOG_INFO, "%d", int{buff.size}); // in wire byte order
        ::syslog(LOG_INFO, "%.*s", static_cast<int>(sizeof buff.data),
                 reinterpret_cast<const char*>(buff.data));
        CPersistentData* const persistent = CPersistentData::GetInstance();
        for (const Row& row : rows_of(buff)) {
            if (row.letter != 0) {
                log_bytes(row);
            }
            if (persistent != nullptr) {
                change_factory_parameter(*persistent, row);
            }
        }
    }
    put_identification();
    send_frame(event, FRMHEADERLEN + kSentRowsSize);
    return IF_SUCCESS;
}

int64_t CUdpServer::send_option_table(Event& event)
{
    if (devDevHandler == nullptr) {
        ::syslog(LOG_ERR, "UdpServer: HETO - failed to get device object");
        return IF_FAILED;
    }
    void* table = nullptr;
    size_t length = 0;
    devDevHandler->GetOptionsTable(&table, &length);
    length = table != nullptr ? std::min(length, sizeof buff.data) : 0;
    buff.size = htons(static_cast<uint16_t>(length));
    if (length != 0) {
        std::memcpy(buff.data, table, length);
    }
    send_frame(event, FRMHEADERLEN + length);
    return IF_SUCCESS;
}

} // namespace HaldeElec::Orvan
