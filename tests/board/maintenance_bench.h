/**
 * A maintenance server without its thread, on a new instrument's settings, and PC tools on the loopback.
 */
#ifndef ORVAN_TESTS_MAINTENANCE_BENCH_H
#define ORVAN_TESTS_MAINTENANCE_BENCH_H

#include <utility>
#include <vector>

#include <syslog.h>

#include "settings_bench.h"
#include "support/maintenance_client.h"
#include "support/recording_device.h"
#include "support/udp_server_peer.h"

namespace board_test {

using orvan_test::FrameHeader;
using orvan_test::LogLine;
using orvan_test::MaintenanceClient;
using orvan_test::request;
using orvan_test::request_row;

using namespace std::string_literals;

inline const std::string kOwnMac = "\x02\x11\x22\x33\x44\x55"s;
inline const std::string kBroadcast(6, '\xff');
inline const std::string kForeignMac = "\x02\x11\x22\x33\x44\x56"s;
inline constexpr const char* kAccepted =
    "[CUdpServer]::WaitForEvent sending HEID============================";

class MaintenanceTest : public BoardTest {
protected:
    using Settings = HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS;

    void SetUp() override
    {
        using namespace HaldeElec::Orvan;
        if (!home.refusal().empty()) {
            GTEST_SKIP() << home.refusal();
        }
        BITManager::getInstance(0); // with no periodic thread
        connect();
        CPersistentData* const data = CPersistentData::Init(&handler, g_portableModelsTable);
        data->setEEPROMch(kEepromChannel);
        static constexpr sDevDefaults_t kDefaults{"OVX3651P", "Halde Electronics Ltd.", "230000", "D"};
        data->readData(&kDefaults, optPortable_Tbl, kOptionRows);
        std::strcpy(data->getNetIfConfig()->addr, "10.0.0.7");
        std::strcpy(data->getNetIfConfig()->mask, "255.255.0.0");
        std::strcpy(data->getNetIfConfig()->mac, "b8:27:eb:01:02:03");
        std::strcpy(data->getNetIfConfig()->gw, "10.0.0.1");
        data->setFlashParams(optPortable_Tbl, kOptionRows);
        ASSERT_EQ(server.Init("127.0.0.1", "0", nullptr), IF_SUCCESS);
        peer.set_own_mac(kOwnMac);
        peer.set_device(&device);
        device.numbers["GetDHCP"] = 1;
        board->trace().clear();
        logs.clear();
        printed();
    }
    /** GoogleTest reports failures on standard output. */
    void TearDown() override
    {
        const std::string output = HasFailure() ? out->text() : "";
        out.reset();
        std::fwrite(output.data(), 1, output.size(), stdout);
        server.Close();
        HaldeElec::Orvan::PersistentDataTestPeer::forget_instance();
    }

    /** Serves a datagram from the tool at 127.0.0.1. @return the reply, empty for none */
    std::string reply_to(const std::string& datagram)
    {
        EXPECT_EQ(serve(datagram), HaldeElec::Orvan::IF_SUCCESS);
        return client.ready();
    }
    int64_t serve(const std::string& datagram) { return peer.serve(datagram, client.address()); }

    /** The 512 bytes of the identification rows, as a new instrument has them at start-up. */
    static std::string identification()
    {
        std::string rows;
        for (const auto& [letter, text] : std::vector<std::pair<char, std::string>>{
                 {'A', "10.0.0.7"},
                 {'N', "255.255.0.0"},
                 {'E', "b8:27:eb:01:02:03"},
                 {'G', "10.0.0.1"},
                 {'B', "ON"},
                 {'H', "OVX3651P-230000"},
                 {'D', "Halde Electronics Ltd."},
                 {'I', "OVX3651P"},
                 {'S', "230000"},
                 {'F', "01.0.001"},
                 {'O', "8G,MOD,BAT"},
                 {'C', "271020"},
                 {'W', "5025"},
                 {'Y', "D"},
                 {'V', ""},
                 {'P', "A-1"},
             }) {
            rows += request_row(letter, text);
        }
        return rows;
    }

    Settings& settings() { return *HaldeElec::Orvan::CPersistentData::GetInstance()->getSettings(); }
    /** The contents of the EEPROM. */
    Settings stored()
    {
        Settings record;
        std::memcpy(static_cast<void*>(&record), board->eeprom().contents().data(), sizeof record);
        return record;
    }
    /** Writes to the EEPROM so far: one each time settings are stored. */
    size_t writes() { return board->eeprom().write_cycles() / 16; }

    /** The server's standard output since the last call, without the EEPROM driver's lines. */
    std::string printed()
    {
        std::fflush(stdout);
        const std::string all = out->text();
        std::string output = all.substr(std::exchange(m_printed, all.size()));
        static constexpr std::string_view kPage = "write Page (EEPROM_CAT25)";
        for (size_t at = output.find(kPage); at != std::string::npos; at = output.find(kPage)) {
            output.erase(at, output.find('\n', at) + 1 - at);
        }
        return output;
    }
    /** The server's own log lines; clears the log. */
    std::vector<std::string> take_logs()
    {
        std::vector<std::string> texts;
        for (const LogLine& line : logs.lines()) {
            if (line.text.find("CPersistentData") != std::string::npos) {
                continue;
            }
            EXPECT_EQ(line.priority, LOG_INFO) << line.text;
            texts.push_back(line.text);
        }
        logs.clear();
        return texts;
    }

    orvan_test::PrivateHome home;
    orvan_test::StandIns stand_ins;
    orvan_test::LogCapture logs;
    std::optional<orvan_test::OutputCapture> out{std::in_place, STDOUT_FILENO};
    orvan_test::RecordingDevice device;
    MaintenanceClient client;
    HaldeElec::Orvan::CUdpServer server{nullptr, 0, 0, false};
    HaldeElec::Orvan::UdpServerTestPeer peer{server};

private:
    size_t m_printed = 0;
};

} // namespace board_test

#endif
