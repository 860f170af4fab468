#include "instrument.h"

#include <algorithm>
#include <cstring>

#include "exchange.h"
#include "failure.h"

namespace orvan_maint {

using namespace HaldeElec::Orvan;

namespace {

bool same(const hwaddr_t& a, const hwaddr_t& b)
{
    return std::memcmp(a.b, b.b, sizeof a.b) == 0;
}

bool is_same_instrument(const Identity& a, const Identity& b)
{
    static constexpr hwaddr_t kNone{};
    return same(a.mac, b.mac) &&
           (!same(a.mac, kNone) || (a.address.sin_addr.s_addr == b.address.sin_addr.s_addr &&
                                    a.address.sin_port == b.address.sin_port));
}

Identity identity_of(const Received& reply)
{
    return {mac_of(reply.frame), reply.from, read_rows(reply.frame, reply.length)};
}

std::string choice_of(const std::vector<Identity>& found)
{
    std::string list;
    for (const Identity& identity : found) {
        list += "\n  --mac " + mac_text(identity.mac) + "  " + name_of(identity);
    }
    return list;
}

} // namespace

std::unique_ptr<UdpLink> link_to_address(const Reach& reach, int stop)
{
    return std::make_unique<UdpLink>(resolve(reach.address, reach.port), stop);
}

std::optional<Identity> identify(Link& link, const hwaddr_t& mac, std::chrono::milliseconds wait)
{
    const auto reply = ask(link, make_frame(kOpcodeIdentify, mac), 0, wait);
    return reply ? std::optional(identity_of(*reply)) : std::nullopt;
}

std::vector<Identity> discover(const Reach& reach, int stop, std::string& problem)
{
    std::vector<Identity> found;
    const hwaddr_t mac = reach.mac.empty() ? eth_brdcast_addr : parse_mac(reach.mac).value();
    if (!reach.address.empty()) {
        const auto link = link_to_address(reach, stop);
        if (const auto identity = identify(*link, mac, reach.wait)) {
            found.push_back(*identity);
        }
        problem = link->problem();
    } else {
        UdpLink link(find_interfaces(reach.interface), reach.port, stop);
        ask(link, make_frame(kOpcodeIdentify, mac), 0, reach.wait, [&](const Received& reply) {
            const Identity identity = identity_of(reply);
            if (std::none_of(found.begin(), found.end(), [&identity](const Identity& known) {
                    return is_same_instrument(known, identity);
                })) {
                found.push_back(identity);
            }
            return !reach.mac.empty() && same(identity.mac, mac);
        });
        problem = link.problem();
    }
    // To requests from its own machine an instrument replies whatever address they were sent to.
    std::erase_if(found,
                  [&](const Identity& identity) { return !reach.mac.empty() && !same(identity.mac, mac); });
    return found;
}

Target choose_instrument(const Reach& reach, int stop)
{
    std::string problem;
    std::vector<Identity> found = discover(reach, stop, problem);
    if (found.empty()) {
        throw Failure(kExitNoAnswer, no_answer(reach, problem));
    }
    if (found.size() > 1) {
        throw Failure(kExitBadOptions, "several instruments answer; choose one:" + choice_of(found));
    }
    auto link = std::make_unique<UdpLink>(found[0].address, stop);
    return {found[0], std::move(link)};
}

std::string name_of(const Identity& identity)
{
    return text_of(identity.rows, FLASH_MODELNAME) + " " + text_of(identity.rows, FLASH_SERIALNUMBER) +
           " at " + address_text(identity.address) + " (" + mac_text(identity.mac) + ")";
}

std::string no_answer(const Reach& reach, const std::string& problem)
{
    return "no instrument " + (reach.mac.empty() ? "" : "with the hardware address " + reach.mac + " ") +
           "answers" + (reach.address.empty() ? "" : " at " + printable(reach.address)) + problem +
           "\nAn instrument that is in the middle of a download, also of one that was broken off, answers "
           "nothing else;\none whose modules were programmed answers again after it was restarted.";
}

} // namespace orvan_maint
