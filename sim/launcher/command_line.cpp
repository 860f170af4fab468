#include "command_line.h"

#include <cstdio>

#include <CLI/CLI.hpp>

#include "verbs.h"

namespace orvan_launcher {

namespace {

constexpr int kBadCommandLine = 2;
constexpr const char* kNone = "none";

CLI::App* add_run(CLI::App& app, RunOptions& options, std::string& http_port, std::string& modules,
                  bool& no_sandbox)
{
    CLI::App* run = app.add_subcommand("run", "Start a virtual instrument and serve it until Ctrl-C");
    run->add_option("--model", options.model,
                    "Model, which decides platform and channels; default: the state directory's, or "
                    "OVX3654B for a new one");
    run->add_option("--state", options.state,
                    "State directory, kept; default: a temporary one, removed at the end");
    run->add_option("--scpi-port", options.scpi_port, "TCP port on 127.0.0.1; 0 takes a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    run->add_option("--hislip-port", options.hislip_port,
                    "TCP port of HiSLIP on 127.0.0.1; 0 takes a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    run->add_option(
           "--http-port", http_port,
           "TCP port of the page on 127.0.0.1; 0 takes a free one, 'none' leaves the page out; default: "
           "8080, or a free one if that is in use")
        ->check(CLI::Range(0, 65535) | CLI::IsMember({kNone}))
        ->take_last();
    run->add_flag("--open", options.open_page, "Open the page in a browser once the instrument is ready");
    run->add_option("--maint-port", options.maintenance_port, "UDP port on 127.0.0.1; 0 takes a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    run->add_option("--modules", modules, "Modules fitted, 0 to 4 or 'none'; default: one for each channel")
        ->check(CLI::IsMember({kNone, "0", "1", "2", "3", "4"}));
    run->add_option("--clock-rate", options.clock_rate,
                    "How many times faster than real time the board's clock runs: waits, fan and temperature "
                    "periods, the battery")
        ->check(CLI::Range(1, 10000))
        ->take_last()
        ->capture_default_str();
    run->add_option(
           "--board", options.board,
           "A board verb of 'ctl' executed at every power-on, such as \"i2c 0x20 absent\"; may be repeated. "
           "A new instrument is produced without it")
        ->allow_extra_args(false);
    run->add_option("--log-level", options.log_level, "Log level of the service: err to debug")
        ->check(CLI::IsMember({"err", "warning", "notice", "info", "debug"}));
    run->add_flag(
        "--restart,!--no-restart", options.restart,
        "Restart a service that has failed after 5 s of board time, as systemd does on an instrument; "
        "otherwise the program ends with the service's status");
    run->add_option(
           "--watchdog", options.watchdog,
           "Seconds of real time without a sign of life after which a service that was ready is ended "
           "with SIGABRT and counts as failed, as on an instrument; 0: no watchdog")
        ->check(CLI::Range(0.0, 86400.0))
        ->capture_default_str();
    run->add_flag("--no-sandbox", no_sandbox, "Run directly on the host, with modules on 127.0.(6+n).1");
    run->add_flag("--fallback", options.fallback,
                  "Like --no-sandbox, but only where the kernel refuses a sandbox");
    return run;
}

/** Verbs that are passed to the service's board, which checks their arguments. */
struct BoardVerb {
    const char* name;
    const char* help;
    const char* words;
};
constexpr BoardVerb kBoardVerbs[] = {
    {"board", "Show the state of the board's relays, outputs, fan and lines", nullptr},
    {"i2c", "Make a chip of the board fail, or work again; without arguments, list the chips",
     "ADDRESS absent: it is not fitted\n"
     "ADDRESS nack: it acknowledges nothing\n"
     "ADDRESS ok: it works again"},
    {"spi", "Make the SPI ports fail to open, or work again", "absent or ok"},
    {"power-button", "Press the power button", "press: hold it down; release: let go"},
    {"battery", "Insert a battery with a charge, or remove it",
     "PERCENT: it continues to charge or discharge\n"
     "PERCENT charging, PERCENT discharging: it starts to\n"
     "PERCENT absent: it is removed"},
    {"charger", "Plug the charger in or out: the battery charges or discharges", "on or off"},
    {"key", "Press a key of the front panel",
     "ROW COLUMN, both from 0, then optionally press: hold it down; release: let go"},
};

void add_board_verbs(CLI::App& ctl, std::vector<std::string>& words)
{
    auto rest = std::make_shared<std::vector<std::string>>();
    for (const BoardVerb& verb : kBoardVerbs) {
        CLI::App* app = ctl.add_subcommand(verb.name, verb.help);
        if (verb.words != nullptr) {
            app->add_option("WORDS", *rest, verb.words);
        }
        app->callback([&words, rest, &verb] {
            words = {verb.name};
            words.insert(words.end(), rest->begin(), rest->end());
        });
    }
}

CLI::App* add_ctl(CLI::App& app, std::string& state, std::vector<std::string>& words)
{
    CLI::App* ctl = app.add_subcommand("ctl", "Control a running virtual instrument");
    ctl->add_option("--state", state, "State directory of the instrument; not needed when only one runs");
    ctl->require_subcommand(1);
    ctl->footer("Examples:\n"
                "  orvan-sim ctl status\n"
                "  orvan-sim ctl module 2 silent     no reply until 'up'\n"
                "  orvan-sim ctl temp 2 71.5         held until 'temp 2 auto'\n"
                "  orvan-sim ctl board\n"
                "  orvan-sim ctl i2c 0x20 nack       until 'i2c 0x20 ok'\n"
                "  orvan-sim ctl battery 32 discharging\n"
                "  orvan-sim ctl key 1 0             RF on");

    CLI::App* status = ctl->add_subcommand("status", "Show what is running");
    status->callback([&words] { words = {"status"}; });

    auto number = std::make_shared<std::string>();
    auto command = std::make_shared<std::vector<std::string>>();
    CLI::App* module = ctl->add_subcommand("module", "Make a module fail, or work again");
    module->add_option("N", *number, "Module, from 1")->required()->check(CLI::Range(1, 4));
    module
        ->add_option(
            "COMMAND", *command,
            "silent | refuse | close | slow MS | split [MS] | long: faults of its server\n"
            "drop: its link goes down; up: link and server work again\n"
            "update [up | silent-stream [BLOCK] | silent-burn | late [MS] | refuse]: firmware faults\n"
            "kill: ends its process at once; start: starts a new one\n"
            "temp [C | auto]; status; requests; log [N]; clear")
        ->required();
    module->callback([&words, number, command] {
        words = {"module", *number};
        words.insert(words.end(), command->begin(), command->end());
    });

    auto degrees = std::make_shared<std::string>();
    CLI::App* temperature = ctl->add_subcommand("temp", "Show or set a module's temperature");
    temperature->add_option("N", *number, "Module, from 1")->required()->check(CLI::Range(1, 4));
    temperature->add_option("C", *degrees,
                            "Degrees Celsius, held from now on, or 'auto' to let it drift again\n"
                            "Without it, show the temperature");
    temperature->callback([&words, number, degrees] {
        words = {"module", *number, "temp"};
        if (!degrees->empty()) {
            words.push_back(*degrees);
        }
    });
    add_board_verbs(*ctl, words);
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
    exec->footer(
        "The command sees this machine's files read-only, except the state directory, and no homes;\n"
        "on the LAN it can write to the current folder.\n\n"
        "Example:\n  orvan-sim exec --in lan -- nc 10.0.0.2 5025");
    return exec;
}

} // namespace

int run_command_line(int argc, const char* const* argv)
{
    CLI::App app("A virtual RF signal generator: the instrument's own service with simulated modules, in a "
                 "sandbox that needs no privileges.",
                 "orvan-sim");
    app.set_version_flag("--version", "orvan-sim " ORVAN_VERSION);
    app.require_subcommand(1);

    RunOptions options;
    std::string http_port;
    std::string modules;
    bool no_sandbox = false;
    std::string state;
    std::string role = orvan_sandbox::Role::controller().name();
    std::vector<std::string> words;
    CLI::App* run = add_run(app, options, http_port, modules, no_sandbox);
    CLI::App* ctl = add_ctl(app, state, words);
    add_exec(app, state, role, words);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kBadCommandLine;
    }
    if (run->parsed()) {
        options.use_sandbox = !no_sandbox;
        options.web = http_port != kNone;
        if (options.web && !http_port.empty()) {
            options.http_port = std::stoi(http_port);
        }
        if (options.open_page && !options.web) {
            std::fputs("orvan-sim: --open needs a page, and --http-port none leaves it out\n", stderr);
            return kBadCommandLine;
        }
        if (!modules.empty()) {
            options.modules = modules == kNone ? 0 : std::stoi(modules);
        }
        return run_instance(options);
    }
    return ctl->parsed() ? control_instance(state, words) : execute_inside(state, role, words);
}

} // namespace orvan_launcher
