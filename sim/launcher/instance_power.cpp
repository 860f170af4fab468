#include <csignal>
#include <cstdio>

#include <unistd.h>

#include "instance.h"

namespace orvan_launcher {

using namespace orvan_sandbox;
using namespace std::chrono_literals;

void Instance::follow_module_power()
{
    char switches[64];
    for (ssize_t count = 0; (count = ::read(m_power_switches.get(), switches, sizeof switches)) > 0;) {
        for (ssize_t index = 0; index < count; ++index) {
            power_modules(switches[index] == '1');
        }
    }
}

/** A module without power is gone at once, with its link, and starts again when power returns. */
void Instance::power_modules(bool on)
{
    if (on == m_module_power) {
        return;
    }
    m_module_power = on;
    std::printf("module power %s\n", on ? "on" : "off");
    for (size_t index = 0; index < m_modules.size(); ++index) {
        const int number = static_cast<int>(index) + 1;
        Module& module = m_modules[index];
        if (!on) {
            module.process.signal(SIGKILL);
            module.process.reap(1s);
        }
        if (module.linked && m_ground->has_sandbox()) {
            if (const Result<bool> done = m_ground->set_link(number, on); !done) {
                say_error(done.error().text());
            }
        }
        if (on) {
            if (const Result<bool> done = start_module(number); !done) {
                say_error(done.error().text());
            }
        }
    }
}

} // namespace orvan_launcher
