#include "control_commands.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <system_error>

#include "parameters.h"

namespace sim_module {

namespace {

template <typename Number>
std::optional<Number> parse(std::string_view text)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

std::string_view next_word(std::string_view& text)
{
    static constexpr std::string_view kBlanks = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
    text.remove_prefix(word.size());
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return word;
}

std::string quote(std::string_view printable)
{
    std::string text = "\"";
    for (const char c : printable) {
        if (c == '"' || c == '\\') {
            text += '\\';
        }
        text += c;
    }
    return text + '"';
}

std::string ok(uint64_t value)
{
    return "ok " + std::to_string(value) + "\n";
}

std::string error(std::string_view text)
{
    return "error " + std::string(text) + "\n";
}

const std::string kOk = "ok\n";

} // namespace

std::string ControlCommands::execute(std::string_view line)
{
    const std::string_view command = next_word(line);
    if (command == "update") {
        return set_update_fault(line);
    }
    const std::string_view argument = next_word(line);
    if (!line.empty()) {
        return error("too many arguments");
    }
    if (const auto mode = fault_by_name(command)) {
        return set_fault(*mode, argument);
    }
    if (command == "temp") {
        return set_temperature(argument);
    }
    if (command == "log") {
        return list_requests(argument);
    }
    if (!argument.empty()) {
        return error("unknown command or too many arguments");
    }
    if (command == "status") {
        return status();
    }
    if (command == "requests") {
        return ok(m_log.count());
    }
    if (command == "clear") {
        m_log.clear();
        return kOk;
    }
    return error("unknown command");
}

std::string ControlCommands::set_fault(FaultMode mode, std::string_view argument)
{
    const bool timed = mode == FaultMode::kSlow || mode == FaultMode::kSplit;
    std::chrono::milliseconds delay{0};
    if (timed) {
        delay = mode == FaultMode::kSlow ? Faults::kDefaultSlow : Faults::kDefaultGap;
    }
    if (!argument.empty()) {
        const auto number = parse<int64_t>(argument);
        if (!timed || !number || *number < 0 || *number > Faults::kMaxDelay.count()) {
            return error(timed ? "milliseconds expected, 0 to 600000" : "no argument expected");
        }
        delay = std::chrono::milliseconds(*number);
    }
    const FaultMode old_mode = m_faults.mode();
    const std::chrono::milliseconds old_delay = m_faults.delay();
    m_faults.set(mode, delay);
    try {
        m_server.apply_faults();
    } catch (const std::system_error& failure) {
        // Another process took the port while it was closed.
        m_faults.set(old_mode, old_delay);
        return error(failure.what());
    }
    return kOk;
}

std::string ControlCommands::set_update_fault(std::string_view arguments)
{
    Firmware& firmware = m_instrument.firmware();
    const std::string_view name = next_word(arguments);
    const std::string_view argument = next_word(arguments);
    if (!arguments.empty()) {
        return error("too many arguments");
    }
    if (name.empty()) {
        return "ok " + std::string(update_fault_name(firmware.fault())) + "\n";
    }
    const auto fault = update_fault_by_name(name);
    if (!fault) {
        return error("update up, silent-stream, silent-burn, late or refuse expected");
    }
    uint16_t from = 1;
    std::chrono::milliseconds late = Firmware::kDefaultLate;
    if (!argument.empty() && *fault == UpdateFault::kSilentStream) {
        const auto block = parse<uint16_t>(argument);
        if (!block) {
            return error("number of a block expected, 0 to 65535");
        }
        from = *block;
    } else if (!argument.empty() && *fault == UpdateFault::kLate) {
        const auto number = parse<int64_t>(argument);
        if (!number || *number < 0 || *number > Firmware::kMaxLate.count()) {
            return error("milliseconds expected, 0 to 600000");
        }
        late = std::chrono::milliseconds(*number);
    } else if (!argument.empty()) {
        return error("no argument expected");
    }
    firmware.set_fault(*fault, from, late);
    return kOk;
}

std::string ControlCommands::set_temperature(std::string_view argument)
{
    Temperature& temperature = m_instrument.temperature();
    if (argument.empty()) {
        return "ok " + quantity_text(temperature.read()) +
               (temperature.is_held() ? " held\n" : " drifting\n");
    }
    if (argument == "auto") {
        temperature.release();
        return kOk;
    }
    const auto celsius = parse<double>(argument);
    // Written so that NaN is refused too.
    if (!celsius || !(*celsius >= Temperature::kLowest && *celsius <= Temperature::kHighest)) {
        return error("degrees Celsius, -273.15 to 1000, or \"auto\" expected");
    }
    temperature.hold(*celsius);
    return kOk;
}

std::string ControlCommands::list_requests(std::string_view argument) const
{
    size_t count = m_log.size();
    if (!argument.empty()) {
        const auto wanted = parse<size_t>(argument);
        if (!wanted) {
            return error("number of requests expected");
        }
        count = std::min(count, *wanted);
    }
    std::string reply = ok(count);
    for (size_t i = m_log.size() - count; i < m_log.size(); ++i) {
        reply += m_log.line(i);
        reply += '\n';
    }
    return reply;
}

std::string ControlCommands::status() const
{
    std::string text = "{";
    const auto add = [&text](std::string_view name, const std::string& value) {
        text += text.size() == 1 ? "" : ",";
        text += quote(name) + ":" + value;
    };
    add("channel", std::to_string(m_channel));
    add("model", quote(m_instrument.identity().model));
    add("address", quote(m_server.address()));
    add("port", std::to_string(m_server.port()));
    add("mode", quote(fault_name(m_faults.mode())));
    add("delay_ms", std::to_string(m_faults.delay().count()));
    add("connections", std::to_string(m_server.connections()));
    add("requests", std::to_string(m_log.count()));
    add("last_request", quote(m_log.last_line()));
    add("temperature", quantity_text(m_instrument.temperature().read()));
    add("temperature_held", m_instrument.temperature().is_held() ? "true" : "false");
    add("triggers", std::to_string(m_instrument.triggers()));
    add("clock", quote(m_instrument.clock()));
    add("restarts", std::to_string(m_instrument.restarts()));
    add("away", m_server.is_away() ? "true" : "false");
    add("firmware_port", std::to_string(m_firmware_port ? m_firmware_port->port() : 0));
    add("update", quote(update_fault_name(m_instrument.firmware().fault())));
    add("images", images());
    return text + "}\n";
}

std::string ControlCommands::images() const
{
    std::string text = "{";
    for (const ImageKind kind : {ImageKind::kSoftware, ImageKind::kFpga, ImageKind::kProgram}) {
        const Firmware::Image& image = m_instrument.firmware().image(kind);
        char line[80];
        std::snprintf(line, sizeof line, "{\"stored\":%u,\"size\":%zu,\"crc32\":\"%08X\"}", image.stored,
                      image.size, static_cast<unsigned>(image.crc32));
        text += (text.size() == 1 ? "" : ",") + quote(image_name(kind)) + ":" + line;
    }
    return text + "}";
}

} // namespace sim_module
