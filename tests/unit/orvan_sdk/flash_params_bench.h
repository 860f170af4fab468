/**
 * The settings of a portable in memory, without a bus, and their identification rows.
 */
#ifndef ORVAN_TESTS_FLASH_PARAMS_BENCH_H
#define ORVAN_TESTS_FLASH_PARAMS_BENCH_H

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "flash_params.h"
#include "orvan_sdk/IDeviceConnectionHandler.h"
#include "orvan_sdk/IOrvanDeviceManager.h"
#include "orvan_sdk/lxi/option_tables.h"
#include "support/log_capture.h"
#include "support/output_capture.h"
#include "support/persistent_data_peer.h"
#include "support/stand_ins.h"

namespace orvan_test {

inline constexpr const char* kScript = "sudo /usr/local/bin/he_set_hostname.sh ";

class FlashParams : public testing::Test {
protected:
    class Handler : public HaldeElec::Orvan::IDeviceConnectionHandler {
    public:
        void enableMUX() override {}
        void disableMUX() override {}
    };

    FlashParams()
    {
        OutputCapture out(STDOUT_FILENO);
        peer.emplace(handler, HaldeElec::Orvan::g_portableModelsTable);
        settings = (*peer)->getSettings();
        net = (*peer)->getNetIfConfig();
    }

    template <size_t size>
    static void put(char (&field)[size], const std::string& text)
    {
        std::memset(field, 0, size);
        std::copy_n(text.begin(), std::min(text.size(), size), field);
    }
    /** Settings with a text in every field. */
    void fill()
    {
        put(net->addr, "10.0.0.7");
        put(net->mask, "255.255.0.0");
        put(net->mac, "b8:27:eb:01:02:03");
        put(net->gw, "10.0.0.1");
        put(net->nic, "eth0");
        settings->dhcpEnabled = 1;
        put(settings->hostName, "OVX3651P-230042");
        put(settings->description, "Halde Electronics Ltd.");
        put(settings->modelName, "OVX3651P");
        put(settings->serialNum, "230042");
        put(settings->fwVersion, "1.19.140");
        settings->options = 0x081e; // code 14, MOD, BAT
        put(settings->calibrationDate, "271020");
        put(settings->scpiPort, "5025");
        settings->hardwareVersion = 'D';
        put(settings->fpgaVersion, "7.1");
        put(settings->pldVersion, "A-1");
    }
    std::string set_flash_params()
    {
        OutputCapture out(STDOUT_FILENO);
        (*peer)->setFlashParams(table.data(), table.size());
        return out.text();
    }
    std::string row(size_t line) { return {peer->flash_params()[line], HaldeElec::Orvan::FP_MAX_ENTRY_LEN}; }
    static std::string row_of(char letter, const std::string& text)
    {
        std::string bytes = letter + text;
        bytes.resize(HaldeElec::Orvan::FP_MAX_ENTRY_LEN);
        return bytes;
    }
    std::string option_text(uint16_t options)
    {
        return (*peer)->optToString(table.data(), table.size(), options);
    }

    StandIns stand_ins;
    LogCapture logs;
    Handler handler;
    std::optional<HaldeElec::Orvan::PersistentDataTestPeer> peer;
    HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS* settings = nullptr;
    HaldeElec::Orvan::sNetCfg_t* net = nullptr;
    std::vector<HaldeElec::Orvan::optEntry_t> table{std::begin(HaldeElec::Orvan::optPortable_Tbl),
                                                    std::end(HaldeElec::Orvan::optPortable_Tbl)};
};

} // namespace orvan_test

#endif
