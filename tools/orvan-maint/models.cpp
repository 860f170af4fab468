#include "models.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace orvan_maint {

namespace {

constexpr const char* kPortable = "portable";
constexpr const char* kBenchtop = "benchtop";
constexpr const char* kKsr7000 = "ksr7000";

struct Model {
    std::string_view name;
    const char* platform;
    size_t channels;
};

constexpr Model kModels[] = {
#define ORVAN_MODEL(platform, name, gigahertz, channels, product) {name, k##platform, channels},
#include "models.def"
};

const Model* find_model(const std::string& name)
{
    const auto* const found = std::find_if(std::begin(kModels), std::end(kModels),
                                           [&name](const Model& model) { return model.name == name; });
    return found != std::end(kModels) ? found : nullptr;
}

// A model newer than this tool is judged by its name: OVX, three digits for the frequency, one for the
// channels, a letter for the housing.
bool is_ovx(const std::string& model)
{
    return model.size() == 8 && model.starts_with("OVX") &&
           std::all_of(model.begin() + 3, model.begin() + 7, [](char c) { return c >= '0' && c <= '9'; });
}

bool is_ksr(const std::string& model)
{
    return model.starts_with("KSR-");
}

} // namespace

// clang-format off
const std::vector<Platform> kPlatforms = {
    {kPortable, "Orvan_Portable_FW", "portable_fw"},
    {kBenchtop, "Orvan_Benchtop_FW", "benchtop_fw"},
    {kKsr7000,  "Orvan_Ksr7000_FW",  "ksr7000_fw"},
};
// clang-format on

const Platform* find_platform(const std::string& name)
{
    const auto found = std::find_if(kPlatforms.begin(), kPlatforms.end(),
                                    [&name](const Platform& platform) { return platform.name == name; });
    return found != kPlatforms.end() ? &*found : nullptr;
}

std::string platform_names()
{
    std::string names;
    for (const Platform& platform : kPlatforms) {
        names += (names.empty() ? "" : ", ") + std::string(platform.name);
    }
    return names;
}

const Platform* platform_of_model(const std::string& model)
{
    if (const Model* const known = find_model(model)) {
        return find_platform(known->platform);
    }
    if (is_ksr(model)) {
        return find_platform(kKsr7000);
    }
    if (!is_ovx(model)) {
        return nullptr;
    }
    switch (model.back()) {
    case 'P':
        return find_platform(kPortable);
    case 'B':
    case 'R':
        return find_platform(kBenchtop);
    default:
        return nullptr;
    }
}

size_t channels_of_model(const std::string& model)
{
    if (const Model* const known = find_model(model)) {
        return known->channels;
    }
    if (is_ksr(model)) {
        return 1;
    }
    const size_t channels = is_ovx(model) ? static_cast<size_t>(model[6] - '0') : 0;
    return channels <= 4 ? channels : 0;
}

} // namespace orvan_maint
