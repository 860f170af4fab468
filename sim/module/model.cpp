#include "model.h"

#include <algorithm>
#include <iterator>

namespace sim_module {

namespace {

constexpr double kHertz = 1e9; // of a gigahertz

// dBm; a benchtop is shipped with option LP, the other platforms without.
constexpr double kLowestPowerOfPortable = -30;
constexpr double kLowestPowerOfBenchtop = -80;
constexpr double kLowestPowerOfKsr7000 = -30;

struct Row {
    std::string_view name;
    ModelLimits limits;
};

constexpr Row kModels[] = {
#define ORVAN_MODEL(platform, name, gigahertz, channels, product)                                            \
    {name, {(gigahertz)*kHertz, kLowestPowerOf##platform}},
#include "models.def"
};

} // namespace

std::optional<ModelLimits> model_limits(std::string_view model)
{
    const auto* const row = std::ranges::find(kModels, model, &Row::name);
    return row == std::end(kModels) ? std::nullopt : std::optional(row->limits);
}

} // namespace sim_module
