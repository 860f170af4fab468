#include "counters_document.h"

#include <array>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>

#include <unistd.h>

#include <cjson/cJSON.h>

#include "orvan_sdk/modules/module_counters.h"
#include "service/own_sockets.h"

namespace orvan_service {
namespace {

using Clock = Counters::Clock;

constexpr std::array<const char*, kProtocols> kNames{"raw", "hislip", "vxi11", "local"};

struct Delete {
    void operator()(cJSON* json) const { ::cJSON_Delete(json); }
    void operator()(char* text) const { ::cJSON_free(text); }
};

const char* name_of(Protocol protocol)
{
    return kNames[static_cast<size_t>(protocol)];
}

double seconds(Clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

void add(cJSON* object, const char* name, double number)
{
    ::cJSON_AddNumberToObject(object, name, number);
}

void add(cJSON* object, const char* name, uint64_t number)
{
    add(object, name, static_cast<double>(number)); // exact up to 2^53
}

void add(cJSON* object, const char* name, const std::string& text)
{
    ::cJSON_AddStringToObject(object, name, text.c_str());
}

void add_to_array(cJSON* array, double number)
{
    ::cJSON_AddItemToArray(array, ::cJSON_CreateNumber(number));
}

cJSON* add_object_to_array(cJSON* array)
{
    cJSON* const object = ::cJSON_CreateObject();
    ::cJSON_AddItemToArray(array, object);
    return object;
}

uint64_t resident_bytes()
{
    unsigned long pages = 0;
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/proc/self/statm", "re"), std::fclose);
    if (!file || std::fscanf(file.get(), "%*u %lu", &pages) != 1) {
        return 0;
    }
    return uint64_t{pages} * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
}

/** Adds the connected clients. @return their numbers by protocol */
std::array<uint64_t, kProtocols> add_clients(cJSON* document, const Executor& executor, Clock::time_point now)
{
    cJSON* const clients = ::cJSON_AddArrayToObject(document, "clients");
    std::array<uint64_t, kProtocols> numbers{};
    std::optional<OwnSockets> own; // examines every descriptor
    executor.count([&](const Session& session) {
        const Client& client = session.client();
        cJSON* const entry = add_object_to_array(clients);
        ++numbers[static_cast<size_t>(client.protocol)];
        ::cJSON_AddStringToObject(entry, "protocol", name_of(client.protocol));
        add(entry, "address", client.address);
        add(entry, "since_s", seconds(now - client.since));
        if (client.protocol == Protocol::kRaw) {
            if (!own) {
                own.emplace();
            }
            if (own->at_other_end_of(session.descriptor())) {
                ::cJSON_AddTrueToObject(entry, "own");
            }
        }
        return true;
    });
    return numbers;
}

void add_protocols(cJSON* document, const Counters& counters, const std::array<uint64_t, kProtocols>& clients)
{
    cJSON* const protocols = ::cJSON_AddObjectToObject(document, "protocols");
    for (size_t i = 0; i < kProtocols; ++i) {
        const Counters::OfProtocol counts = counters.of(static_cast<Protocol>(i));
        cJSON* const entry = ::cJSON_AddObjectToObject(protocols, kNames[i]);
        add(entry, "messages", counts.messages);
        add(entry, "errors", counts.errors);
        add(entry, "clients", clients[i]);
        add(entry, "refused", counts.refused);
    }
}

void add_latency(cJSON* document, const Counters& counters)
{
    cJSON* const latency = ::cJSON_AddObjectToObject(document, "latency");
    cJSON* const bounds = ::cJSON_AddArrayToObject(latency, "bounds_s");
    for (const double bound : kLatencyBounds) {
        add_to_array(bounds, bound);
    }
    cJSON* const counts = ::cJSON_AddArrayToObject(latency, "counts");
    for (const uint64_t count : counters.latencies()) {
        add_to_array(counts, static_cast<double>(count));
    }
    add(latency, "sum_s", seconds(counters.latency_sum()));
}

void add_modules(cJSON* document, int count)
{
    cJSON* const modules = ::cJSON_AddArrayToObject(document, "modules");
    for (int module = 1; module <= count; ++module) {
        const auto counters = HaldeElec::Orvan::module_counters(module);
        cJSON* const entry = add_object_to_array(modules);
        add(entry, "module", static_cast<double>(module));
        add(entry, "requests", counters.requests);
        add(entry, "timeouts", counters.timeouts);
        add(entry, "link_errors", counters.link_errors);
        ::cJSON_AddBoolToObject(entry, "failed", counters.failed);
    }
}

void add_errors(cJSON* document, const Counters& counters, Clock::time_point now)
{
    cJSON* const errors = ::cJSON_AddArrayToObject(document, "last_errors");
    for (const SeenError& error : counters.last_errors()) {
        cJSON* const entry = add_object_to_array(errors);
        add(entry, "age_s", seconds(now - error.time));
        ::cJSON_AddStringToObject(entry, "protocol", name_of(error.protocol));
        add(entry, "client", error.client);
        add(entry, "number", static_cast<double>(error.number));
        add(entry, "text", error.text);
        add(entry, "message", error.message);
    }
}

void add_running(cJSON* document, const Executor& executor, const HangWatch& watch)
{
    const auto running = executor.running();
    if (!running) {
        ::cJSON_AddNullToObject(document, "running");
        return;
    }
    cJSON* const entry = ::cJSON_AddObjectToObject(document, "running");
    add(entry, "client", running->client);
    add(entry, "message", watch.message());
    add(entry, "for_s", seconds(running->time));
}

} // namespace

std::string counters_document(const Executor& executor, const HangWatch& watch, int modules)
{
    const Counters& counters = executor.counters();
    const auto now = Clock::now();
    const std::unique_ptr<cJSON, Delete> document(::cJSON_CreateObject());
    ::cJSON_AddStringToObject(document.get(), "version", ORVAN_VERSION);
    add(document.get(), "uptime_s", seconds(now - counters.begin()));
    add(document.get(), "resident_bytes", resident_bytes());
    ::cJSON_AddTrueToObject(document.get(), "ready"); // before, nobody is served
    const auto clients = add_clients(document.get(), executor, now);
    add_protocols(document.get(), counters, clients);
    add_latency(document.get(), counters);
    add_modules(document.get(), modules);
    add_errors(document.get(), counters, now);
    add_running(document.get(), executor, watch);
    const std::unique_ptr<char, Delete> text(::cJSON_PrintUnformatted(document.get()));
    if (!text) {
        throw std::bad_alloc();
    }
    return text.get();
}

} // namespace orvan_service
