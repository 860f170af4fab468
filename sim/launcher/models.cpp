#include "models.h"

namespace orvan_launcher {

namespace {

struct Row {
    const char* name;
    Model model;
};

constexpr const char* kBenchtop = "benchtop";
constexpr const char* kPortable = "portable";
constexpr const char* kKsr7000 = "ksr7000";

// clang-format off
constexpr Row kModels[] = {
    {"OVX2751P", {1, kPortable}},
    {"OVX3651P", {1, kPortable}},
    {"OVX5351P", {1, kPortable}},
    {"OVX6131P", {1, kPortable}},
    {"OVX2751B", {1, kBenchtop}},
    {"OVX2752B", {2, kBenchtop}},
    {"OVX2754B", {4, kBenchtop}},
    {"OVX3651B", {1, kBenchtop}},
    {"OVX3652B", {2, kBenchtop}},
    {"OVX3654B", {4, kBenchtop}},
    {"OVX5351B", {1, kBenchtop}},
    {"OVX5352B", {2, kBenchtop}},
    {"OVX5354B", {4, kBenchtop}},
    {"OVX6131B", {1, kBenchtop}},
    {"OVX6132B", {2, kBenchtop}},
    {"OVX6134B", {4, kBenchtop}},
    {"OVX2751R", {1, kBenchtop}},
    {"OVX2752R", {2, kBenchtop}},
    {"OVX2754R", {4, kBenchtop}},
    {"OVX3651R", {1, kBenchtop}},
    {"OVX3652R", {2, kBenchtop}},
    {"OVX3654R", {4, kBenchtop}},
    {"OVX5351R", {1, kBenchtop}},
    {"OVX5352R", {2, kBenchtop}},
    {"OVX5354R", {4, kBenchtop}},
    {"OVX6131R", {1, kBenchtop}},
    {"OVX6132R", {2, kBenchtop}},
    {"OVX6134R", {4, kBenchtop}},
    {"KSR-7061", {1, kKsr7000}},
    {"KSR-7036", {1, kKsr7000}},
    {"KSR-7053", {1, kKsr7000}},
    {"KSR-8036", {1, kKsr7000}},
    {"KSR-8053", {1, kKsr7000}},
};
// clang-format on

constexpr int kNamesInLine = 6;

} // namespace

std::optional<Model> find_model(std::string_view name)
{
    for (const Row& row : kModels) {
        if (row.name == name) {
            return row.model;
        }
    }
    return std::nullopt;
}

std::string list_of_models()
{
    std::string list;
    int count = 0;
    for (const Row& row : kModels) {
        list += count % kNamesInLine == 0 ? "\n  " : "  ";
        list += row.name;
        ++count;
    }
    return list.substr(1);
}

} // namespace orvan_launcher
