#include "options.h"

#include <CLI/CLI.hpp>

#include "checks.h"
#include "failure.h"
#include "models.h"

namespace orvan_maint {
namespace {

constexpr int kDefaultAfterSeconds = 300;

CLI::App* add_command(CLI::App& app, Options& options, const std::string& name, const std::string& help)
{
    CLI::App* const command = app.add_subcommand(name, help);
    command->parse_complete_callback([&options, name] { options.command = name; });
    return command;
}

void add_reach(CLI::App& command, Reach& reach, int& wait)
{
    CLI::Option* const address =
        command.add_option("--address", reach.address, "Talk to this instrument, without a search")
            ->type_name("HOST");
    command.add_option("--interface", reach.interface, "Search on this network interface; else on all")
        ->type_name("NAME")
        ->excludes(address);
    command.add_option("--mac", reach.mac, "Only the instrument with this hardware address")
        ->type_name("MAC")
        ->check([](const std::string& text) {
            return parse_mac(text) ? std::string() : printable(text) + " is no hardware address";
        });
    command.add_option("--port", reach.port, "UDP port of the maintenance protocol")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command.add_option("--wait", wait, "Milliseconds to wait for answers")
        ->check(CLI::Range(100, 60'000))
        ->capture_default_str();
}

void add_json(CLI::App& command, Options& options)
{
    command.add_flag("--json", options.json, "JSON instead of a table");
}

void add_yes(CLI::App& command, Options& options)
{
    command.add_flag("--yes", options.yes, "Do it without a question, for scripts");
}

void add_settings(CLI::App& command, Options& options, const std::vector<Setting>& settings)
{
    for (const Setting& setting : settings) {
        command
            .add_option_function<std::string>(
                setting.flag,
                [&options, letter = setting.letter](const std::string& text) {
                    options.settings[letter] = text;
                },
                setting.help)
            ->type_name(setting.type)
            ->check(setting.check);
    }
}

} // namespace

std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code)
{
    Options options;
    int wait = static_cast<int>(options.reach.wait.count());
    int after = kDefaultAfterSeconds;
    CLI::App app("Finds Orvan instruments on the network, sets them up and brings software into them.\n",
                 "orvan-maint");
    app.set_version_flag("--version", std::string("orvan-maint ") + ORVAN_VERSION);
    app.require_subcommand(1);

    CLI::App* const discover = add_command(app, options, "discover", "List the instruments on the network");
    add_reach(*discover, options.reach, wait);
    add_json(*discover, options);

    CLI::App* const show = add_command(app, options, "show", "Show all that an instrument tells of itself");
    add_reach(*show, options.reach, wait);
    add_json(*show, options);
    show->footer(
        "It is the state at the instrument's start: what was changed since then shows after the next.");

    CLI::App* const network = add_command(app, options, "set-network", "Change the network settings");
    add_reach(*network, options.reach, wait);
    add_yes(*network, options);
    add_settings(*network, options, kNetworkSettings);
    network->footer(
        "The instrument stores what is given, and takes its network up anew half a second later;\n"
        "with another address it then answers there.\n"
        "  orvan-maint set-network --mac 02:00:5e:10:00:01 --dhcp off --ip 10.0.0.9 \\\n"
        "      --mask 255.255.255.0 --gateway 10.0.0.1");

    CLI::App* const factory = add_command(app, options, "set-factory", "Change what the factory sets");
    add_reach(*factory, options.reach, wait);
    add_yes(*factory, options);
    add_settings(*factory, options, kFactorySettings);
    factory->footer("The instrument stores it at once and goes by it after its next start.");

    CLI::App* const words = add_command(app, options, "options", "Show and change an instrument's options");
    add_reach(*words, options.reach, wait);
    add_json(*words, options);
    add_yes(*words, options);
    words->add_option("--set", options.set, "Options to set")->type_name("WORD,...")->delimiter(',');
    words->add_option("--clear", options.clear, "Options to clear")->type_name("WORD,...")->delimiter(',');
    words->footer("The table is that of the instrument's start, and a change is made to it as it stands\n"
                  "there: give all words at once, and restart the instrument before you give others.");

    CLI::App* const update =
        add_command(app, options, "update", "Bring a software package into the controller and its modules");
    update->add_option("package", options.file, "The package: a tar archive, as pack makes it")
        ->required()
        ->type_name("FILE");
    add_reach(*update, options.reach, wait);
    add_yes(*update, options);
    update->add_option("--after", after, "Seconds for which the instrument may be at work on the package")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str();
    update->footer(
        "The package is looked through before anything is sent; a plain archive is sent packed with\n"
        "gzip. An instrument with a download that was broken off answers no search; name it with\n"
        "--address.\n"
        "The instrument does not report how it went. What update sees is one of these:\n"
        "  installed (exit code 0)  it went away and came back, or has another version of its software\n"
        "  refused (4)              it answers, and has not restarted within 35 seconds\n"
        "  silent (5)               it does not answer within --after\n"
        "Code 5 also says that it answers and nothing more is known, as when another PC asked it at the\n"
        "same time, or when --after was over too early.");

    CLI::App* const program =
        add_command(app, options, "program", "Bring an image into all channel modules at once");
    program->add_option("image", options.file, "The image, whatever the modules take")
        ->required()
        ->type_name("FILE");
    add_reach(*program, options.reach, wait);
    add_yes(*program, options);
    program->add_option("--channels", options.channels, "Number of modules, where the model does not tell it")
        ->check(CLI::Range(1, 4));
    program
        ->add_flag("--no-identify", options.no_identify,
                   "Send without asking who is there, after a download that was broken off")
        ->needs(program->get_option("--address"))
        ->needs(program->get_option("--channels"));
    program->footer(
        "Each block goes through all modules before the next, and a lost one costs seconds: use a\n"
        "good cable. Afterwards the instrument answers no search until it is restarted.");

    CLI::App* const pack = add_command(app, options, "pack", "Make a software package for update");
    pack->add_option("package", options.file, "The package to make")->required()->type_name("FILE");
    pack->add_option("--platform", options.platform, "Kind of controller: " + platform_names())
        ->required()
        ->type_name("NAME")
        ->check([](const std::string& name) {
            return find_platform(name) != nullptr ? std::string() : "there are " + platform_names();
        });
    pack->add_option("--module", options.module, "The modules' software")->required()->type_name("FILE");
    pack->add_option("--patch", options.patch, "Folder with the files that the controller installs")
        ->required()
        ->type_name("FOLDER");
    pack->add_flag("--force", options.force, "Replace a file that is there");

    app.footer(
        "orvan-maint COMMAND --help tells the options of a command.\n"
        "Without --address all instruments on the network are asked; with several of them, --mac\n"
        "says which one is meant.\n"
        "Exit codes: 0 done; 1 no answer; 2 bad options, or they do not fit the instrument;\n"
        "3 a file that cannot be used; 4 the instrument has refused it, or reports a failure; 5 all was\n"
        "sent, and what became of it is not known; 6 not agreed to, or interrupted.");
    try {
        app.parse(argc, argv);
        if (options.settings.empty() &&
            (options.command == network->get_name() || options.command == factory->get_name())) {
            throw CLI::ValidationError("nothing to change is named");
        }
        const auto value = [&options](char letter) {
            const auto found = options.settings.find(letter);
            return found != options.settings.end() ? found->second : std::string();
        };
        using namespace HaldeElec::Orvan;
        const std::string complaint =
            check_network(value(FLASH_IPADDR), value(FLASH_MASK), value(FLASH_GATEWAY));
        if (!complaint.empty()) {
            throw CLI::ValidationError(complaint);
        }
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? kExitDone : kExitBadOptions;
        return std::nullopt;
    }
    options.reach.wait = std::chrono::milliseconds(wait);
    options.after = std::chrono::seconds(after);
    return options;
}

} // namespace orvan_maint
