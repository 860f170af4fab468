#include "announce_instrument.h"

#include "http/socket_address.h"
#include "process/listening.h"

namespace orvan_web {
namespace {

constexpr uint16_t kHislipPort = 4880;
constexpr uint16_t kPortMapperPort = 111;

bool is_loopback(const std::string& address)
{
    return address.starts_with("127.") || address == "::1";
}

} // namespace

uint16_t port_for_others(const std::vector<orvan_common::UniqueFd>& listeners)
{
    for (const auto& listener : listeners) {
        if (!is_loopback(local_address_text(listener.get()))) {
            return orvan_common::port_of(listener.get());
        }
    }
    return 0;
}

void announce_instrument(Instrument& instrument, Announcer& announcer, uint16_t http_port)
{
    const auto announce = [&instrument, &announcer, http_port] {
        const Identity& identity = instrument.identity();
        if (identity.model.empty()) {
            return;
        }
        instrument.channels().copy_records();
        announcer.announce({identity.manufacturer, identity.model, identity.serial, identity.firmware,
                            identity.hostname, http_port, instrument.raw_port(), kHislipPort,
                            kPortMapperPort});
    };
    instrument.on_events(
        {.channel = [](const cJSON*) {}, .instrument = [] {}, .service = [](bool) {}, .identity = announce});
}

} // namespace orvan_web
