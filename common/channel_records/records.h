#ifndef ORVAN_CHANNEL_RECORDS_RECORDS_H
#define ORVAN_CHANNEL_RECORDS_RECORDS_H

#include <string>
#include <vector>

#include <dataorvan.h>

namespace orvan_records {

/** A copy of all channels' records; channel n at index n - 1. */
using Records = std::vector<ORVAN_CONFIG>;

/**
 * Copies the records out of a shared memory object.
 *
 * The object is read, not mapped: a restarted service may truncate it at any moment.
 *
 * @param object name of the object, g_shmemName on an instrument
 * @return empty when there is no object or it has no complete record
 */
Records read_records(const char* object);

} // namespace orvan_records

#endif
