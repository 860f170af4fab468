#include "rows.h"

#include <algorithm>
#include <cstring>

namespace orvan_maint {

using namespace HaldeElec::Orvan;

// clang-format off
const std::vector<RowName> kRowNames = {
    {FLASH_IPADDR,       "ip_address",       "IP address"},
    {FLASH_MASK,         "mask",             "network mask"},
    {FLASH_MAC,          "hardware_address", "hardware address"},
    {FLASH_GATEWAY,      "gateway",          "gateway"},
    {FLASH_DHCPSTAT,     "dhcp",             "DHCP"},
    {FLASH_HOSTNAME,     "host_name",        "host name"},
    {FLASH_MANUFNAME,    "manufacturer",     "manufacturer"},
    {FLASH_MODELNAME,    "model",            "model"},
    {FLASH_SERIALNUMBER, "serial_number",    "serial number"},
    {FLASH_CSCIVER,      "software_version", "software version"},
    {FLASH_OPTION,       "options",          "options"},
    {FLASH_CALIBDATE,    "calibration_date", "calibration date"},
    {FLASH_SCPI_PORT,    "scpi_port",        "SCPI port"},
    {FLASH_HWVERSION,    "hardware_version", "hardware version"},
    {FLASH_FPGAVER,      "fpga_version",     "FPGA version"},
    {FLASH_PLDVER,       "pld_version",      "PLD version"},
};
// clang-format on

std::string title_of(char letter)
{
    const auto found = std::find_if(kRowNames.begin(), kRowNames.end(),
                                    [letter](const RowName& name) { return name.letter == letter; });
    return found != kRowNames.end() ? found->title : std::string(1, letter);
}

Rows read_rows(const HALDE_PACKET& frame, size_t length)
{
    Rows rows;
    const size_t held = length > FRMHEADERLEN ? length - FRMHEADERLEN : 0;
    const size_t size = std::min({size_t{size_of(frame)}, held, FRMDATALEN});
    for (size_t at = 0; at + FP_MAX_ENTRY_LEN <= size; at += FP_MAX_ENTRY_LEN) {
        const char* const row = reinterpret_cast<const char*>(frame.data) + at;
        if (row[0] != '\0') {
            rows[row[0]] = printable({row + 1, ::strnlen(row + 1, FP_MAX_DATA_LEN)});
        }
    }
    return rows;
}

std::string text_of(const Rows& rows, char letter)
{
    const auto found = rows.find(letter);
    return found != rows.end() ? found->second : std::string();
}

void put_rows(HALDE_PACKET& frame, const std::vector<RequestRow>& rows)
{
    std::memset(frame.data, 0, sizeof frame.data);
    uint8_t* at = frame.data;
    for (const RequestRow& row : rows) {
        at[0] = static_cast<uint8_t>(row.letter);
        std::memcpy(at + 1, row.value.data(), std::min(row.value.size(), FP_MAX_DATA_LEN));
        at += FP_MAX_ENTRY_LEN;
    }
    put_size(frame, kRequestRowsSize);
}

} // namespace orvan_maint
