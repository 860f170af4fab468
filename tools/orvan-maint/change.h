#ifndef ORVAN_MAINT_CHANGE_H
#define ORVAN_MAINT_CHANGE_H

#include <string_view>
#include <vector>

#include "instrument.h"
#include "settings.h"

namespace orvan_maint {

/** The lines that announce a change: the instrument, and each setting with its value at the instrument's
 * start. */
std::vector<std::string> change_plan(const Identity& identity, const std::vector<Setting>& settings,
                                     const SettingValues& values);

/** Sends rows and waits for the answer; throws Failure when none comes. */
void send_rows(const Target& target, std::string_view opcode, const std::vector<RequestRow>& rows,
               std::chrono::milliseconds wait);

} // namespace orvan_maint

#endif
