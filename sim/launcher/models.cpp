#include "models.h"

#include <algorithm>
#include <iterator>

namespace orvan_launcher {

namespace {

struct Row {
    const char* name;
    Model model;
};

constexpr const char* kBenchtop = "benchtop";
constexpr const char* kPortable = "portable";
constexpr const char* kKsr7000 = "ksr7000";

constexpr Row kModels[] = {
#define ORVAN_MODEL(platform, name, gigahertz, channels, product) {name, {channels, k##platform}},
#include "models.def"
};

constexpr int kNamesInLine = 6;

} // namespace

std::optional<Model> find_model(std::string_view name)
{
    const auto* const row = std::ranges::find(kModels, name, &Row::name);
    return row == std::end(kModels) ? std::nullopt : std::optional(row->model);
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
