#ifndef ORVAN_WEB_HOST_NAMES_H
#define ORVAN_WEB_HOST_NAMES_H

#include <functional>
#include <string>
#include <vector>

namespace orvan_web {

/**
 * The names and addresses under which the instrument is reached. A page of another machine whose name was
 * made to lead here (DNS rebinding) has its own name in the Host header, and is recognised by that.
 */
class HostNames {
public:
    /** What the machine is called now; both may change while the process runs. */
    struct Machine {
        std::function<std::string()> host_name;
        std::function<std::vector<std::string>()> addresses;
    };

    /** @param names further names and addresses, as typed into a browser */
    explicit HostNames(const std::vector<std::string>& names, Machine machine = this_machine());

    static Machine this_machine();

    /**
     * Any thread.
     *
     * @param host  as Authority::host
     * @param local address that the client has connected to
     */
    bool allows(const std::string& host, const std::string& local) const;

private:
    const Machine m_machine;
    std::vector<std::string> m_names;
};

} // namespace orvan_web

#endif
