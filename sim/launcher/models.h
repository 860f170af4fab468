#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvan_launcher {

/// Channels of a model, 1, 2 or 4; nothing when there is no such model.
std::optional<int> channels_of_model(std::string_view model);

/// All model names, in lines of a terminal's width.
std::string list_of_models();

} // namespace orvan_launcher
