/** What a module tells of itself, and what its model decides. */
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sim_module {

/** Texts of the ":SYSTem:INFormation", ":INFormation" and "*IDN?" queries; printable, no ";" in them. */
struct Identity {
    std::string manufacturer = "Halde Electronics Ltd.";
    std::string model = "OVX3654B";
    std::string serial = "230000";
    std::string hardware = "D";
    std::string firmware = "1.2.3";
    std::string fpga = "1.0.7";
    std::string calibration_date = "271020";
    std::string rf_revision = "C1";
    std::string digital_revision = "D2";
};

/** Highest CW frequency of a model in hertz; nothing for a model that is none of the family. */
std::optional<double> highest_frequency(std::string_view model);

} // namespace sim_module
