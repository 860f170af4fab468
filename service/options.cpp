#include "options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include <getopt.h>
#include <syslog.h>

namespace orvan_service {
namespace {

/** A value that an option does not take; with a text for the user. */
struct BadValue : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Row;
using Take = void (*)(Options& options, const Row& row, const std::string& text);

struct Row {
    const char* name;
    const char* value; // what it takes, in the help; nullptr for a flag
    const char* help;
    Take take;
    double least = 0; // of a number
    double most = 0;
    const char* needs = nullptr;    // the name of another option
    const char* excludes = nullptr; // the name of another option
};

template <auto kMember>
void raise(Options& options, const Row&, const std::string&)
{
    options.*kMember = true;
}

template <auto kMember>
void copy(Options& options, const Row&, const std::string& text)
{
    options.*kMember = text;
}

template <class Number>
bool read(const std::string& text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

/** The shortest text of a bound. */
std::string shown(double number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", number);
    return text;
}

template <auto kMember>
void number(Options& options, const Row& row, const std::string& text)
{
    auto value = options.*kMember;
    if (!read(text, value) || !(value >= row.least && value <= row.most)) {
        throw BadValue(text + " is not a number of " + shown(row.least) + " to " + shown(row.most));
    }
    options.*kMember = value;
}

template <class Value>
struct Choice {
    const char* name;
    Value value;
};

template <class Value>
Value choose(const std::string& text, std::initializer_list<Choice<Value>> choices)
{
    std::string names;
    for (const auto& choice : choices) {
        if (text == choice.name) {
            return choice.value;
        }
        names.append(names.empty() ? "" : ", ").append(choice.name);
    }
    throw BadValue(text + " is none of " + names);
}

void platform(Options& options, const Row&, const std::string& text)
{
    options.platform = choose<Platform>(text, {{"factory", Platform::kFactory},
                                               {"portable", Platform::kPortable},
                                               {"benchtop", Platform::kBenchtop},
                                               {"ksr7000", Platform::kKsr7000}});
}

void log_level(Options& options, const Row&, const std::string& text)
{
    options.log_level = choose<int>(text, {{"err", LOG_ERR},
                                           {"warning", LOG_WARNING},
                                           {"notice", LOG_NOTICE},
                                           {"info", LOG_INFO},
                                           {"debug", LOG_DEBUG}});
}

void port(Options& options, const Row&, const std::string& text)
{
    if (!read(text, options.port.emplace())) {
        throw BadValue(text + " is not a port");
    }
}

void hislip_port(Options& options, const Row&, const std::string& text)
{
    options.hislip = text != "off";
    options.hislip_port.reset();
    if (options.hislip && !read(text, options.hislip_port.emplace())) {
        throw BadValue(text + " is neither a port nor off");
    }
}

void local_dir(Options& options, const Row&, const std::string& text)
{
    options.local_dir = text == "off" ? "" : text;
}

void no_vxi11(Options& options, const Row&, const std::string&)
{
    options.vxi11 = false;
}

void serial(Options& options, const Row&, const std::string& text)
{
    if (text.empty() || text.size() > 30) {
        throw BadValue("1 to 30 characters expected");
    }
    options.serial = text;
}

// Each client uses a descriptor, and most descriptors are needed for the maintenance protocol. A message may
// be 3 MB long.
constexpr Row kRows[] = {
    {"help", nullptr, "Print this help and exit", nullptr},
    {"version", nullptr, "Print the version and exit", nullptr},
    {"platform", "NAME",
     "factory, portable, benchtop or ksr7000; factory: the platform chosen by the library; default: factory",
     platform},
    {"port", "PORT",
     "TCP port of the SCPI server, 0 selects a free one and logs it; default: the port in the settings",
     port},
    {"hislip-port", "PORT|off",
     "TCP port of the HiSLIP server, 0 selects a free one and logs it, off: none; default: 4880, or none if "
     "that is in use",
     hislip_port},
    {"no-vxi11", nullptr,
     "Do not serve VXI-11, which needs an rpcbind on this machine; --modules-on-loopback implies it",
     no_vxi11},
    {"local-dir", "DIR|off",
     "Folder of the Unix sockets for programs of this machine, off: none; default: /run/orvan, or none with "
     "--modules-on-loopback",
     local_dir},
    {"address", "ADDRESS", "Listen only on this address instead of on all IPv4 and IPv6 addresses",
     copy<&Options::address>},
    {"max-clients", "N", "Maximum number of clients, 1 to 512; any more are refused; default: 256",
     number<&Options::max_clients>, 1, 512},
    {"message-memory", "MB",
     "MB of memory for incoming messages over 16 kB, all clients together, 3 to 1024; messages that do not "
     "fit wait; default: 64",
     number<&Options::message_memory>, 3, 1024},
    {"modules-on-loopback", nullptr,
     "For a machine that is not an instrument: module n is at 127.0.(6 + n).1, not 192.168.(6 + n).1; there "
     "is no device and no channel record; excludes --produce",
     raise<&Options::modules_on_loopback>},
    {"channels", "N",
     "Channel modules fitted, without a device, 1 to 4; needs --modules-on-loopback; default: 4",
     number<&Options::channels>, 1, 4, "modules-on-loopback"},
    {"module-wait", "SECONDS",
     "Seconds to wait for the modules at start-up, without a device, 0 to 600; needs --modules-on-loopback; "
     "default: 60",
     number<&Options::module_wait>, 0, 600, "modules-on-loopback"},
    {"produce", "MODEL",
     "Production: write the settings of a new instrument of this model, then exit; needs --serial",
     copy<&Options::produce>, 0, 0, "serial", "modules-on-loopback"},
    {"serial", "TEXT", "Its serial number, 1 to 30 characters; needs --produce", serial, 0, 0, "produce"},
    {"hang-limit", "SECONDS",
     "Seconds without progress after which a command counts as hung, 0.05 to 86400: it is logged, and the "
     "service manager's watchdog is no longer fed; a request to a silent module takes 15; default: 120, or "
     "ORVAN_HANG_LIMIT of the environment",
     number<&Options::hang_limit>, 0.05, 86400},
    {"foreground", nullptr, "Also log to standard error", raise<&Options::foreground>},
    {"log-level", "LEVEL",
     "err, warning, notice, info or debug; info adds every message in and out, which costs two log calls "
     "per message; default: notice",
     log_level},
};

constexpr char kFooter[] =
    "\n"
    "The parent process may pass listening sockets (LISTEN_FDS, LISTEN_PID); they are served in\n"
    "addition or, with --modules-on-loopback, instead. Those named hislip in LISTEN_FDNAMES are for HiSLIP.\n"
    "Exit codes: 0 ended on request, 1 could not start, 2 bad options, 3 outside the sandbox,\n"
    "4 the device did not start.\n";

const Row& row_named(std::string_view name)
{
    return *std::find_if(std::begin(kRows), std::end(kRows),
                         [&](const Row& row) { return row.name == name; });
}

void print_help()
{
    constexpr size_t kColumn = 28; // of the texts
    constexpr size_t kWidth = 100;
    std::string text = "Serves the instrument's SCPI commands over TCP.\n"
                       "Usage: orvan-service [OPTIONS]\n\nOptions:\n";
    for (const Row& row : kRows) {
        std::string line = &row == &kRows[0] ? "  -h, --help" : std::string("  --") + row.name;
        line.append(row.value != nullptr ? " " : "").append(row.value != nullptr ? row.value : "");
        line.resize(std::max(line.size() + 2, kColumn), ' ');
        std::string_view left = row.help;
        while (line.size() + left.size() > kWidth) {
            const size_t space = left.rfind(' ', kWidth - line.size());
            text.append(line).append(left.substr(0, space)).append("\n");
            left.remove_prefix(space + 1);
            line.assign(kColumn, ' ');
        }
        text.append(line).append(left).append("\n");
    }
    std::fputs((text + kFooter).c_str(), stdout);
}

/** Names the option that a BadValue is about. */
void take(const Row& row, const std::string& name, const std::string& text, Options& options)
{
    try {
        row.take(options, row, text);
    } catch (const BadValue& bad) {
        throw BadValue(name + ": " + bad.what());
    }
}

/** @return false after help or version. Throws BadValue; with an empty text if the error has been printed. */
bool parse(std::vector<char*> arguments, Options& options)
{
    std::array<option, std::size(kRows) + 1> known{};
    std::transform(std::begin(kRows), std::end(kRows), known.begin(), [](const Row& row) {
        return option{row.name, row.value != nullptr ? required_argument : no_argument, nullptr, 0};
    });
    std::array<bool, std::size(kRows)> given{};
    const auto is_given = [&](const char* name) {
        return name != nullptr && given[static_cast<size_t>(&row_named(name) - kRows)];
    };
    const int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    ::optind = 0; // from the start, whatever was parsed before
    int index = 0;
    for (int found = 0; (found = ::getopt_long(count, arguments.data(), "+h", known.data(), &index)) != -1;) {
        if (found == '?') {
            throw BadValue("");
        }
        const Row& row = kRows[found == 'h' ? 0 : index];
        if (row.name == std::string_view("help")) {
            print_help();
            return false;
        }
        if (row.name == std::string_view("version")) {
            std::puts("orvan-service " ORVAN_VERSION);
            return false;
        }
        const std::string name = std::string("--") + row.name;
        if (std::exchange(given[static_cast<size_t>(index)], true) && row.value != nullptr) {
            throw BadValue(name + " is given more than once");
        }
        take(row, name, row.value != nullptr ? ::optarg : "", options);
    }
    if (::optind < count) {
        throw BadValue(std::string("unexpected argument ") + arguments[static_cast<size_t>(::optind)]);
    }
    if (const char* const limit = std::getenv("ORVAN_HANG_LIMIT");
        limit != nullptr && *limit != '\0' && !is_given("hang-limit")) {
        take(row_named("hang-limit"), "ORVAN_HANG_LIMIT", limit, options);
    }
    for (const Row& row : kRows) {
        if (!is_given(row.name)) {
            continue;
        }
        if (is_given(row.excludes)) {
            throw BadValue(std::string("--") + row.name + " excludes --" + row.excludes);
        }
        if (row.needs != nullptr && !is_given(row.needs)) {
            throw BadValue(std::string("--") + row.name + " requires --" + row.needs);
        }
    }
    if (options.modules_on_loopback) {
        // These are the machine's, for its own services.
        options.vxi11 = false;
        options.local_dir = is_given("local-dir") ? options.local_dir : "";
    }
    return true;
}

} // namespace

std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code)
{
    Options options;
    std::vector<char*> arguments; // getopt's type is older than const, and it changes nothing
    std::transform(argv, argv + argc, std::back_inserter(arguments),
                   [](const char* argument) { return const_cast<char*>(argument); });
    try {
        if (!parse(std::move(arguments), options)) {
            exit_code = kExitDone;
            return std::nullopt;
        }
    } catch (const BadValue& bad) {
        if (*bad.what() != '\0') {
            std::fprintf(stderr, "orvan-service: %s\n", bad.what());
        }
        std::fputs("Run with --help for more information.\n", stderr);
        exit_code = kExitBadOptions;
        return std::nullopt;
    }
    return options;
}

} // namespace orvan_service
