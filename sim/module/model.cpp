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

} // namespace

std::optional<double> highest_frequency(std::string_view model)
{
    for (const ModelRange& range : kModelRanges) {
        if (model.starts_with(range.prefix)) {
            return range.highest_frequency;
        }
    }
    return std::nullopt;
}

} // namespace sim_module
