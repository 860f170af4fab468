#include "command_line.h"

#include "verbs.h"

#include <CLI/CLI.hpp>

namespace orvan_launcher {

namespace {

constexpr int kBadCommandLine = 2;
constexpr const char* kNoModules = "none";

CLI::App* add_run(CLI::App& app, RunOptions& options, std::string& modules, bool& no_sandbox)
{
    CLI::App* run = app.add_subcommand("run", "Start a virtual instrument and serve it until Ctrl-C");
    run->add_option("--model", options.model, "Model, which tells the number of channels")
        ->capture_default_str();
    run->add_option("--state", options.state,
                    "State directory, kept; a temporary one, removed at the end, when not given");
    run->add_option("--scpi-port", options.scpi_port, "TCP port on 127.0.0.1; 0 takes a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    run->add_option("--maint-port", options.maintenance_port, "UDP port on 127.0.0.1; 0 takes a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    run->add_option("--modules", modules,
                    "Modules fitted, 0 to 4 or 'none'; one for each channel when not given")
        ->check(CLI::IsMember({kNoModules, "0", "1", "2", "3", "4"}));
    run->add_option("--module-wait", options.module_wait,
                    "Seconds for which the service waits for the modules")
        ->check(CLI::Range(0, 600))
        ->capture_default_str();
    run->add_option("--log-level", options.log_level, "Log level of the service: err to debug");
    run->add_flag("--no-sandbox", no_sandbox, "Run on the host itself, with modules on 127.0.(6+n).1");
    run->add_flag("--fallback", options.fallback,
                  "As --no-sandbox, but only where the kernel refuses a sandbox");
    return run;
}

CLI::App* add_ctl(CLI::App& app, std::string& state, std::vector<std::string>& words)
{
    CLI::App* ctl = app.add_subcommand("ctl", "Steer a running virtual instrument");
    ctl->add_option("--state", state, "State directory of the instrument; not needed when only one runs");
    ctl->require_subcommand(1);
    ctl->footer("Examples:\n"
                "  orvan-sim ctl status\n"
                "  orvan-sim ctl module 2 silent     no reply until 'up'\n"
                "  orvan-sim ctl temp 2 71.5");

    CLI::App* status = ctl->add_subcommand("status", "Show what runs");
    status->callback([&words] { words = {"status"}; });

    auto number = std::make_shared<std::string>();
    auto command = std::make_shared<std::vector<std::string>>();
    CLI::App* module = ctl->add_subcommand("module", "Make a module fail, or well again");
    module->add_option("N", *number, "Module, from 1")->required()->check(CLI::Range(1, 4));
    module
        ->add_option("COMMAND", *command,
                     "silent | refuse | close | slow MS | split [MS] | long: faults of its server\n"
                     "drop: its link goes down; up: link and server are well again\n"
                     "kill: its process ends at once; start: a new one\n"
                     "temp C | temp auto; status; requests; log [N]; clear")
        ->required();
    module->callback([&words, number, command] {
        words = {"module", *number};
        words.insert(words.end(), command->begin(), command->end());
    });

    auto degrees = std::make_shared<std::string>();
    CLI::App* temperature = ctl->add_subcommand("temp", "Set a module's temperature");
    temperature->add_option("N", *number, "Module, from 1")->required()->check(CLI::Range(1, 4));
    temperature->add_option("C", *degrees, "Degrees Celsius, or 'auto'")->required();
    temperature->callback([&words, number, degrees] { words = {"module", *number, "temp", *degrees}; });
    return ctl;
}

CLI::App* add_exec(CLI::App& app, std::string& state, std::string& role, std::vector<std::string>& command)
{
    CLI::App* exec = app.add_subcommand("exec", "Run a command inside a running virtual instrument");
    exec->add_option("--state", state, "State directory of the instrument; not needed when only one runs");
    exec->add_option("--in", role, "Machine to run it on: controller, lan or module-N")
        ->check([](const std::string& name) {
            return orvan_sandbox::Role::parse(name) ? "" : "controller, lan or module-1 to module-4 expected";
        })
        ->capture_default_str();
    exec->add_option("COMMAND", command, "Command and its arguments, after --")->required();
    exec->positionals_at_end();
    exec->footer("Example:\n  orvan-sim exec --in lan -- nc 10.0.0.2 5025");
    return exec;
}

} // namespace

int run_command_line(int argc, const char* const* argv)
{
    CLI::App app("A virtual RF signal generator: the instrument's own service with simulated modules, in a "
                 "sandbox that needs no privilege.",
                 "orvan-sim");
    app.set_version_flag("--version", "orvan-sim " ORVAN_VERSION);
    app.require_subcommand(1);

    RunOptions options;
    std::string modules;
    bool no_sandbox = false;
    std::string state;
    std::string role = orvan_sandbox::Role::controller().name();
    std::vector<std::string> words;
    CLI::App* run = add_run(app, options, modules, no_sandbox);
    CLI::App* ctl = add_ctl(app, state, words);
    add_exec(app, state, role, words);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kBadCommandLine;
    }
    if (run->parsed()) {
        options.use_sandbox = !no_sandbox;
        if (!modules.empty()) {
            options.modules = modules == kNoModules ? 0 : std::stoi(modules);
        }
        return run_instance(options);
    }
    return ctl->parsed() ? control_instance(state, words) : execute_inside(state, role, words);
}

} // namespace orvan_launcher
