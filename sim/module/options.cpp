#include "options.h"

#include <algorithm>

#include <CLI/CLI.hpp>

namespace sim_module {

namespace {

std::string check_model(const std::string& model)
{
    return model_limits(model) ? "" : "unknown model " + model;
}

// A ";" ends a value in a reply, and unprintable characters are not allowed in one.
std::string check_text(const std::string& text)
{
    const bool good = !text.empty() && std::all_of(text.begin(), text.end(),
                                                   [](char c) { return c >= 0x20 && c < 0x7F && c != ';'; });
    return good ? "" : "printable text without \";\" expected";
}

} // namespace

std::string default_address(int channel)
{
    return "127.0." + std::to_string(6 + channel) + ".1";
}

uint16_t default_port(int channel)
{
    return static_cast<uint16_t>(6000 + channel);
}

std::optional<Options> parse_options(int argc, const char* const* argv, int& exit_code)
{
    Options options;
    Identity& identity = options.identity;
    CLI::App app(
        "A simulated RF channel module: SCPI over TCP and a firmware port over UDP, with injectable faults.",
        "orvan-module");
    app.set_version_flag("--version", "orvan-module " ORVAN_VERSION);
    app.add_option("--channel", options.channel, "Channel number, 1 to 4")
        ->required()
        ->check(CLI::Range(1, 4));
    app.add_option("--address", options.address, "IPv4 address to listen on; default 127.0.(6+channel).1")
        ->check(CLI::ValidIPV4);
    auto* port = app.add_option("--port", options.port, "TCP port, 0 for a free one; default 6000+channel");
    app.add_option("--firmware-port", options.firmware_port,
                   "UDP port for firmware streams, 0 for a free one; default: none");
    int restart_time = static_cast<int>(options.restart_time.count());
    app.add_option("--restart-time", restart_time, "Milliseconds that a restart takes")
        ->check(CLI::Range(0, 600'000))
        ->capture_default_str();
    app.add_option("--control", options.control_path, "Path of the control socket; default: none");
    app.add_option("--model", identity.model,
                   "Model, which decides the highest frequency and the lowest power")
        ->check(check_model, "MODEL")
        ->capture_default_str();

    app.add_option("--temperature", options.temperature, "Degrees Celsius around which it drifts")
        ->check(CLI::Range(Temperature::kLowest, Temperature::kHighest))
        ->capture_default_str();
    auto* seed =
        app.add_option("--seed", options.seed, "Seed of the temperature's drift; default: the channel number")
            ->check(CLI::NonNegativeNumber);

    struct TextOption {
        const char* name;
        std::string& text;
        const char* help;
    };
    const TextOption texts[] = {
        {"--manufacturer", identity.manufacturer, "Manufacturer in the identification"},
        {"--serial", identity.serial, "Serial number"},
        {"--hardware", identity.hardware, "Hardware version"},
        {"--firmware", identity.firmware, "Firmware version"},
        {"--fpga", identity.fpga, "FPGA version"},
        {"--calibration-date", identity.calibration_date, "Date of the calibration"},
        {"--rf-revision", identity.rf_revision, "Revision of the RF board"},
        {"--digital-revision", identity.digital_revision, "Revision of the digital board"},
    };
    for (const TextOption& option : texts) {
        app.add_option(option.name, option.text, option.help)
            ->check(check_text, "TEXT")
            ->capture_default_str();
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exit_code = app.exit(error);
        return std::nullopt;
    }
    options.restart_time = std::chrono::milliseconds(restart_time);
    if (options.address.empty()) {
        options.address = default_address(options.channel);
    }
    if (seed->count() == 0) {
        options.seed = static_cast<uint64_t>(options.channel);
    }
    if (port->count() == 0) {
        options.port = default_port(options.channel);
    }
    return options;
}

} // namespace sim_module
