#include "models.h"

#include <algorithm>

namespace orvan_maint {

// clang-format off
const std::vector<Platform> kPlatforms = {
    {"portable", "Orvan_Portable_FW", "portable_fw"},
    {"benchtop", "Orvan_Benchtop_FW", "benchtop_fw"},
    {"ksr7000",  "Orvan_Ksr7000_FW",  "ksr7000_fw"},
};
// clang-format on

namespace {

// OVX, three digits of the frequency, one of the channels, a letter of the housing.
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
    if (is_ksr(model)) {
        return find_platform("ksr7000");
    }
    if (!is_ovx(model)) {
        return nullptr;
    }
    switch (model.back()) {
    case 'P':
        return find_platform("portable");
    case 'B':
    case 'R':
        return find_platform("benchtop");
    default:
        return nullptr;
    }
}

size_t channels_of_model(const std::string& model)
{
    if (is_ksr(model)) {
        return 1;
    }
    const size_t channels = is_ovx(model) ? static_cast<size_t>(model[6] - '0') : 0;
    return channels <= 4 ? channels : 0;
}

} // namespace orvan_maint
