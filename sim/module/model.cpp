#include "model.h"

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
    for (const Row& row : kModels) {
        if (row.name == model) {
            return row.limits;
        }
    }
    return std::nullopt;
}

} // namespace sim_module
