#include "model.h"

#include <array>

namespace sim_module {

namespace {

struct ModelRange {
    std::string_view prefix;
    double highest_frequency; // Hz
};

constexpr std::array kModelRanges = {
    ModelRange{"OVX61", 8e9},     ModelRange{"OVX27", 14e9},    ModelRange{"OVX36", 20e9},
    ModelRange{"OVX53", 40e9},    ModelRange{"KSR-7061", 8e9},  ModelRange{"KSR-7036", 20e9},
    ModelRange{"KSR-7053", 40e9}, ModelRange{"KSR-8036", 20e9}, ModelRange{"KSR-8053", 40e9},
};

constexpr double kLowestPower = -30;           // dBm
constexpr double kLowestPowerWithOption = -80; // dBm, with option LP

/** A benchtop leaves the factory with option LP, the other platforms without. */
bool has_low_power(std::string_view model)
{
    return model.starts_with("OVX") && (model.ends_with('B') || model.ends_with('R'));
}

} // namespace

std::optional<ModelLimits> model_limits(std::string_view model)
{
    for (const ModelRange& range : kModelRanges) {
        if (model.starts_with(range.prefix)) {
            return ModelLimits{range.highest_frequency,
                               has_low_power(model) ? kLowestPowerWithOption : kLowestPower};
        }
    }
    return std::nullopt;
}

} // namespace sim_module
