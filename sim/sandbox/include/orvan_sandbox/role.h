#ifndef ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_ROLE_H
#define ORVAN_SIM_SANDBOX_ORVAN_SANDBOX_ROLE_H

#include <optional>
#include <string>
#include <string_view>

namespace orvan_sandbox {

/** Most modules in an instrument. */
inline constexpr int kMaxModules = 4;

/** One of the machines of a virtual instrument; each has its own network namespace and shares all else.
 */
class Role {
public:
    static constexpr Role controller() { return Role(0); }
    static constexpr Role lan() { return Role(1); }
    /** \param number  1 to kMaxModules. */
    static constexpr Role module(int number) { return Role(1 + number); }

    /** Reads "controller", "lan" or "module-N" with N from 1 to kMaxModules; empty for any other text. */
    static std::optional<Role> parse(std::string_view name);

    /** The text that parse() reads. */
    std::string name() const;

    /** Position in tables of roles: controller 0, lan 1, module N at 1 + N. */
    constexpr int index() const { return m_index; }
    static constexpr Role at(int index) { return Role(index); }

    friend constexpr bool operator==(Role, Role) = default;

private:
    constexpr explicit Role(int index) : m_index(index) {}
    int m_index;
};

/** Number of roles of an instrument with that many modules. */
constexpr int role_count(int modules)
{
    return 2 + modules;
}

} // namespace orvan_sandbox

#endif
