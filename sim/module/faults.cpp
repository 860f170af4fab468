#include "faults.h"

#include <algorithm>
#include <array>
#include <utility>

namespace sim_module {

namespace {

struct FaultName {
    std::string_view name;
    FaultMode mode;
};

// A mode is reported by its first name.
constexpr std::array kFaultNames = {
    FaultName{"up", FaultMode::kUp},         FaultName{"silent", FaultMode::kSilent},
    FaultName{"refuse", FaultMode::kRefuse}, FaultName{"close", FaultMode::kClose},
    FaultName{"drop", FaultMode::kClose},    FaultName{"drop-connection", FaultMode::kClose},
    FaultName{"slow", FaultMode::kSlow},     FaultName{"split", FaultMode::kSplit},
    FaultName{"long", FaultMode::kLong},
};

// The filler goes before the end of the reply, so that the reply still ends as it should.
std::string lengthen(std::string reply)
{
    static constexpr std::string_view kEnd = "+OK\r\n";
    const size_t end = reply.ends_with(kEnd) ? reply.size() - kEnd.size() : reply.size();
    if (reply.size() + 1 < Faults::kLongReply) {
        const size_t filler = Faults::kLongReply - reply.size() - 1;
        reply.insert(end, std::string(filler, 'x') + ";");
    }
    return reply;
}

} // namespace

void Faults::set(FaultMode mode, std::chrono::milliseconds delay)
{
    m_mode = mode;
    m_delay = delay;
}

std::vector<ReplyPiece> Faults::shape(std::string reply) const
{
    using namespace std::chrono_literals;
    std::vector<ReplyPiece> pieces;
    switch (m_mode) {
    case FaultMode::kSlow:
        pieces.push_back({m_delay, std::move(reply)});
        break;
    case FaultMode::kSplit: {
        std::string tail = reply.substr(reply.size() / 2);
        reply.resize(reply.size() / 2);
        pieces.push_back({0ms, std::move(reply)});
        pieces.push_back({m_delay, std::move(tail)});
        break;
    }
    case FaultMode::kLong:
        pieces.push_back({0ms, lengthen(std::move(reply))});
        break;
    case FaultMode::kUp:
    case FaultMode::kRefuse: // of a connection that was open before
        pieces.push_back({0ms, std::move(reply)});
        break;
    case FaultMode::kSilent:
    case FaultMode::kClose:
        break;
    }
    return pieces;
}

std::string_view fault_name(FaultMode mode)
{
    const auto* const row = std::ranges::find(kFaultNames, mode, &FaultName::mode);
    return row == kFaultNames.end() ? "" : row->name;
}

std::optional<FaultMode> fault_by_name(std::string_view name)
{
    const auto* const row = std::ranges::find(kFaultNames, name, &FaultName::name);
    return row == kFaultNames.end() ? std::nullopt : std::optional(row->mode);
}

} // namespace sim_module
