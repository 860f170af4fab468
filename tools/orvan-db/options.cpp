#include "options.h"

#include <strings.h>

#include <CLI/CLI.hpp>

#include <orvan_element_names.h>

namespace orvan_db {

int tag_of_name(const std::string& name)
{
    constexpr size_t kPrefix = 4; // "ODT_"
    for (size_t tag = 0; tag < kOrvanElementCount; ++tag) {
        const char* const known = orvan_common::kElementNames[tag].tag;
        if (::strcasecmp(name.c_str(), known) == 0 || ::strcasecmp(name.c_str(), known + kPrefix) == 0) {
            return static_cast<int>(tag);
        }
    }
    return -1;
}

std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code)
{
    Options options;
    std::string tag;
    int interval = static_cast<int>(options.interval.count());
    CLI::App app(
        "Prints the channel records that the instrument's service keeps in shared memory, and stored setups.",
        "orvan-db");
    app.set_version_flag("--version", std::string("orvan-db ") + ORVAN_VERSION);
    app.add_option("--channel", options.channel, "This channel only")->check(CLI::Range(1, 4));
    app.add_option("--tag", tag, "This element only: ODT_FREQ, or freq for short");
    app.add_flag("--json", options.json, "JSON instead of a table; with --watch, one object per line");
    CLI::Option* const watch =
        app.add_flag("--watch", options.watch, "Keep running and print each element when it changes");
    app.add_option("--interval", interval, "Milliseconds between two polls of --watch")
        ->check(CLI::Range(1, 60'000))
        ->capture_default_str();
    CLI::Option* const setup =
        app.add_option("--setup", options.setup, "Print this stored setup of a channel, preset-3.json")
            ->type_name("FILE")
            ->check([](const std::string& name) {
                return name.empty() ? std::string("no file is given") : std::string();
            })
            ->excludes(watch);
    app.add_flag("--diff", options.diff, "Print what a recall of the setup would change: live -> setup")
        ->needs(setup);
    app.footer(
        "A row of the table: channel, tag, the field's name in a setup file, value.\n"
        "Of a setup, only the elements in the file are shown; their channel is - unless --channel names\n"
        "it. --diff compares only what a recall takes from the file: neither State, which says whether\n"
        "the module is live, nor the network's elements, which show the present network.\n"
        "Values are copied without a lock: one that is being written may appear half-written.\n"
        "Exit codes: 0 printed, 1 no instrument, or it does not have the channel, 2 bad options,\n"
        "3 a setup file that cannot be used or recalled.");
    try {
        app.parse(argc, argv);
        if (!tag.empty() && (options.tag = tag_of_name(tag)) < 0) {
            throw CLI::ValidationError("--tag", "there is no element " + tag);
        }
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error) == 0 ? kExitDone : kExitBadOptions;
        return std::nullopt;
    }
    options.interval = std::chrono::milliseconds(interval);
    return options;
}

} // namespace orvan_db
