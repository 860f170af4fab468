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
        command.add_option("--address", reach.address, "Use this instrument instead of searching")
            ->type_name("HOST");
    command.add_option("--interface", reach.interface, "Search only on this network interface; default: all")
        ->type_name("NAME")
        ->excludes(address);
    command.add_option("--mac", reach.mac, "Only the instrument with this hardware address")
        ->type_name("MAC")
        ->check([](const std::string& text) {
            return parse_mac(text) ? std::string() : printable(text) + " is not a hardware address";
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
    command.add_flag("--yes", options.yes, "Do not ask for confirmation, for scripts");
}

/** A file that the command needs. */
void add_file(CLI::App& command, const std::string& name, std::string& file, const std::string& help)
{
    command.add_option(name, file, help)->required()->type_name("FILE");
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
    CLI::App app("Finds Orvan instruments on the network, configures them and updates their software.\n",
                 "orvan-maint");
    app.set_version_flag("--version", std::string("orvan-maint ") + ORVAN_VERSION);
    app.require_subcommand(1);

    CLI::App* const discover = add_command(app, options, "discover", "List the instruments on the network");
    add_reach(*discover, options.reach, wait);
    add_json(*discover, options);

    CLI::App* const show = add_command(app, options, "show", "Show everything an instrument reports");
    add_reach(*show, options.reach, wait);
    add_json(*show, options);
    show->footer("This is the state at the instrument's start: later changes show after the next start.");

    CLI::App* const network = add_command(app, options, "set-network", "Change the network settings");
    add_reach(*network, options.reach, wait);
    add_yes(*network, options);
    add_settings(*network, options, kNetworkSettings);
    network->footer("The instrument stores the values and reconfigures its network half a second later;\n"
                    "it then answers at the new address.\n"
                    "  orvan-maint set-network --mac 02:00:5e:10:00:01 --dhcp off --ip 10.0.0.9 \\\n"
                    "      --mask 255.255.255.0 --gateway 10.0.0.1");

    CLI::App* const factory = add_command(app, options, "set-factory", "Change factory settings");
    add_reach(*factory, options.reach, wait);
    add_yes(*factory, options);
    add_settings(*factory, options, kFactorySettings);
    factory->footer("The instrument stores it at once; it takes effect at the next start.");

    CLI::App* const words = add_command(app, options, "options", "Show and change an instrument's options");
    add_reach(*words, options.reach, wait);
    add_json(*words, options);
    add_yes(*words, options);
    words->add_option("--set", options.set, "Options to set")->type_name("WORD,...")->delimiter(',');
    words->add_option("--clear", options.clear, "Options to clear")->type_name("WORD,...")->delimiter(',');
    words->footer("The table shows the state at the instrument's start, and changes are made to that\n"
                  "state: give all words at once, and restart the instrument before the next change.");

    CLI::App* const update =
        add_command(app, options, "update", "Update the software of the controller and its modules");
    add_file(*update, "package", options.file, "The package: a tar archive, as made by pack");
    add_reach(*update, options.reach, wait);
    add_yes(*update, options);
    update->add_option("--after", after, "Seconds that the instrument may take to process the package")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str();
    update->footer(
        "The package is checked before anything is sent; a plain archive is compressed with\n"
        "gzip. An instrument in an interrupted download does not answer a search: use\n"
        "--address.\n"
        "The instrument does not report the outcome. update ends with one of:\n"
        "  installed (exit code 0)  it restarted, or has another software version\n"
        "  refused (4)              it answers, but has not restarted within 35 seconds\n"
        "  silent (5)               it does not answer within --after\n"
        "Code 5 also means that it answers but nothing more is known, because another PC sent to it at\n"
        "the same time or --after was too short.");

    CLI::App* const program =
        add_command(app, options, "program", "Program an image into all channel modules at once");
    add_file(*program, "image", options.file, "The image, in any format that the modules accept");
    add_reach(*program, options.reach, wait);
    add_yes(*program, options);
    program->add_option("--channels", options.channels, "Number of modules, if the model's name does not say")
        ->check(CLI::Range(1, 4));
    program
        ->add_flag("--no-identify", options.no_identify,
                   "Send without an identification, after an interrupted download")
        ->needs(program->get_option("--address"))
        ->needs(program->get_option("--channels"));
    program->footer(
        "Each block goes through all modules before the next, and a lost one costs seconds: use a\n"
        "good cable. Afterwards the instrument does not answer a search until it is restarted.");

    CLI::App* const pack = add_command(app, options, "pack", "Build a software package for update");
    add_file(*pack, "package", options.file, "The package to create");
    pack->add_option("--platform", options.platform, "Kind of controller: " + platform_names())
        ->required()
        ->type_name("NAME")
        ->check([](const std::string& name) {
            return find_platform(name) != nullptr ? std::string() : "there are " + platform_names();
        });
    add_file(*pack, "--module", options.module, "The modules' software");
    pack->add_option("--patch", options.patch, "Folder with the files that the controller installs")
        ->required()
        ->type_name("FOLDER");
    pack->add_flag("--force", options.force, "Replace an existing file");

    app.footer(
        "orvan-maint COMMAND --help shows the options of a command.\n"
        "Without --address, instruments are searched for on the network; if there are several, --mac\n"
        "selects one.\n"
        "Exit codes: 0 done; 1 no answer; 2 bad options, or they do not fit the instrument;\n"
        "3 a file that cannot be used; 4 the instrument refused it, or reports a failure; 5 everything\n"
        "was sent, but the outcome is not known; 6 not confirmed, or interrupted.");
    try {
        app.parse(argc, argv);
        if (options.settings.empty() &&
            (options.command == network->get_name() || options.command == factory->get_name())) {
            throw CLI::ValidationError("nothing to change is given");
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
