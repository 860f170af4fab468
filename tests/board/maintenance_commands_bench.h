/**
 * Helpers for commands of the maintenance protocol: what a server prints, logs and stores.
 */
#ifndef ORVAN_TESTS_MAINTENANCE_COMMANDS_BENCH_H
#define ORVAN_TESTS_MAINTENANCE_COMMANDS_BENCH_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "maintenance_bench.h"

namespace board_test {

class MaintenanceCommands : public MaintenanceTest {
protected:
    static constexpr const char* kNothingChanged =
        "CPersistentData::writeData() no changes detected, skipping write";

    /** What HEIP prints for 17 rows: these letters, then empty rows. */
    static std::string printed_rows(std::vector<std::string> letters)
    {
        letters.resize(17, "0");
        std::string text;
        for (const std::string& letter : letters) {
            text += "HEIP: update parameter [0x" + letter + "] ()\n";
        }
        return text;
    }
    /** What HEOT logs for a row. */
    static void append_row(std::vector<std::string>& lines, const std::string& row)
    {
        lines.push_back("["s + row[0] + "] ");
        for (size_t i = 1; i < row.size(); ++i) {
            char text[8];
            std::snprintf(text, sizeof text, "%2X ", static_cast<unsigned>(static_cast<uint8_t>(row[i])));
            lines.emplace_back(text);
        }
        lines.emplace_back("\n");
    }
    static std::string header_of(const std::string& frame)
    {
        return frame.substr(0, HaldeElec::Orvan::FRMHEADERLEN);
    }
    /** Leaves zeros in the buffer after the header. */
    void clear_buffer()
    {
        serve(FrameHeader{"NONE"}.bytes() + std::string(HaldeElec::Orvan::FRMDATALEN, '\0'));
    }
};

struct TextRow {
    char letter;
    char (HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS::*field)[HaldeElec::Orvan::kSettingsTextSize];
    const char* printed = ""; // name of the value
    std::vector<std::string> logs = {};
    bool at_once = true; // applied to the interface
};

/** The whole field, including the bytes after the text. */
inline std::string text_in(const HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS& record, const TextRow& row)
{
    const auto& field = record.*row.field;
    return {field, sizeof field};
}

/** A text as stored in its field. */
inline std::string in_field(std::string text)
{
    text.resize(HaldeElec::Orvan::kSettingsTextSize);
    return text;
}

/** Compares two records except for one text. */
inline bool rest_is_equal(HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS a,
                          const HaldeElec::Orvan::EEPROM_DEVICE_SETTINGS& b, const TextRow& row)
{
    std::memcpy(a.*row.field, b.*row.field, HaldeElec::Orvan::kSettingsTextSize);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

} // namespace board_test

#endif
