/**
 * The queries that a channel's module is asked, and what their replies do to its record.
 */
#ifndef ORVAN_WEB_CHANNEL_QUERIES_H
#define ORVAN_WEB_CHANNEL_QUERIES_H

#include <span>
#include <string>
#include <string_view>

#include "channel_settings.h"

namespace orvan_web {

struct ChannelQuery {
    enum class Of : uint8_t { kValue, kMin, kMax };
    size_t setting; /**< index of channel_settings() */
    Of of;
};

/** All queries: those for values first, then those for limits. */
std::span<const ChannelQuery> channel_queries();
/** Number of those for values. */
size_t value_queries();
/** Index of the query for this; empty if there is none. */
std::optional<size_t> query_for(size_t setting, ChannelQuery::Of of);

/** ":FREQ?" or ":FREQ? MIN" */
std::string query_text(const ChannelQuery& query);

/** Whether the record's element is what the service stores there when it forwards this reply. */
bool record_shows(const ChannelSetting& setting, const ORVAN_CONFIG& record, std::string_view reply);

} // namespace orvan_web

#endif
