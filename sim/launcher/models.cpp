#include "models.h"

namespace orvan_launcher {

namespace {

struct Model {
    const char* name;
    int channels;
};

// clang-format off
constexpr Model kModels[] = {
    {"OVX2751P", 1},
    {"OVX3651P", 1},
    {"OVX5351P", 1},
    {"OVX6131P", 1},
    {"OVX2751B", 1},
    {"OVX2752B", 2},
    {"OVX2754B", 4},
    {"OVX3651B", 1},
    {"OVX3652B", 2},
    {"OVX3654B", 4},
    {"OVX5351B", 1},
    {"OVX5352B", 2},
    {"OVX5354B", 4},
    {"OVX6131B", 1},
    {"OVX6132B", 2},
    {"OVX6134B", 4},
    {"OVX2751R", 1},
    {"OVX2752R", 2},
    {"OVX2754R", 4},
    {"OVX3651R", 1},
    {"OVX3652R", 2},
    {"OVX3654R", 4},
    {"OVX5351R", 1},
    {"OVX5352R", 2},
    {"OVX5354R", 4},
    {"OVX6131R", 1},
    {"OVX6132R", 2},
    {"OVX6134R", 4},
    {"KSR-7061", 1},
    {"KSR-7036", 1},
    {"KSR-7053", 1},
    {"KSR-8036", 1},
    {"KSR-8053", 1},
};
// clang-format on

constexpr int kNamesInLine = 6;

} // namespace

std::optional<int> channels_of_model(std::string_view model)
{
    for (const Model& row : kModels) {
        if (row.name == model) {
            return row.channels;
        }
    }
    return std::nullopt;
}

std::string list_of_models()
{
    std::string list;
    int count = 0;
    for (const Model& row : kModels) {
        list += count % kNamesInLine == 0 ? "\n  " : "  ";
        list += row.name;
        ++count;
    }
    return list.substr(1);
}

} // namespace orvan_launcher
