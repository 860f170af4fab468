#include "exchange.h"

namespace orvan_maint {
namespace {

uint32_t next_tag()
{
    static uint32_t tag = 0;
    return ++tag;
}

} // namespace

bool ask(Link& link, HALDE_PACKET request, size_t data_length, std::chrono::milliseconds time,
         const std::function<bool(const Received&)>& wanted)
{
    const uint32_t tag = next_tag();
    put_info(request, tag);
    const std::string_view opcode(request.opcode, sizeof request.opcode);
    const Clock::time_point start = Clock::now();
    for (const Clock::time_point next : {start + time / 6, start + time / 2, start + time}) {
        link.send(wire_bytes(request, data_length));
        Received received;
        while (link.receive(received, next)) {
            if (has_opcode(received.frame, opcode) && info_of(received.frame) == tag && wanted(received)) {
                return true;
            }
        }
    }
    return false;
}

std::optional<Received> ask(Link& link, const HALDE_PACKET& request, size_t data_length,
                            std::chrono::milliseconds time)
{
    std::optional<Received> first;
    ask(link, request, data_length, time, [&first](const Received& received) {
        first = received;
        return true;
    });
    return first;
}

} // namespace orvan_maint
