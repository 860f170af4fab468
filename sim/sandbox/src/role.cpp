#include "orvan_sandbox/role.h"

namespace orvan_sandbox {

std::optional<Role> Role::parse(std::string_view name)
{
    for (int index = 0; index < role_count(kMaxModules); ++index) {
        if (Role(index).name() == name) {
            return Role(index);
        }
    }
    return std::nullopt;
}

std::string Role::name() const
{
    if (*this == controller()) {
        return "controller";
    }
    if (*this == lan()) {
        return "lan";
    }
    return "module-" + std::to_string(m_index - lan().m_index);
}

} // namespace orvan_sandbox
