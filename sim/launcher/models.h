#ifndef ORVAN_SIM_LAUNCHER_MODELS_H
#define ORVAN_SIM_LAUNCHER_MODELS_H

#include <optional>
#include <string>
#include <string_view>

namespace orvan_launcher {

struct Model {
    int channels;         /**< 1, 2 or 4 */
    const char* platform; /**< "benchtop", "portable" or "ksr7000" */
};

/** Empty when there is no such model. */
std::optional<Model> find_model(std::string_view name);

/** All model names, wrapped to a terminal's width. */
std::string list_of_models();

} // namespace orvan_launcher

#endif
