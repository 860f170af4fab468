#include "http/places.h"

#include <algorithm>
#include <numeric>

namespace orvan_web {
namespace {

size_t sum(const std::map<std::string, size_t>& counts)
{
    return std::accumulate(counts.begin(), counts.end(), size_t{0},
                           [](size_t all, const auto& count) { return all + count.second; });
}

size_t count_of(const std::map<std::string, size_t>& counts, const std::string& address)
{
    const auto found = counts.find(address);
    return found == counts.end() ? 0 : found->second;
}

} // namespace

Places::Id Places::add(const std::string& address, Clock::time_point now)
{
    m_places[++m_last_id] = {address, PlaceState::kReceiving, now};
    return m_last_id;
}

void Places::set(Id id, PlaceState state, Clock::time_point now)
{
    Place& place = m_places.at(id);
    if (place.state != PlaceState::kClosing) {
        place.state = state;
        place.since = now;
    }
}

std::map<std::string, size_t> Places::counts(std::optional<PlaceState> state) const
{
    std::map<std::string, size_t> result;
    for (const auto& [id, place] : m_places) {
        if (state ? place.state == *state : place.state != PlaceState::kClosing) {
            ++result[place.address];
        }
    }
    return result;
}

Places::Decision Places::in_place_of_oldest(const std::string& address, PlaceState state)
{
    const auto oldest = std::min_element(m_places.begin(), m_places.end(), [&](const auto& a, const auto& b) {
        const auto key = [&](const Place& place) {
            return std::pair(place.address != address || place.state != state, place.since);
        };
        return key(a.second) < key(b.second);
    });
    if (oldest == m_places.end() || oldest->second.address != address || oldest->second.state != state) {
        return {};
    }
    oldest->second.state = PlaceState::kClosing;
    return {true, oldest->first};
}

Places::Decision Places::admit(const std::string& address)
{
    const auto all = counts(std::nullopt);
    const size_t own = count_of(all, address);
    if (own >= m_limits.per_address) {
        return in_place_of_oldest(address, PlaceState::kReceiving);
    }
    if (sum(all) < m_limits.connections) {
        return {true, std::nullopt};
    }
    std::string most;
    size_t count = own;
    for (const auto& [other, receiving] : counts(PlaceState::kReceiving)) {
        if (count_of(all, other) > count) {
            most = other;
            count = count_of(all, other);
        }
    }
    return in_place_of_oldest(most, PlaceState::kReceiving);
}

Places::Decision Places::admit_stream(Id id)
{
    const auto all = counts(PlaceState::kStream);
    if (sum(all) < m_limits.streams) {
        return {true, std::nullopt};
    }
    std::string most;
    size_t count = count_of(all, m_places.at(id).address) + 1;
    for (const auto& [other, streams] : all) {
        if (streams > count) {
            most = other;
            count = streams;
        }
    }
    return in_place_of_oldest(most, PlaceState::kStream);
}

std::vector<Places::Id> Places::overdue(Clock::time_point now)
{
    std::vector<Id> result;
    for (auto& [id, place] : m_places) {
        const bool late = (place.state == PlaceState::kReceiving && now - place.since >= m_limits.receive) ||
                          (place.state == PlaceState::kSending && now - place.since >= m_limits.send);
        if (late) {
            place.state = PlaceState::kClosing;
            result.push_back(id);
        }
    }
    return result;
}

} // namespace orvan_web
