#include "fake_service.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "instrument/channel_settings.h"

namespace orvan_test {
namespace {

using orvan_common::UniqueFd;
using orvan_web::ChannelSetting;
using orvan_web::SettingKind;

UniqueFd listen_at(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    std::filesystem::remove(path);
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd.get(), 16) != 0) {
        throw std::runtime_error(path);
    }
    return fd;
}

std::string plain(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.15G", value);
    return text;
}

// A number with a unit; false if it has another one.
bool read_number(const std::string& text, double& value)
{
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    std::string unit;
    for (; *end != '\0'; ++end) {
        if (*end != ' ') {
            unit += static_cast<char>(std::toupper(static_cast<unsigned char>(*end)));
        }
    }
    constexpr std::pair<const char*, double> kUnits[] = {
        {"", 1},      {"HZ", 1},    {"KHZ", 1e3}, {"MHZ", 1e6}, {"GHZ", 1e9}, {"DBM", 1}, {"S", 1},
        {"MS", 1e-3}, {"US", 1e-6}, {"NS", 1e-9}, {"PCT", 1},   {"DEG", 1},   {"RAD", 1}};
    for (const auto& [name, factor] : kUnits) {
        if (unit == name) {
            value *= factor;
            return true;
        }
    }
    return false;
}

const ChannelSetting* setting_of(const std::string& header)
{
    for (const ChannelSetting& setting : orvan_web::channel_settings()) {
        if (header == setting.scpi) {
            return &setting;
        }
    }
    return nullptr;
}

} // namespace

FakeService::FakeService(int channels) : m_channels(channels), m_modules(static_cast<size_t>(channels))
{
    char folder[] = "/tmp/orvan-web-test-XXXXXX";
    if (::mkdtemp(folder) == nullptr) {
        throw std::runtime_error("mkdtemp");
    }
    m_folder = folder;
    m_object = "/" + std::filesystem::path(m_folder).filename().string();
    const UniqueFd memory(::shm_open(m_object.c_str(), O_RDWR | O_CREAT, 0600));
    const size_t size = sizeof(ORVAN_CONFIG) * static_cast<size_t>(channels);
    if (::ftruncate(memory.get(), static_cast<off_t>(size)) != 0) {
        throw std::runtime_error("ftruncate");
    }
    m_records = static_cast<ORVAN_CONFIG*>(
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0));
    for (int channel = 1; channel <= channels; ++channel) {
        OrvanData().init_cmd_config(ORVAN_FACTORY_SETUP, &m_records[channel - 1]);
        mirror(channel, ODT_TEMP, "41.5");
        mirror(channel, ODT_INF_MODEL, "OVX3652B");
        mirror(channel, ODT_INF_SERIAL, "100001");
        for (const ChannelSetting& setting : orvan_web::channel_settings()) {
            const orvan_web::SettingValue value = value_of_record(setting, m_records[channel - 1]);
            const bool* const on = std::get_if<bool>(&value);
            const double* const number = std::get_if<double>(&value);
            const std::string* const text = std::get_if<std::string>(&value);
            m_modules[static_cast<size_t>(channel) - 1].values[setting.scpi] =
                on != nullptr       ? (*on ? "1" : "0")
                : number != nullptr ? plain(*number)
                : text != nullptr   ? *text
                                    : "10000000";
        }
    }
    start();
}

FakeService::~FakeService()
{
    stop();
    ::munmap(m_records, sizeof(ORVAN_CONFIG) * static_cast<size_t>(m_channels));
    ::shm_unlink(m_object.c_str());
    std::filesystem::remove_all(m_folder);
}

void FakeService::start()
{
    m_stop = UniqueFd(::eventfd(0, EFD_CLOEXEC));
    m_scpi = listen_at(m_folder + "/scpi.sock");
    m_counters = listen_at(m_folder + "/counters.sock");
    m_thread = std::thread([this] { serve(); });
}

void FakeService::stop()
{
    if (!m_thread.joinable()) {
        return;
    }
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_stop.get(), &one, sizeof one);
    m_thread.join();
    for (std::thread& session : m_sessions) {
        session.join();
    }
    m_sessions.clear();
    m_scpi.reset();
    m_counters.reset();
}

void FakeService::serve()
{
    for (;;) {
        pollfd fds[] = {{m_stop.get(), POLLIN, 0}, {m_scpi.get(), POLLIN, 0}, {m_counters.get(), POLLIN, 0}};
        ::poll(fds, 3, -1);
        if (fds[0].revents != 0) {
            return;
        }
        if (fds[1].revents != 0) {
            const int fd = ::accept4(m_scpi.get(), nullptr, nullptr, SOCK_CLOEXEC);
            m_sessions.emplace_back([this, fd] { serve_scpi(fd); });
        }
        if (fds[2].revents != 0) {
            serve_counters(::accept4(m_counters.get(), nullptr, nullptr, SOCK_CLOEXEC));
        }
    }
}

void FakeService::serve_scpi(int socket)
{
    const UniqueFd fd(socket);
    Session session;
    std::string received;
    for (;;) {
        pollfd fds[] = {{m_stop.get(), POLLIN, 0}, {fd.get(), POLLIN, 0}};
        ::poll(fds, 2, -1);
        if (fds[0].revents != 0) {
            return;
        }
        char bytes[4096];
        const ssize_t count = ::recv(fd.get(), bytes, sizeof bytes, 0);
        if (count <= 0) {
            return;
        }
        received.append(bytes, static_cast<size_t>(count));
        for (size_t end = 0; (end = received.find('\n')) != std::string::npos;) {
            const std::string message = received.substr(0, end);
            received.erase(0, end + 1);
            if (message != ":SYST:ERR:SESS?") {
                const std::lock_guard lock(m_mutex);
                m_messages.push_back(message);
            }
            if (silent) {
                continue;
            }
            const std::string response = execute(session, message) + '\n';
            for (size_t sent = 0; sent < response.size();) {
                const size_t piece = bytewise ? 1 : response.size() - sent;
                const ssize_t done = ::send(fd.get(), response.data() + sent, piece, MSG_NOSIGNAL);
                if (done < 0) {
                    return;
                }
                sent += static_cast<size_t>(done);
            }
        }
    }
}

void FakeService::serve_counters(int socket)
{
    const UniqueFd fd(socket);
    const std::string text = counters_document();
    [[maybe_unused]] const ssize_t sent = ::send(fd.get(), text.data(), text.size(), MSG_NOSIGNAL);
}

std::string FakeService::counters_document()
{
    const std::lock_guard lock(m_mutex);
    std::string modules;
    for (size_t i = 0; i < m_modules.size(); ++i) {
        modules +=
            (i > 0 ? "," : "") + std::string("{\"module\":") + std::to_string(i + 1) +
            ",\"requests\":" + plain(m_modules[i].requests) +
            ",\"timeouts\":2,\"link_errors\":3,\"failed\":" + (m_modules[i].failed ? "true" : "false") + "}";
    }
    return R"({"version":"0.1.0","uptime_s":12.5,"resident_bytes":1000000,"ready":true,
        "protocols":{"raw":{"messages":7,"errors":1,"clients":2,"refused":0},
                     "hislip":{"messages":5,"errors":0,"clients":1,"refused":4}},
        "latency":{"bounds_s":[0.0001,0.0003,0.001,0.003,0.01,0.03,0.1,0.3,1,3,10],
                   "counts":[1,2,3,0,0,0,0,0,0,0,0,4],"sum_s":1.25},
        "modules":[)" +
           modules + R"(],
        "clients":[{"protocol":"raw","address":"10.0.0.1:40000","since_s":3.2},
                   {"protocol":"raw","address":"127.0.0.1:40001","since_s":9,"own":true},
                   {"protocol":"local","address":"","since_s":9}],
        "last_errors":[{"age_s":)" +
           std::to_string(++m_documents) + R"(,"protocol":"raw","client":"10.0.0.1:40000","number":-113,
                        "text":"Undefined header","message":":FOO"}],
        "running":null})";
}

std::string FakeService::other_client(int channel, const std::string& message)
{
    Session session;
    session.channel = channel;
    return execute(session, message);
}

std::string FakeService::execute(Session& session, const std::string& message)
{
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_responses.find(message); found != m_responses.end()) {
        return found->second;
    }
    if (message == ":SYST:ERR:SESS?") {
        const std::string errors = std::exchange(session.errors, "");
        return errors.empty() ? "0,\"No error\"" : errors;
    }
    std::string response;
    std::string rest = message;
    bool forwarded = false;
    for (size_t end = 0; !rest.empty(); rest.erase(0, end + 1)) {
        end = std::min(rest.find(';'), rest.size());
        const std::string unit = rest.substr(0, end);
        forwarded = execute_unit(session, unit, response) || forwarded;
        if (end == rest.size()) {
            break;
        }
    }
    m_modules[static_cast<size_t>(session.channel) - 1].requests += forwarded ? 1 : 0;
    return response;
}

bool FakeService::execute_unit(Session& session, const std::string& unit, std::string& response)
{
    const size_t blank = unit.find(' ');
    std::string header = unit.substr(0, blank);
    const std::string parameter = blank == std::string::npos ? "" : unit.substr(blank + 1);
    const bool query = header.ends_with('?');
    if (query) {
        header.pop_back();
    }
    const auto reply = [&](const std::string& text) { response += (response.empty() ? "" : ";") + text; };
    if (header == ":INST") {
        session.channel = std::atoi(parameter.c_str());
        return false;
    }
    static const std::map<std::string, std::string> kController = {
        {"*IDN", "Halde Electronics Ltd.,OVX3652B,100001,1.19.145"},
        {":SYST:COMM:LAN:HOST", "bench-4"},
        {":INT:INF:DEV:ARCH", "OVX3652B,20000,2,usb,3602,168c,benchtop"},
        {":SYST:FAN:MODE", "AUTO"},
        {":SYST:POW:SET", "0"},
        {"*TST", "0 Failures"}};
    if (const auto found = kController.find(header); query && found != kController.end()) {
        reply(found->second);
        return false;
    }
    Module& module = m_modules[static_cast<size_t>(session.channel) - 1];
    if (module.unplugged) {
        module.failed = true;
        add_error(session, false, "-241,\"Hardware missing\"");
        return true;
    }
    module.failed = false;
    const ChannelSetting* const setting = setting_of(header);
    if (setting == nullptr || std::find(m_refused.begin(), m_refused.end(), header) != m_refused.end()) {
        add_error(session, true, "-113,\"Undefined header\"");
        return true;
    }
    const ORVAN_CONFIG& stored = m_records[session.channel - 1];
    const auto limits = limits_of_record(*setting, stored);
    if (query && (parameter == "MIN" || parameter == "MAX")) {
        const double limit = limits               ? (parameter == "MIN" ? limits->min : limits->max)
                             : parameter == "MIN" ? 1e7
                                                  : 1e8;
        reply(plain(limit));
    } else if (query) {
        const std::string text =
            setting->kind == SettingKind::kText ? '"' + module.values[header] + '"' : module.values[header];
        mirror(session.channel, setting->tag, text);
        reply(text);
    } else {
        mirror(session.channel, setting->tag, parameter);
        double number = 0;
        switch (setting->kind) {
        case SettingKind::kNumber:
        case SettingKind::kInteger:
            if (!read_number(parameter, number)) {
                add_error(session, true, "-131,\"Invalid suffix\"");
            } else if (limits && (number < limits->min || number > limits->max)) {
                add_error(session, true, "-222,\"Data out of range\"");
            } else {
                module.values[header] = plain(number);
            }
            break;
        case SettingKind::kSwitch:
            module.values[header] = parameter == "OFF" || parameter == "0" ? "0" : "1";
            break;
        default:
            module.values[header] =
                parameter.starts_with('"') ? parameter.substr(1, parameter.size() - 2) : parameter;
        }
    }
    return true;
}

void FakeService::add_error(Session& session, bool of_module, const std::string& error)
{
    session.errors += (session.errors.empty() ? "" : ",") + error;
    if (of_module) {
        m_modules[static_cast<size_t>(session.channel) - 1].errors.push_back(error);
    }
}

// As the library does it.
void FakeService::mirror(int channel, int tag, const std::string& text)
{
    const OrvanElementData& element = OrvanData::orvanMap[tag];
    char* const place = reinterpret_cast<char*>(&m_records[channel - 1]) + element.pos;
    const auto store = [place](auto value) { std::memcpy(place, &value, sizeof value); };
    switch (element.type) {
    case TYPE_BOOL:
        store(static_cast<int>(text == "ON" || text == "On" || text == "1"));
        break;
    case TYPE_INT32:
    case TYPE_UINT32:
        store(static_cast<int>(std::strtol(text.c_str(), nullptr, 10)));
        break;
    case TYPE_STRING:
        std::snprintf(place, element.size, "%s", text.c_str());
        break;
    default:
        store(std::strtod(text.c_str(), nullptr));
    }
}

std::string FakeService::value(int channel, const std::string& header)
{
    const std::lock_guard lock(m_mutex);
    return m_modules[static_cast<size_t>(channel) - 1].values[header];
}

void FakeService::set_value(int channel, const std::string& header, const std::string& value)
{
    const std::lock_guard lock(m_mutex);
    m_modules[static_cast<size_t>(channel) - 1].values[header] = value;
}

ORVAN_CONFIG FakeService::record(int channel)
{
    const std::lock_guard lock(m_mutex);
    return m_records[channel - 1];
}

void FakeService::change_record(int channel, int tag, const std::string& text)
{
    const std::lock_guard lock(m_mutex);
    mirror(channel, tag, text);
}

size_t FakeService::module_errors(int channel)
{
    const std::lock_guard lock(m_mutex);
    return m_modules[static_cast<size_t>(channel) - 1].errors.size();
}

std::vector<std::string> FakeService::messages()
{
    const std::lock_guard lock(m_mutex);
    return m_messages;
}

void FakeService::forget_messages()
{
    const std::lock_guard lock(m_mutex);
    m_messages.clear();
}

void FakeService::unplug(int channel, bool unplugged)
{
    const std::lock_guard lock(m_mutex);
    m_modules[static_cast<size_t>(channel) - 1].unplugged = unplugged;
}

void FakeService::fail(int channel, bool failed)
{
    const std::lock_guard lock(m_mutex);
    Module& module = m_modules[static_cast<size_t>(channel) - 1];
    module.failed = failed;
    ++module.requests;
}

void FakeService::refuse(const std::string& header)
{
    const std::lock_guard lock(m_mutex);
    m_refused.push_back(header);
}

void FakeService::respond(const std::string& message, const std::string& response)
{
    const std::lock_guard lock(m_mutex);
    m_responses[message] = response;
}

} // namespace orvan_test
