/** A module's identity, and what depends on its model. */
#ifndef ORVAN_SIM_MODULE_MODEL_H
#define ORVAN_SIM_MODULE_MODEL_H

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

/** Ranges that depend on the model. */
struct ModelLimits {
    double highest_frequency; /**< Hz */
    double lowest_power;      /**< dBm */
};

/** Empty for an unknown model. */
std::optional<ModelLimits> model_limits(std::string_view model);

} // namespace sim_module

#endif
